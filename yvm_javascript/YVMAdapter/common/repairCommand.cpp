#include "common/repairCommand.hpp"

#include "cmddistributor/RuntimeException.hpp"

namespace yvm::JSClient {

std::string repairCommand(const foundation::json::ParserException& exception, std::string text) {
    using foundation::json::ParseResult;
    switch (exception.code()) {
        case ParseResult::invalidUnicodeEscape:
        case ParseResult::unexpectedEnd:
            return text.erase(exception.offset(), 1);
        case ParseResult::expectedString:
            return text.insert(exception.offset(), 1, '"');
        case ParseResult::expectedColon:
            return text.insert(exception.offset(), 1, ':');
        default:
            throw cmddistributor::RuntimeException(ylutil::cmddistributor::inExecutionStatus::RequestInvalid,
                                                   std::string("Invalid Command. Unable to parse command."));
    }
}

}  // namespace yvm::JSClient
