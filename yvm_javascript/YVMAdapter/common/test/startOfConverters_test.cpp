// Each protocol version starts the converters' module once in a process, so this program has one test, which
// tells the story of one process.

#include "fl/filesystem/installation_root.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "r22a0/EventManagerConnection.hpp"
#include "r24a0/EventManagerConnection.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FrameworkWithFakePool.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace yvm::JSClient {
namespace {

namespace fs = std::filesystem;
using platform_testing::FakeMessageService;

const std::string textEvent = "ylutil::io::TextBaseEvent";

/// An installation that has no converters until they are put there.
class Installation {
  public:
    Installation() : root_(fs::temp_directory_path() / ("converters_test." + std::to_string(::getpid()))) {
        fs::create_directories(module().parent_path());
        // The shared libraries that the module looks for below its own root.
        for (const auto& file : fs::directory_iterator(builtRoot_ / "bin")) {
            if (file.path().extension() == ".so") {
                fs::create_symlink(file.path(), root_ / "bin" / file.path().filename());
            }
        }
        fl::filesystem::setInstallationRoot(root_);
    }
    ~Installation() {
        fl::filesystem::setInstallationRoot(builtRoot_);
        fs::remove_all(root_);
    }
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    void putConverters() const { fs::copy_file(builtRoot_ / moduleName(), module()); }
    void takeConvertersAway() const { fs::remove(module()); }
    fs::path module() const { return root_ / moduleName(); }

  private:
    static fs::path moduleName() { return "bin/win64/json_event_converter.so"; }

    const fs::path builtRoot_ = fl::filesystem::installationRoot();
    const fs::path root_;
};

std::string answerTo(FakeMessageService& service, const std::string& requestID,
                     const std::string& eventName) {
    service.deliver("/yvm/a/subscribeEvent/request",
                    R"({"requestID":")" + requestID + R"(","eventName":")" + eventName + R"("})");
    return service.publicationsOn("/yvm/a/subscribeEvent/response").back().text;
}

TEST(StartOfConverters, IsTriedByEachLookUpOfAVersionUntilItSucceedsAndNeverAgain) {
    platform_testing::FrameworkWithFakePool host;
    const Installation installation;
    const auto service = FakeMessageService::create();
    const auto connection = r24a0::EventManagerConnection::create(
        "/yvm/a", foundation::msg_svc::eventmgr::EventMgr::create(), service, nullptr);

    for (const char* id : {"1", "2"}) {
        const std::string answer = answerTo(*service, id, textEvent);
        EXPECT_NE(
            answer.find("cannot install the bundle '" +
                        installation.module().string().substr(0, installation.module().string().size() - 3)),
            std::string::npos)
            << answer;
    }
    EXPECT_ANY_THROW(connection->makeRunOptionsEventHandler(textEvent, "r"));
    service->deliver("/yvm/a/disconnectEvent/request", R"({"requestID":"d","requestIDtoDisconnect":"r"})");
    EXPECT_EQ(service->publicationsOn("/yvm/a/disconnectEvent/response").back().text, R"({"requestID":"d"})")
        << "the identifier was reserved before";

    installation.putConverters();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&connection, i] {
            EXPECT_TRUE(connection->makeEventHandler(textEvent, "concurrent" + std::to_string(i)));
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answerTo(*service, "3", textEvent), R"({"requestID":"3"})");
    EXPECT_EQ(host.framework().GetBundleContext().GetBundles().size(), 1U);

    // Whatever becomes of the file: it is not looked for again, and an unknown name is an ordinary answer.
    installation.takeConvertersAway();
    EXPECT_EQ(answerTo(*service, "4", textEvent), R"({"requestID":"4"})");
    EXPECT_NE(answerTo(*service, "5", "nobody::Knows").find("No converter for nobody::Knows"),
              std::string::npos);

    // The other version knows nothing of this start, and makes its own.
    const auto older = r22a0::EventManagerConnection::create(
        "/yvm/b", foundation::msg_svc::eventmgr::EventMgr::create(), service);
    EXPECT_ANY_THROW(older->makeEventHandler(textEvent, "e"));
    EXPECT_TRUE(connection->makeEventHandler(textEvent, "e"))
        << "which is not that of the version that has started";
    installation.putConverters();
    EXPECT_TRUE(older->makeEventHandler(textEvent, "e"));
    EXPECT_EQ(host.framework().GetBundleContext().GetBundles().size(), 1U);
    installation.takeConvertersAway();
    EXPECT_TRUE(older->makeEventHandler(textEvent, "f"));
}

}  // namespace
}  // namespace yvm::JSClient
