#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace fl::filesystem {

/// A path in the form of this system.
class basic_path {
  public:
    explicit basic_path(std::filesystem::path native) : native_(std::move(native)) {}

    const std::filesystem::path& native() const noexcept { return native_; }
    std::string string() const { return native_.string(); }

    bool operator==(const basic_path&) const = default;

  private:
    std::filesystem::path native_;
};

namespace detail {

/// The native form of a module's path as the code names it, for example `bin\win64\json_event_converter`:
/// backslashes part the steps, and a relative path starts at `installationRoot()`. Carries no file
/// extension if none was given; whoever loads the module adds it. The wide text is UTF-32; a value that
/// is no character becomes U+FFFD.
basic_path make_native_form(std::wstring_view path);

}  // namespace detail
}  // namespace fl::filesystem
