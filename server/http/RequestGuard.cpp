#include "server/http/RequestGuard.hpp"

#include "server/bayeux/Secrets.hpp"

#include <algorithm>
#include <charconv>

namespace server::http {

namespace {

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16).ptr == text.data() + i + 3) {
            decoded += static_cast<char>(value);
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

}  // namespace

bool RequestGuard::allowsOrigin(std::string_view origin, std::string_view host) const {
    if (origin.empty()) {
        return true;
    }
    const auto& allowed = options_.allowedOrigins;
    if (std::find(allowed.begin(), allowed.end(), origin) != allowed.end()) {
        return true;
    }
    const std::size_t scheme = origin.find("://");
    return scheme != std::string_view::npos && origin.substr(scheme + 3) == host && allowsHost(host);
}

RequestGuard::Token RequestGuard::tokenOf(std::string_view target, std::string_view authorization) const {
    if (!options_.token) {
        return Token::Right;
    }
    Token state = Token::Absent;
    const auto look = [&](std::string_view token) {
        if (state != Token::Wrong) {
            state = isRight(token) ? Token::Right : Token::Wrong;
        }
    };
    if (const auto inQuery = queryParameter(target, "token")) {
        look(*inQuery);
    }
    if (!authorization.empty()) {
        constexpr std::string_view kScheme = "Bearer ";
        look(authorization.starts_with(kScheme) ? authorization.substr(kScheme.size()) : std::string_view());
    }
    return state;
}

bool RequestGuard::isRight(std::string_view token) const {
    return !options_.token || bayeux::equalInConstantTime(token, *options_.token);
}

std::optional<std::string> queryParameter(std::string_view target, std::string_view name) {
    const std::size_t question = target.find('?');
    if (question == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view query = target.substr(question + 1);
    while (!query.empty()) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        const std::size_t equals = parameter.find('=');
        if (parameter.substr(0, equals) == name) {
            return percentDecoded(equals == std::string_view::npos ? std::string_view()
                                                                   : parameter.substr(equals + 1));
        }
        query.remove_prefix(std::min(parameter.size() + 1, query.size()));
    }
    return std::nullopt;
}

bool isLoopbackHost(std::string_view host) {
    if (host.starts_with('[')) {
        return host.substr(0, host.find(']') + 1) == "[::1]";
    }
    if (host == "::1") {
        return true;
    }
    const std::string_view name = host.substr(0, host.find(':'));
    // A name such as 127.evil.org is none of the network 127.0.0.0/8.
    return name == "localhost" ||
           (name.starts_with("127.") && name.find_first_not_of("0123456789.") == std::string_view::npos);
}

}  // namespace server::http
