#pragma once

#include "foundation/json/Value.hpp"

#include <vector>

namespace converters {

/// The frames of a stack in the order that they have, each spelled as in the error of a response.
template <typename Frame>
foundation::json::Array stackFramesToJson(const std::vector<Frame>& frames) {
    foundation::json::Array array;
    array.reserve(frames.size());
    for (const auto& frame : frames) {
        array.emplace_back(foundation::json::Object{{"fileName", frame.fileName},
                                                    {"functionName", frame.functionName},
                                                    {"lineNumber", frame.lineNumber},
                                                    {"sourceLine", frame.sourceLine}});
    }
    return array;
}

}  // namespace converters
