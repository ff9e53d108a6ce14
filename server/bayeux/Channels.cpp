#include "server/bayeux/Channels.hpp"

#include <algorithm>

namespace server::bayeux {

namespace {

constexpr std::string_view kYvmPrefix = "/yvm/";

bool isAlphanumeric(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isSegmentCharacter(char c) {
    return isAlphanumeric(c) || std::string_view("-_!~()$@").find(c) != std::string_view::npos;
}

}  // namespace

bool isChannelName(std::string_view name) noexcept {
    if (name.empty() || name.front() != '/' || name.back() == '/') {
        return false;
    }
    for (std::size_t i = 1; i < name.size(); ++i) {
        const bool startsSegment = name[i - 1] == '/';
        if (name[i] == '/' ? startsSegment : !isSegmentCharacter(name[i])) {
            return false;
        }
    }
    return true;
}

bool isSubscribable(std::string_view name) noexcept {
    for (const std::string_view wildcard : {"/**", "/*"}) {
        if (name.ends_with(wildcard)) {
            name.remove_suffix(wildcard.size());
            return name.empty() || isChannelName(name);
        }
    }
    return isChannelName(name);
}

bool isMetaChannel(std::string_view name) noexcept {
    return name.starts_with("/meta/");
}

bool isServiceChannel(std::string_view name) noexcept {
    return name.starts_with("/service/");
}

bool isRequestChannel(std::string_view name) noexcept {
    return name.ends_with("/request");
}

std::optional<yvm::OutputGate::Way> wayOfText(std::string_view channel) noexcept {
    if (channel.ends_with("/yvmSinks/output") || channel == kSinksResponse) {
        return yvm::OutputGate::Way::ClientWideSinks;
    }
    // Behind the prefix itself in r22a0.
    const auto parts = asClientChannel(channel);
    const std::string_view rest = parts ? parts->rest : std::string_view();
    if (rest == "/text/output" || rest == "/text/error" || rest == "/output" || rest == "/error" ||
        rest == "/event/fireEvent") {
        return yvm::OutputGate::Way::OwnStreams;
    }
    return std::nullopt;
}

std::optional<ClientChannel> asClientChannel(std::string_view name) noexcept {
    if (!name.starts_with(kYvmPrefix)) {
        return std::nullopt;
    }
    const std::size_t slash = name.find('/', kYvmPrefix.size());
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    const ClientChannel parts{name.substr(kYvmPrefix.size(), slash - kYvmPrefix.size()), name.substr(slash)};
    if (!isClientIdentifier(parts.client)) {
        return std::nullopt;
    }
    return parts;
}

bool isClientIdentifier(std::string_view identifier) noexcept {
    return !identifier.empty() && identifier.size() <= 64 && identifier != "attach" &&
           identifier != "detach" && identifier != "sinks" &&
           std::all_of(identifier.begin(), identifier.end(),
                       [](char c) { return isAlphanumeric(c) || c == '_' || c == '-'; });
}

}  // namespace server::bayeux
