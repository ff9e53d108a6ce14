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
/// | `arguments`     | array; 64-bit integers are decimal strings in the typed form `{"ywtype", "ywsize",
/// "ywdata"}` | | `exceptionJson` | object, or null where the engine gave none |
foundation::json::Object serialize(const cmddistributor::RuntimeException& exception);

}  // namespace yvm::json_serializers
