#pragma once

#include "cmddistributor/RuntimeException.hpp"
#include "foundation/json/Value.hpp"

namespace yvm::json_serializers {

/// An error as the JSON object that clients read. All nine keys are always present:
///
/// | Key             | JSON                                                                            |
/// |-----------------|---------------------------------------------------------------------------------|
/// | `status`        | number, `inExecutionStatus`                                                     |
/// | `message`       | string; lone surrogates have become U+FFFD                                      |
/// | `identifier`    | string, for example "ZeroDivisionError", or empty                               |
/// | `functionName`  | string                                                                          |
/// | `stackFrames`   | array of `{"fileName", "functionName", "lineNumber", "sourceLine"}`, innermost last |
/// | `causes`        | array of objects like this one, the direct cause first                          |
/// | `shutdown`      | boolean                                                                         |
/// | `arguments`     | array of numbers, strings and typed arrays, see below                           |
/// | `exceptionJson` | object, or null where the engine gave none                                      |
///
/// In `arguments`, integers of up to 32 bits and finite floats are numbers and texts are strings. 64-bit
/// integers, and floats that are not finite, are arrays in the typed form, which no reader rounds:
/// `{"ywtype": "int64", "ywsize": [], "ywdata": ["-7"]}`.
///
/// Recursive over the causes, of which `RuntimeException` bounds the depth.
foundation::json::Object serialize(const cmddistributor::RuntimeException& exception);

}  // namespace yvm::json_serializers
