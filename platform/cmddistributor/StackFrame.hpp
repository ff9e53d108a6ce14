#pragma once

#include <cstdint>
#include <string>

namespace cmddistributor {

/// One frame of the engine's stack at the time of an error. Innermost frames come last.
struct StackFrame {
    std::string fileName;  ///< UTF-8; what the engine calls the source, a path or a name such as "<command>"
    std::string functionName;      ///< UTF-8; "<module>" outside of any function
    std::uint64_t lineNumber = 0;  ///< counted from 1; 0 when unknown
    std::string sourceLine;        ///< UTF-8, trimmed; empty when unknown

    friend bool operator==(const StackFrame&, const StackFrame&) = default;
};

}  // namespace cmddistributor
