// The built plug-in through the real framework: nothing of the module is linked into this program.

#include "common/test/support.hpp"
#include "cppmicroservices/Framework.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstance.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/feature/IFeature.hpp"
#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeThreadPool.hpp"
#include "testing/FakeYvm.hpp"
#include "yvm/YVM.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>

namespace {

using foundation::json::Value;
using platform_testing::FakeCmdDistributor;
using platform_testing::FakeMessageService;
using platform_testing::FakeYvm;

const std::string attachMessage = R"({"requestID":"a","yvmID":"user-yvm","supportedApiVersions":["r24a0"]})";
const std::string attachAnswer = R"({"apiVersion":"r24a0","channelPrefix":"/yvm/a","requestID":"a"})";

class PluginTest : public testing::Test {
  protected:
    PluginTest() {
        framework.Start();
        context = framework.GetBundleContext();
        bundle = context.InstallBundles(YVM_ADAPTER_PLUGIN).at(0);
    }

    void activate() {
        bundle.Start();
        framework.activate(framework.deferredComponents().at(0));
    }

    std::size_t attach() { return service->deliver("/yvm/attach/request", attachMessage); }

    void registerEngine(bool userYvm = true) {
        context.RegisterService<yvm::YVM>(FakeYvm::create(distributor), {{"user-yvm", Value(userYvm)}});
    }

    std::vector<std::string> answers() const {
        std::vector<std::string> texts;
        for (const auto& publication : service->publicationsOn("/yvm/attach/response")) {
            texts.push_back(publication.text);
        }
        return texts;
    }

    platform_testing::FakeMessageServiceFactory factory;
    const std::shared_ptr<FakeMessageService> service = factory.service();
    const boost::shared_ptr<FakeCmdDistributor> distributor = FakeCmdDistributor::create();
    // Last, so that the component is stopped while all else stands.
    cppmicroservices::Framework framework;
    cppmicroservices::BundleContext context;
    cppmicroservices::Bundle bundle;
};

TEST_F(PluginTest, ItsManifestIsReadWithoutLoadingIt) {
    EXPECT_FALSE(bundle.IsLoaded());
    EXPECT_EQ(bundle.GetSymbolicName(), "com_yorworks_YVMAdapter");
    auto manifest = bundle.GetManifest();
    EXPECT_FALSE(manifest.at("bundle.vendor").as<std::string>().empty());
    manifest.erase("bundle.vendor");
    EXPECT_EQ(Value(manifest), foundation::json::parseText(R"({
"bundle.activator":false,
"bundle.symbolic_name":"com_yorworks_YVMAdapter",
"yw":{
"clientdir":"src/yvm_javascript/YVMAdapter",
"component":{"attributes":"released","name":"yvm_javascript/YVMAdapter","type":"software"},
"installpath":"bin/win64/connector_plugins/yvm_javascript/YVMAdapter/ywYVMAdapter.dll",
"module":{"name":"YVMAdapter"}},
"scr":{"version":1,"components":[{
"implementation-class":"yvm::JSClient::YVMAdapterHolder",
"properties":{"yw":{"embeddedConnector":{"startTriggers":{"messageServiceChannels":["/yvm/*"]}}}},
"service":{"interfaces":["connector::common::DeferredService"]}}]}})"));
}

TEST_F(PluginTest, StartsNothingBeforeItsTrigger) {
    bundle.Start();
    const auto deferred = framework.deferredComponents();
    ASSERT_EQ(deferred.size(), 1U);
    EXPECT_EQ(deferred.front().implementationClass, "yvm::JSClient::YVMAdapterHolder");
    EXPECT_EQ(deferred.front().channelPatterns, std::vector<std::string>{"/yvm/*"});
    EXPECT_TRUE(service->subscriptionLog().empty());
    EXPECT_TRUE(context.GetServiceReferences("connector::common::DeferredService").empty());
}

TEST_F(PluginTest, AnEngineThatWasThereBeforeIsFound) {
    registerEngine();
    activate();
    EXPECT_TRUE(bundle.IsLoaded());
    EXPECT_EQ(context.GetServiceReferences("connector::common::DeferredService").size(), 1U);
    EXPECT_EQ(attach(), 1U);
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer});
}

TEST_F(PluginTest, AnEngineThatComesLaterAnswersTheAttachesThatWait) {
    activate();
    EXPECT_EQ(attach(), 1U);
    EXPECT_TRUE(answers().empty());
    registerEngine();
    EXPECT_EQ(answers(), std::vector<std::string>{attachAnswer});
}

TEST_F(PluginTest, AnEngineThatIsNotForUsersIsIgnored) {
    registerEngine(false);
    activate();
    EXPECT_EQ(attach(), 1U);
    registerEngine(false);
    EXPECT_TRUE(answers().empty());
}

TEST_F(PluginTest, ExceptionsCrossItsBorderWithTheirTypes) {
    registerEngine();
    activate();
    attach();
    // A failed parse is caught by its type inside the plug-in, and thrown in a library.
    service->deliver("/yvm/a/eval/request", R"({"requestID":"1","command" "x"})");
    service->deliver("/yvm/a/eval/request", R"({"requestID":"2","command":"x"})");
    distributor->fail(
        distributor->lastCommand().id,
        cmddistributor::RuntimeException(ylutil::cmddistributor::inExecutionStatus::CommandFailed,
                                         std::u16string(u"no"), "Identifier"));
    const auto responses = service->publicationsOn("/yvm/a/eval/response");
    ASSERT_EQ(responses.size(), 2U);
    EXPECT_EQ(yvm::JSClient::test::statusOf(responses[0].json()), 5);
    EXPECT_EQ(yvm::JSClient::test::statusOf(responses[1].json()), 1);
}

TEST_F(PluginTest, TheSinksOfAClientPublishFromThePoolOfTheFramework) {
    using foundation::feature::IFeature;
    const std::shared_ptr<cppmicroservices::Framework> shared(&framework, [](auto*) {});
    foundation::cppmicroservices::setFramework(shared);
    for (const char* feature : {"YVMJS_SmartBuf", "webui"}) {
        IFeature::instance().set(feature, true);
    }
    const foundation::core::util::scope_guard reset([] {
        foundation::cppmicroservices::setFramework({});
        for (const char* feature : {"YVMJS_SmartBuf", "webui"}) {
            IFeature::instance().reset(feature);
        }
    });
    const auto pool = std::make_shared<platform_testing::FakeThreadPool>();
    context.RegisterService<foundation::concurrent::threadpool::ThreadPool>(pool);
    const auto engine = FakeYvm::create(distributor);
    context.RegisterService<yvm::YVM>(engine, {{"user-yvm", Value(true)}});
    activate();
    attach();
    EXPECT_EQ(service->deliver("/yvm/a/yvmSinks/request", R"({"requestID":"1"})"), 1U);
    EXPECT_EQ(service->publicationsOn("/yvm/a/yvmSinks/response").at(0).text, R"({"requestID":"1"})");
    engine->outSink()->buffer().sputn(u"hi", 2);
    pool->advance(std::chrono::milliseconds(150));
    EXPECT_EQ(service->publicationsOn("/yvm/a/yvmSinks/output").at(0).text, R"({"stream":0,"text":"hi"})");
    // The engine keeps sinks whose code is that of the plug-in, and the pool a task.
    bundle.Stop();
    engine->outSink()->buffer().sputn(u"late", 4);
    pool->advance(std::chrono::milliseconds(150));
    EXPECT_EQ(pool->waiting(), 0U);
    EXPECT_EQ(service->publicationsOn("/yvm/a/yvmSinks/output").size(), 1U);
}

TEST_F(PluginTest, StoppingTheBundleEndsItsSubscriptions) {
    registerEngine();
    activate();
    attach();
    bundle.Stop();
    EXPECT_EQ(service->subscriberCount(), 0U);
}

TEST_F(PluginTest, AStartThatFailsCanBeTriedAgain) {
    factory.failNextCreate(FakeMessageService::Failure::invalidFuture);
    EXPECT_EQ(yvm::JSClient::test::textThrownBy<std::runtime_error>([this] { activate(); }),
              "Future state isn't valid!");
    EXPECT_TRUE(context.GetServiceReferences("connector::common::DeferredService").empty());
    framework.activate(framework.deferredComponents().at(0));
    EXPECT_EQ(context.GetServiceReferences("connector::common::DeferredService").size(), 1U);
}

TEST_F(PluginTest, DeletingNoInstanceDoesNothing) {
    using cppmicroservices::service::component::detail::ComponentInstance;
    activate();
    void* const library = dlopen(YVM_ADAPTER_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto newInstance = reinterpret_cast<ComponentInstance* (*)()>(
        dlsym(library, "NewInstance_yvm_JSClient_YVMAdapterHolder"));
    const auto deleteInstance = reinterpret_cast<void (*)(ComponentInstance*)>(
        dlsym(library, "DeleteInstance_yvm_JSClient_YVMAdapterHolder"));
    ASSERT_NE(newInstance, nullptr);
    ASSERT_NE(deleteInstance, nullptr);
    deleteInstance(nullptr);
    const auto subscribers = service->subscriberCount();
    ComponentInstance* const instance = newInstance();
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(service->subscriberCount(), subscribers) << "making the instance does not make the component";
    deleteInstance(instance);
    dlclose(library);
}

TEST(Plugin, ExportsWhatTheFrameworkLooksUpAndTheMockOfTheEngine) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
        popen("nm --dynamic --defined-only --demangle --format=just-symbols '" YVM_ADAPTER_PLUGIN "'", "r"),
        pclose);
    ASSERT_NE(pipe, nullptr);
    std::set<std::string> exported;
    for (char line[1024]; std::fgets(line, sizeof line, pipe.get()) != nullptr;) {
        std::string name(line);
        name.pop_back();
        exported.insert(name);
    }
    EXPECT_EQ(exported, (std::set<std::string>{"NewInstance_yvm_JSClient_YVMAdapterHolder",
                                               "DeleteInstance_yvm_JSClient_YVMAdapterHolder",
                                               "_us_set_bundle_context_instance_com_yorworks_YVMAdapter",
                                               "yvm::unittest::setCurrentMockYvm(yvm::YVM*)"}));
}

}  // namespace
