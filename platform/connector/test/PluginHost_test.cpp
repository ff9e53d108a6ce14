#include "connector/PluginHost.hpp"

#include "Recorder.hpp"
#include "testing/LogCapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace connector {
namespace {

using common::DataBuffer;
using message_service::Broker;
using message_service::MessageService;
using message_service::MessageServiceOptions;
using test::Recorder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::filesystem::path echoFile = ECHO_PLUGIN;

class PluginHostTest : public ::testing::Test {
  protected:
    PluginHostTest() {
        framework_->Start();
        broker_->start();
        std::filesystem::create_directories(folder_);
    }
    ~PluginHostTest() override {
        broker_->stop();
        framework_->Stop();
        message_service::setMessageServiceFactory({});
        std::filesystem::remove_all(folder_);
    }

    /// As the host of a process does before any plug-in starts.
    void installBroker() {
        message_service::setMessageServiceFactory(
            [broker = broker_](const std::string& name, const MessageServiceOptions&) {
                return makeReadyFuture<std::shared_ptr<MessageService>>(broker->createService(name));
            });
    }

    /// Puts the plug-in into a folder below, with another file beside it.
    void dropEchoIn() {
        std::filesystem::create_directories(folder_ / "some" / "depth");
        std::filesystem::copy_file(echoFile, folder_ / "some" / "depth" / "echo.so");
        std::ofstream(folder_ / "some" / "readme.txt") << "no plug-in";
    }

    std::string messageOfInstall(const std::filesystem::path& folder) {
        try {
            host_.installFolder(folder);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() /
        (std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "_" +
         std::to_string(getpid()));
    std::shared_ptr<cppmicroservices::Framework> framework_ = std::make_shared<cppmicroservices::Framework>();
    std::shared_ptr<Broker> broker_ = Broker::create();
    PluginHost host_{framework_, broker_};
};

TEST_F(PluginHostTest, TheFirstMessageLoadsAPluginAndIsDeliveredToIt) {
    installBroker();
    dropEchoIn();
    const auto bundles = host_.installFolder(folder_);
    ASSERT_EQ(bundles.size(), 1U);
    EXPECT_EQ(bundles[0].GetSymbolicName(), "com_yorworks_EchoTest");
    EXPECT_FALSE(bundles[0].IsLoaded());

    const auto door = broker_->createService("test");
    Recorder recorder;
    const auto subscription = door->subscribe("/echo/response", recorder.callback()).get();
    for (const auto* text : {"1", "2", "3"}) {
        door->publish("/echo/request", DataBuffer(text));
    }
    EXPECT_THAT(recorder.wait(3), ElementsAre("/echo/response 1", "/echo/response 2", "/echo/response 3"));
    EXPECT_TRUE(bundles[0].IsLoaded());
}

TEST_F(PluginHostTest, AStartThatFailsIsTriedAgainByTheNextMessage) {
    platform_testing::LogCapture log;
    dropEchoIn();
    host_.installFolder(folder_);
    const auto door = broker_->createService("test");
    Recorder recorder;
    const auto response = door->subscribe("/echo/response", recorder.callback()).get();
    const auto request = door->subscribe("/echo/request", recorder.callback()).get();
    door->publish("/echo/request", DataBuffer("1"));
    // Delivered to those who are there, after the attempt has failed.
    EXPECT_THAT(recorder.wait(1), ElementsAre("/echo/request 1"));
    const auto texts = log.texts("connector::message_service", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0], HasSubstr("The start for /echo/* failed: "));
    EXPECT_THAT(texts[0], HasSubstr("no message broker is installed in this process"));

    installBroker();
    door->publish("/echo/request", DataBuffer("2"));
    EXPECT_THAT(recorder.wait(3), ElementsAre("/echo/request 1", "/echo/request 2", "/echo/response 2"));
}

TEST_F(PluginHostTest, AMissingFolderIsNamed) {
    EXPECT_EQ(
        messageOfInstall(folder_ / "none"),
        "cannot read the plug-in folder '" + (folder_ / "none").string() + "': No such file or directory");
}

TEST_F(PluginHostTest, AFileInPlaceOfTheFolderIsNamed) {
    std::ofstream(folder_ / "file") << "text";
    EXPECT_EQ(messageOfInstall(folder_ / "file"),
              "cannot read the plug-in folder '" + (folder_ / "file").string() + "': Not a directory");
}

TEST_F(PluginHostTest, AnEmptyFolderHasNoPlugins) {
    EXPECT_TRUE(host_.installFolder(folder_).empty());
}

TEST_F(PluginHostTest, ABrokenPluginIsNamedAndNothingIsStarted) {
    platform_testing::LogCapture log;
    installBroker();
    dropEchoIn();
    std::ofstream(folder_ / "zz_broken.so") << "no shared object";
    EXPECT_THAT(messageOfInstall(folder_), HasSubstr((folder_ / "zz_broken.so").string()));
    const auto door = broker_->createService("test");
    Recorder recorder;
    const auto request = door->subscribe("/echo/request", recorder.callback()).get();
    door->publish("/echo/request", DataBuffer("1"));
    recorder.wait(1);
    for (const auto& bundle : framework_->GetBundleContext().GetBundles()) {
        EXPECT_FALSE(bundle.IsLoaded()) << bundle.GetSymbolicName();
    }
}

TEST_F(PluginHostTest, ALinkThatLeadsNowhereIsNamed) {
    std::filesystem::create_symlink(folder_ / "gone", folder_ / "link.so");
    EXPECT_THAT(messageOfInstall(folder_), HasSubstr((folder_ / "link.so").string()));
}

TEST_F(PluginHostTest, AFolderWhoseNameLooksLikeAPluginIsSearched) {
    dropEchoIn();
    std::filesystem::rename(folder_ / "some", folder_ / "some.so");
    EXPECT_EQ(host_.installFolder(folder_).size(), 1U);
}

TEST_F(PluginHostTest, AMessageAfterTheFrameworkHasGoneStartsNothing) {
    platform_testing::LogCapture log;
    dropEchoIn();
    {
        auto framework = std::make_shared<cppmicroservices::Framework>();
        framework->Start();
        PluginHost(framework, broker_).installFolder(folder_);
    }
    const auto door = broker_->createService("test");
    Recorder recorder;
    const auto request = door->subscribe("/echo/request", recorder.callback()).get();
    door->publish("/echo/request", DataBuffer("1"));
    recorder.wait(1);
    const auto texts = log.texts("connector::message_service", foundation::log::CaughtException);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_THAT(texts[0], HasSubstr("the service framework has ended"));
}

}  // namespace
}  // namespace connector
