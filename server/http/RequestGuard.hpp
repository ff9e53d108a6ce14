#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server::http {

/// Whether `host`, with or without a port, names this machine's loopback interface.
bool isLoopbackHost(std::string_view host);

/// Decides by the headers of a request or upgrade whether it may come in: the origin of a page, and
/// the token.
class RequestGuard {
  public:
    struct Options {
        /// What every client must know, or nothing when none is asked for.
        std::optional<std::string> token;
        /// Origins other than the server's own whose pages may connect, such as "https://example.org".
        std::vector<std::string> allowedOrigins;
    };

    enum class Token { Absent, Right, Wrong };

    explicit RequestGuard(Options options) : options_(std::move(options)) {}

    /// Whether a page of `origin` may talk to this server, which it calls `host`. No origin at all is
    /// no page and may pass.
    bool allowsOrigin(std::string_view origin, std::string_view host) const;

    /// Whether a request may call this server `host`. Where no token is asked for it must be a loopback name,
    /// or a page under a name that was rebound to this machine would be of the same origin.
    bool allowsHost(std::string_view host) const { return options_.token || isLoopbackHost(host); }

    /// The token in the query of `target` ("?token=...") or in "Authorization: Bearer ...". When both
    /// are given, either one that is wrong counts. Where no token is asked for all are right.
    Token tokenOf(std::string_view target, std::string_view authorization) const;

    bool isRight(std::string_view token) const;

  private:
    const Options options_;
};

/// The value of the query parameter `name` in the target of a request, percent-decoded.
std::optional<std::string> queryParameter(std::string_view target, std::string_view name);

}  // namespace server::http
