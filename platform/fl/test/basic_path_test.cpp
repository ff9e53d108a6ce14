#include "fl/filesystem/basic_path.hpp"

#include "fl/filesystem/installation_root.hpp"

#include <gtest/gtest.h>

#include <filesystem>

using fl::filesystem::installationRoot;
using fl::filesystem::setInstallationRoot;
using fl::filesystem::detail::make_native_form;

namespace {

/// Gives each test its own root and puts the old one back.
class MakeNativeForm : public testing::Test {
  protected:
    void SetUp() override { setInstallationRoot("/opt/product"); }
    void TearDown() override { setInstallationRoot(before_); }

  private:
    std::filesystem::path before_ = installationRoot();
};

}  // namespace

TEST(InstallationRoot, IsByDefaultTheFolderAboveThatOfTheProgram) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(installationRoot(), program.parent_path().parent_path());
}

TEST_F(MakeNativeForm, PutsARelativePathBelowTheInstallationRoot) {
    EXPECT_EQ(make_native_form(L"bin\\win64\\json_event_converter").string(),
              "/opt/product/bin/win64/json_event_converter");
}

TEST_F(MakeNativeForm, KeepsAnAbsolutePath) {
    EXPECT_EQ(make_native_form(L"/tmp/a/b.so").string(), "/tmp/a/b.so");
}

TEST_F(MakeNativeForm, WritesTheStepsInUtf8) {
    EXPECT_EQ(make_native_form(L"bin\\\u00E9\U0001F600").string(),
              "/opt/product/bin/\xC3\xA9\xF0\x9F\x98\x80");
}

TEST_F(MakeNativeForm, ReplacesWhatIsNoCharacter) {
    const wchar_t beyond[] = {L'a', static_cast<wchar_t>(0x110000), L'\0'};
    EXPECT_EQ(make_native_form(beyond).string(), "/opt/product/a\xEF\xBF\xBD");
}

TEST_F(MakeNativeForm, ARelativeRootCountsFromTheCurrentFolder) {
    setInstallationRoot("elsewhere");
    EXPECT_EQ(make_native_form(L"x").string(),
              (std::filesystem::current_path() / "elsewhere" / "x").string());
}
