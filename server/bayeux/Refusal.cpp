#include "server/bayeux/Refusal.hpp"

namespace server::bayeux {

namespace {

bool isInErrorGrammar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view(" -_!~()$@/*.").find(c) != std::string_view::npos;
}

/// What is quoted of a client's text.
constexpr std::size_t kMaxQuoted = 100;

}  // namespace

metrics::RefusalReason usualReason(ErrorCode code) {
    using metrics::RefusalReason;
    switch (code) {
        case ErrorCode::VersionTooLow:
            return RefusalReason::Version;
        case ErrorCode::NoCommonTransport:
            return RefusalReason::ConnectionType;
        case ErrorCode::BadRequest:
            return RefusalReason::BadRequest;
        case ErrorCode::Unauthorized:
            return RefusalReason::Unauthorized;
        case ErrorCode::UnknownClient:
            return RefusalReason::UnknownSession;
        case ErrorCode::Forbidden:
            return RefusalReason::Forbidden;
        case ErrorCode::UnknownChannel:
            return RefusalReason::UnknownChannel;
        case ErrorCode::InvalidChannel:
            return RefusalReason::InvalidChannel;
        case ErrorCode::TooLarge:
            return RefusalReason::MessageBytes;
        case ErrorCode::Unavailable:
            break;
    }
    return RefusalReason::Unavailable;
}

std::string printable(std::string_view text) {
    std::string result(text.substr(0, kMaxQuoted));
    std::replace_if(result.begin(), result.end(), [](char c) { return !isInErrorGrammar(c); }, '_');
    return text.size() > kMaxQuoted ? result + "..." : result;
}

std::string errorField(const Refusal& refusal) {
    std::string field = std::to_string(static_cast<int>(refusal.code)) + "::" + refusal.text;
    const auto text = field.begin() + static_cast<std::ptrdiff_t>(field.find("::") + 2);
    std::replace_if(text, field.end(), [](char c) { return !isInErrorGrammar(c); }, '_');
    return field;
}

}  // namespace server::bayeux
