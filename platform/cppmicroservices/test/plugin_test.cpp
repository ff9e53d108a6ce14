#include "Listening.hpp"
#include "cppmicroservices/Framework.hpp"
#include "plugin/Greeting.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace cppmicroservices;
using namespace std::chrono_literals;
using plugintest::Greeting;

namespace {

const std::filesystem::path greetersFile = GREETERS_PLUGIN;
const std::filesystem::path strippedFile = STRIPPED_PLUGIN;
const std::filesystem::path incompleteFile = INCOMPLETE_PLUGIN;
const std::filesystem::path contextlessFile = CONTEXTLESS_PLUGIN;

class RecordingJournal final : public plugintest::Journal {
  public:
    void created(const std::string& component, const std::string& bundleName) override {
        {
            const std::lock_guard lock(mutex_);
            lines_.push_back("+" + component + " of " + bundleName);
        }
        if (onCreated) {
            onCreated(component);
        }
    }
    void deleted(const std::string& component) noexcept override {
        const std::lock_guard lock(mutex_);
        lines_.push_back("-" + component);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    std::function<void(const std::string& component)> onCreated;

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
};

class Plugin : public testing::Test {
  protected:
    void SetUp() override {
        framework_.Start();
        context_ = framework_.GetBundleContext();
        context_.RegisterService<plugintest::Journal>(journal_);
    }

    Bundle install(const std::filesystem::path& file) { return context_.InstallBundles(file).at(0); }

    std::vector<std::string> greetings() const {
        std::vector<std::string> found;
        for (const auto& reference : context_.GetServiceReferences<Greeting>()) {
            found.push_back(context_.GetService(reference)->greet());
        }
        return found;
    }

    std::shared_ptr<RecordingJournal> journal_ = std::make_shared<RecordingJournal>();
    Framework framework_;
    BundleContext context_;
};

std::string textOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(Plugin, AManifestIsReadWithoutLoadingTheLibrary) {
    // A copy, which no other test loads.
    const auto copy =
        std::filesystem::temp_directory_path() / ("plugin_test." + std::to_string(::getpid()) + ".so");
    std::filesystem::copy_file(greetersFile, copy);
    auto bundle = install(copy);
    EXPECT_EQ(bundle.GetSymbolicName(), "com_yorworks_GreetingTest");
    EXPECT_EQ(bundle.GetManifest().at("bundle.vendor"), foundation::json::Value("yvm-connector"));
    EXPECT_EQ(bundle.GetLocation(), std::filesystem::canonical(copy));
    EXPECT_FALSE(bundle.IsStarted());
    EXPECT_FALSE(bundle.GetBundleContext());
    EXPECT_FALSE(bundle.IsLoaded());
    EXPECT_EQ(::dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
    bundle.Start();
    EXPECT_TRUE(bundle.IsLoaded());
    EXPECT_NE(::dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
    std::filesystem::remove(copy);
}

TEST_F(Plugin, StartingItMakesTheComponentsThatAreNotDeferred) {
    auto bundle = install(greetersFile);
    bundle.Start();
    EXPECT_TRUE(bundle.IsStarted());
    EXPECT_TRUE(bundle.IsLoaded());
    EXPECT_EQ(greetings(), (Lines{"good day", "good night"}));
    EXPECT_EQ(journal_->lines(),
              (Lines{"+Greeter of com_yorworks_GreetingTest", "+Second of com_yorworks_GreetingTest"}));
    const auto reference = context_.GetServiceReferences<Greeting>("(&(language=en)(polite=true))").at(0);
    EXPECT_EQ(reference.GetBundle(), bundle);
    EXPECT_EQ(reference.GetInterfaceId(), "plugintest::Greeting");
}

TEST_F(Plugin, InstallingAndStartingItAgainChangesNothing) {
    auto bundle = install(greetersFile);
    bundle.Start();
    bundle.Start();
    auto again = install(greetersFile);
    again.Start();
    EXPECT_EQ(again, bundle);
    EXPECT_EQ(greetings().size(), 2U);
    EXPECT_EQ(context_.GetBundles(), std::vector<Bundle>{bundle});
}

TEST_F(Plugin, ItsEndingMayBeLeftOut) {
    auto path = greetersFile;
    EXPECT_EQ(install(path.replace_extension()), install(greetersFile));
}

TEST_F(Plugin, ADeferredComponentWaitsForItsActivation) {
    auto bundle = install(greetersFile);
    EXPECT_TRUE(framework_.deferredComponents().empty()) << "not started yet";
    bundle.Start();
    const auto deferred = framework_.deferredComponents();
    ASSERT_EQ(deferred.size(), 1U);
    EXPECT_EQ(deferred[0].bundle, bundle);
    EXPECT_EQ(deferred[0].implementationClass, "plugintest::LateGreeter");
    EXPECT_EQ(deferred[0].channelPatterns, (Lines{"/greet/*", "/hello"}));
    framework_.activate(deferred[0]);
    EXPECT_EQ(greetings(), (Lines{"good day", "good night", "good evening"}));
    framework_.activate(deferred[0]);
    EXPECT_EQ(greetings().size(), 3U);
}

TEST_F(Plugin, ABundleOfDeferredComponentsIsNotLoadedByItsStart) {
    auto bundle = install(incompleteFile);
    bundle.Start();
    EXPECT_TRUE(bundle.IsStarted());
    EXPECT_FALSE(bundle.IsLoaded());
    EXPECT_EQ(framework_.deferredComponents().size(), 2U);
}

TEST_F(Plugin, AComponentThatFailsToStartIsTriedAgainByTheNextActivation) {
    install(greetersFile).Start();
    const auto deferred = framework_.deferredComponents().at(0);
    journal_->onCreated = [](const std::string&) { throw std::runtime_error("no message service"); };
    EXPECT_EQ(textOf([&] { framework_.activate(deferred); }), "no message service");
    EXPECT_EQ(greetings().size(), 2U);
    journal_->onCreated = nullptr;
    framework_.activate(deferred);
    EXPECT_EQ(greetings().size(), 3U);
}

TEST_F(Plugin, AStartThatFailsIsUndone) {
    auto bundle = install(greetersFile);
    journal_->onCreated = [](const std::string& component) {
        if (component == "Second") {
            throw std::runtime_error("second failed");
        }
    };
    EXPECT_EQ(textOf([&] { bundle.Start(); }), "second failed");
    EXPECT_FALSE(bundle.IsStarted());
    EXPECT_TRUE(greetings().empty());
    EXPECT_EQ(journal_->lines().back(), "-Greeter");
    journal_->onCreated = nullptr;
    bundle.Start();
    EXPECT_EQ(greetings().size(), 2U);
}

TEST_F(Plugin, AConcurrentActivationWaitsForTheOneThatRuns) {
    install(greetersFile).Start();
    const auto deferred = framework_.deferredComponents().at(0);
    std::promise<void> entered;
    std::promise<void> leave;
    auto mayLeave = leave.get_future().share();
    journal_->onCreated = [&](const std::string&) {
        entered.set_value();
        mayLeave.wait();
    };
    auto first = std::async(std::launch::async, [&] { framework_.activate(deferred); });
    entered.get_future().wait();
    std::promise<void> started;
    auto second = std::async(std::launch::async, [&] {
        started.set_value();
        framework_.activate(deferred);
        return greetings().size();
    });
    started.get_future().wait();
    leave.set_value();
    ASSERT_EQ(first.wait_for(60s), std::future_status::ready);
    ASSERT_EQ(second.wait_for(60s), std::future_status::ready);
    first.get();
    EXPECT_EQ(second.get(), 3U);
    EXPECT_EQ(journal_->lines().size(), 3U);
}

TEST_F(Plugin, StoppingItUndoesItsComponentsLastMadeFirst) {
    auto bundle = install(greetersFile);
    bundle.Start();
    framework_.activate(framework_.deferredComponents().at(0));
    auto ownContext = bundle.GetBundleContext();
    std::size_t unregistered = 0;
    const Listening token(context_, [&](const ServiceEvent& event) {
        unregistered += event.GetType() == ServiceEvent::SERVICE_UNREGISTERING ? 1 : 0;
    });
    const auto before = journal_->lines().size();
    bundle.Stop();
    bundle.Stop();
    const auto lines = journal_->lines();
    EXPECT_EQ(Lines(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end()),
              (Lines{"-LateGreeter", "-Second", "-Greeter"}));
    EXPECT_EQ(unregistered, 3U);
    EXPECT_TRUE(greetings().empty());
    EXPECT_FALSE(ownContext);
    EXPECT_TRUE(framework_.deferredComponents().empty());
    bundle.Start();
    EXPECT_EQ(greetings().size(), 2U);
}

TEST_F(Plugin, AServiceInUseOutlivesTheStopOfItsBundle) {
    auto bundle = install(greetersFile);
    bundle.Start();
    auto held = context_.GetService(context_.GetServiceReference<Greeting>());
    bundle.Stop();
    EXPECT_EQ(held->greet(), "good day");
    EXPECT_EQ(journal_->lines().back(), "-Second");
    held.reset();
    EXPECT_EQ(journal_->lines().back(), "-Greeter");
}

TEST_F(Plugin, StoppingTheFrameworkStopsIt) {
    install(greetersFile).Start();
    framework_.Stop();
    EXPECT_EQ(journal_->lines().back(), "-Greeter");
}

TEST_F(Plugin, ANewFrameworkOfTheProcessTakesItOver) {
    install(greetersFile).Start();
    framework_.Stop();
    Framework next;
    next.Start();
    const auto journal = std::make_shared<RecordingJournal>();
    next.GetBundleContext().RegisterService<plugintest::Journal>(journal);
    next.GetBundleContext().InstallBundles(greetersFile).at(0).Start();
    EXPECT_EQ(journal->lines().size(), 2U);
}

TEST_F(Plugin, ItsManifestSurvivesStrip) {
    auto bundle = install(strippedFile);
    EXPECT_EQ(bundle.GetSymbolicName(), "com_yorworks_GreetingTest");
    bundle.Start();
    EXPECT_EQ(greetings().size(), 2U);
}

TEST_F(Plugin, TwoFilesWithOneNameAreRefused) {
    install(greetersFile);
    EXPECT_EQ(textOf([&] { install(strippedFile); }),
              "cannot install the bundle '" + std::filesystem::canonical(strippedFile).string() +
                  "': its name 'com_yorworks_GreetingTest' is that of '" +
                  std::filesystem::canonical(greetersFile).string() + "'");
}

TEST_F(Plugin, AFileThatIsNotThereIsNamed) {
    EXPECT_EQ(textOf([&] { install("/nowhere/plugin"); }),
              "cannot install the bundle '/nowhere/plugin': there is no such file, nor '/nowhere/plugin.so'");
}

TEST_F(Plugin, ALibraryThatIsNoPluginIsRefused) {
    Dl_info library{};
    ASSERT_NE(::dladdr(reinterpret_cast<void*>(&shareBundleContext), &library), 0);
    const auto file = std::filesystem::canonical(library.dli_fname);
    EXPECT_EQ(textOf([&] { install(file); }),
              "cannot install the bundle '" + file.string() +
                  "': it has no section 'US_RESOURCES', which would hold its manifest");
}

TEST_F(Plugin, AMissingComponentIsNamed) {
    install(incompleteFile).Start();
    const auto deferred = framework_.deferredComponents();
    EXPECT_EQ(textOf([&] { framework_.activate(deferred.at(0)); }),
              "cannot use the bundle '" + std::filesystem::canonical(incompleteFile).string() +
                  "': it does not export the function 'NewInstance_plugintest_Absent'");
}

TEST_F(Plugin, AnInterfaceThatTheComponentLacksIsNamed) {
    install(incompleteFile).Start();
    const auto deferred = framework_.deferredComponents();
    EXPECT_EQ(
        textOf([&] { framework_.activate(deferred.at(1)); }),
        "the component 'plugintest::Half' does not provide the interface 'plugintest::Unprovided' that its "
        "manifest names");
    EXPECT_TRUE(greetings().empty());
}

TEST_F(Plugin, APluginThatTakesNoContextIsRefused) {
    auto bundle = install(contextlessFile);
    EXPECT_EQ(textOf([&] { bundle.Start(); }),
              "cannot use the bundle '" + std::filesystem::canonical(contextlessFile).string() +
                  "': it does not export the function "
                  "'_us_set_bundle_context_instance_com_yorworks_ContextlessTest'");
}

TEST_F(Plugin, ActivationNeedsAStartedBundleAndAKnownComponent) {
    auto bundle = install(greetersFile);
    EXPECT_EQ(textOf([&] { framework_.activate({bundle, "plugintest::LateGreeter", {}}); }),
              "the bundle 'com_yorworks_GreetingTest' is not started");
    bundle.Start();
    EXPECT_EQ(textOf([&] { framework_.activate({bundle, "plugintest::Nobody", {}}); }),
              "the bundle 'com_yorworks_GreetingTest' has no component 'plugintest::Nobody'");
    EXPECT_EQ(textOf([&] { framework_.activate({Bundle(), "plugintest::Nobody", {}}); }),
              "the component 'plugintest::Nobody' names no bundle");
}

TEST_F(Plugin, DeletingANullInstanceDoesNothing) {
    install(greetersFile).Start();
    void* const library = ::dlopen(greetersFile.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    auto* const destroy =
        reinterpret_cast<void (*)(void*)>(::dlsym(library, "DeleteInstance_plugintest_Greeter"));
    ASSERT_NE(destroy, nullptr);
    destroy(nullptr);
    EXPECT_EQ(greetings().size(), 2U);
}

TEST_F(Plugin, ExportsOnlyWhatTheFrameworkLooksUpAndWhatItsBuildNames) {
    const std::string command = "nm -D --defined-only --format=just-symbols '" + greetersFile.string() + "'";
    const std::unique_ptr<FILE, decltype(&::pclose)> pipe(::popen(command.c_str(), "r"), &::pclose);
    ASSERT_NE(pipe, nullptr);
    std::string output;
    std::array<char, 4096> buffer{};
    while (const auto read = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
        output.append(buffer.data(), read);
    }
    std::istringstream lines(output);
    std::set<std::string> exported;
    for (std::string line; std::getline(lines, line);) {
        exported.insert(line);
    }
    EXPECT_EQ(exported, (std::set<std::string>{
                            "DeleteInstance_plugintest_Greeter", "DeleteInstance_plugintest_LateGreeter",
                            "DeleteInstance_plugintest_Second", "NewInstance_plugintest_Greeter",
                            "NewInstance_plugintest_LateGreeter", "NewInstance_plugintest_Second",
                            "_us_set_bundle_context_instance_com_yorworks_GreetingTest",
                            "_ZN10plugintest16numberOfGreetersEv"}));
}
