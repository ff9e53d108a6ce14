#pragma once

#include "foundation/json/ParserException.hpp"

#include <string>

namespace yvm::JSClient {

/// One step in the repair of a damaged request: edits `text` by one byte where `exception`, its parse
/// failure, points. The aim is not to run the request but to get far enough through the text to find its
/// `requestID`, so that the error response reaches the client that waits for it.
///
/// | Code of the failure                          | Edit                       |
/// |----------------------------------------------|----------------------------|
/// | 5 (`\u` escape), 19 (ended too early)        | delete the byte            |
/// | 8 (a string was expected)                    | insert `"` before the byte |
/// | 18 (no `:` after a key)                      | insert `:` before the byte |
///
/// Deleting at the end of the text deletes nothing. Any other code throws a
/// `cmddistributor::RuntimeException` of status 5, "Invalid Command. Unable to parse command.".
std::string repairCommand(const foundation::json::ParserException& exception, std::string text);

}  // namespace yvm::JSClient
