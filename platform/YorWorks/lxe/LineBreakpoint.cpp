#include "YorWorks/lxe/LineBreakpoint.hpp"

#include <utility>

namespace YorWorks::lxe {

LineBreakpoint::Location::Location(std::string localFunction) : localFunction_(std::move(localFunction)) {}

LineBreakpoint::Location::Location(unsigned long long lineNumber) : lineNumber_(lineNumber) {}

LineBreakpoint::Location::Location(unsigned long long lineNumber, unsigned long long anonymousIndex)
    : lineNumber_(lineNumber), anonymousIndex_(anonymousIndex) {}

LineBreakpoint::LineBreakpoint(std::u16string fileName) : fileName_(std::move(fileName)) {}

LineBreakpoint::LineBreakpoint(std::u16string fileName, Location location)
    : fileName_(std::move(fileName)), location_(std::move(location)) {}

LineBreakpoint::LineBreakpoint(std::u16string fileName, std::u16string expression)
    : fileName_(std::move(fileName)), expression_(std::move(expression)) {}

LineBreakpoint::LineBreakpoint(std::u16string fileName, Location location, std::u16string expression)
    : fileName_(std::move(fileName)), location_(std::move(location)), expression_(std::move(expression)) {}

}  // namespace YorWorks::lxe
