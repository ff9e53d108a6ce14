#pragma once

#include <optional>
#include <string>

namespace YorWorks::lxe {

/// A breakpoint at a place in a file, or on the file as such. A value.
class [[gnu::visibility("default")]] LineBreakpoint {
  public:
    /// A place within a file: a local function by its name, or a line.
    class [[gnu::visibility("default")]] Location {
      public:
        /// UTF-8.
        explicit Location(std::string localFunction);
        /// The line's own code. Lines are as the client counts them.
        explicit Location(unsigned long long lineNumber);
        /// The anonymous function of this number on the line.
        Location(unsigned long long lineNumber, unsigned long long anonymousIndex);

        /// Empty for a line.
        const std::optional<std::string>& localFunction() const noexcept { return localFunction_; }
        /// 0 for a local function.
        unsigned long long lineNumber() const noexcept { return lineNumber_; }
        /// Empty where none was given.
        const std::optional<unsigned long long>& anonymousIndex() const noexcept { return anonymousIndex_; }

        friend bool operator==(const Location&, const Location&) = default;

      private:
        std::optional<std::string> localFunction_;
        unsigned long long lineNumber_ = 0;
        std::optional<unsigned long long> anonymousIndex_;
    };

    /// On the file as such.
    explicit LineBreakpoint(std::u16string fileName);
    LineBreakpoint(std::u16string fileName, Location location);
    /// With the expression that has to hold for a stop.
    LineBreakpoint(std::u16string fileName, std::u16string expression);
    LineBreakpoint(std::u16string fileName, Location location, std::u16string expression);

    const std::u16string& fileName() const noexcept { return fileName_; }
    const std::optional<Location>& location() const noexcept { return location_; }
    const std::optional<std::u16string>& expression() const noexcept { return expression_; }

    friend bool operator==(const LineBreakpoint&, const LineBreakpoint&) = default;

  private:
    std::u16string fileName_;
    std::optional<Location> location_;
    std::optional<std::u16string> expression_;
};

}  // namespace YorWorks::lxe
