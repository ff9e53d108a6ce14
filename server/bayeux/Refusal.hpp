#pragma once

#include "server/metrics/labels.hpp"

#include <string>
#include <string_view>

namespace server::bayeux {

/// The codes of the `error` field. Clients act on `advice` only; the codes are for people and logs.
enum class ErrorCode {
    VersionTooLow = 300,
    NoCommonTransport = 301,
    BadRequest = 400,
    Unauthorized = 401,
    UnknownClient = 402,
    Forbidden = 403,
    UnknownChannel = 404,
    InvalidChannel = 405,
    TooLarge = 413,
    Unavailable = 503,
};

/// What a refusal with this code is counted under, unless it says so itself: the limits do.
metrics::RefusalReason usualReason(ErrorCode code);

/// Why a message was not accepted.
struct Refusal {
    ErrorCode code;
    std::string text;
    metrics::RefusalReason reason = usualReason(code);
};

/// Text of a client, made fit for logs and errors: at most 100 characters, "..." behind what was cut, and an
/// underscore for each character that `errorField` would replace.
std::string printable(std::string_view text);

/// The value of the `error` field, "code::text", as ASCII that needs no JSON escaping.
///
/// One stock client parses the field with a grammar of letters, digits, blank and `-_!~()$@/*.`, and
/// loses the code when anything else occurs. So every other character of the text, which may quote
/// what a client sent, becomes an underscore.
std::string errorField(const Refusal& refusal);

}  // namespace server::bayeux
