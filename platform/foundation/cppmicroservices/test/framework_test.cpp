#include "foundation/cppmicroservices/framework.hpp"

#include "fl/filesystem/installation_root.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

using cppmicroservices::Framework;
using fl::filesystem::detail::make_native_form;
using foundation::cppmicroservices::getFramework;
using foundation::cppmicroservices::installAndStart;
using foundation::cppmicroservices::setFramework;

namespace {

/// An installation of its own, in which the plug-in may be absent.
class InstallAndStart : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(plugin_.parent_path());
        fl::filesystem::setInstallationRoot(root_);
        framework_->Start();
        setFramework(framework_);
    }
    void TearDown() override {
        setFramework(nullptr);
        framework_->Stop();
        fl::filesystem::setInstallationRoot(rootBefore_);
        std::filesystem::remove_all(root_);
    }

    void putPluginThere() { std::filesystem::create_symlink(GREETERS_PLUGIN, plugin_); }

    static std::string errorOf(const fl::filesystem::basic_path& path) {
        try {
            installAndStart(path);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no exception";
    }

    const std::filesystem::path rootBefore_ = fl::filesystem::installationRoot();
    const std::filesystem::path root_ =
        std::filesystem::temp_directory_path() / ("framework_test." + std::to_string(::getpid()));
    const std::filesystem::path plugin_ = root_ / "bin" / "win64" / "greeters.so";
    const std::shared_ptr<Framework> framework_ = std::make_shared<Framework>();
};

}  // namespace

TEST(GetFramework, IsEmptyUntilTheHostSetsOne) {
    EXPECT_EQ(getFramework(), nullptr);
    const auto framework = std::make_shared<Framework>();
    setFramework(framework);
    EXPECT_EQ(getFramework(), framework);
    setFramework(nullptr);
    EXPECT_EQ(getFramework(), nullptr);
}

TEST_F(InstallAndStart, TakesTheModuleInNativeFormBelowTheRoot) {
    putPluginThere();
    const auto bundles = installAndStart(make_native_form(L"bin\\win64\\greeters"));
    ASSERT_EQ(bundles.size(), 1U);
    EXPECT_TRUE(bundles[0].IsStarted());
    EXPECT_EQ(bundles[0].GetSymbolicName(), "com_yorworks_GreetingTest");
    EXPECT_EQ(framework_->GetBundleContext().GetServiceReferences("plugintest::Greeting").size(), 2U);
}

TEST_F(InstallAndStart, ASecondTimeForOnePathIsAccepted) {
    putPluginThere();
    const auto path = make_native_form(L"bin\\win64\\greeters");
    const auto first = installAndStart(path);
    EXPECT_EQ(installAndStart(path), first);
    EXPECT_EQ(framework_->GetBundleContext().GetServiceReferences("plugintest::Greeting").size(), 2U);
}

TEST_F(InstallAndStart, RaisesWhileTheModuleIsAbsentAndSucceedsOnceItIsThere) {
    const auto path = make_native_form(L"bin\\win64\\greeters");
    const std::string missing = "cannot install the bundle '" + path.string() +
                                "': there is no such file, nor '" + path.string() + ".so'";
    EXPECT_EQ(errorOf(path), missing);
    EXPECT_EQ(errorOf(path), missing);
    putPluginThere();
    EXPECT_EQ(errorOf(path), "no exception");
}

TEST_F(InstallAndStart, RaisesForAModuleThatIsNoPlugin) {
    std::ofstream(root_ / "notes.txt") << "nothing to load";
    const auto path = make_native_form(L"notes.txt");
    EXPECT_EQ(errorOf(path), "cannot install the bundle '" +
                                 std::filesystem::canonical(path.native()).string() +
                                 "': it is not an ELF file");
}

TEST_F(InstallAndStart, NeedsAFramework) {
    setFramework(nullptr);
    const auto path = make_native_form(L"bin\\win64\\greeters");
    EXPECT_EQ(errorOf(path),
              "cannot install the bundle '" + path.string() + "': there is no service framework");
}

TEST_F(InstallAndStart, NeedsAFrameworkThatIsStarted) {
    framework_->Stop();
    EXPECT_EQ(errorOf(make_native_form(L"bin\\win64\\greeters")), "The bundle context is no longer valid");
}
