#pragma once

#include "yvm/OutputGate.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace server::bayeux {

/// Whether `name` is a channel: "/" and a segment, repeated. A segment is one or more of letters,
/// digits and `-_!~()$@`. Nothing else is ever delivered, since a stock client dies on other names.
bool isChannelName(std::string_view name) noexcept;

/// Whether `name` is a channel, or one that ends in the segment "*" or "**".
bool isSubscribable(std::string_view name) noexcept;

bool isMetaChannel(std::string_view name) noexcept;
bool isServiceChannel(std::string_view name) noexcept;

/// Whether clients talk to the module here: the last segment is "request".
bool isRequestChannel(std::string_view name) noexcept;

inline constexpr std::string_view kAttachRequest = "/yvm/attach/request";
inline constexpr std::string_view kAttachResponse = "/yvm/attach/response";
inline constexpr std::string_view kDetachRequest = "/yvm/detach/request";
inline constexpr std::string_view kDetachResponse = "/yvm/detach/response";

/// The sinks of r22a0, one pair for all of its clients: what installs them, and the text that they take.
inline constexpr std::string_view kSinksSet = "/yvm/sinks/set";
inline constexpr std::string_view kSinksResponse = "/yvm/sinks/response";

/// Which way a text of the engine went that is published on this channel; nothing for other channels. An
/// event counts as text of the command that caused it: images come in floods, too.
std::optional<yvm::OutputGate::Way> wayOfText(std::string_view channel) noexcept;

/// A name of the form "/yvm/<client>/<rest>", taken apart.
struct ClientChannel {
    std::string_view client;
    /// What stands behind the client's prefix, with its slash.
    std::string_view rest;
};

/// The client that owns the channel or pattern `name`, or nothing when it is of another form.
std::optional<ClientChannel> asClientChannel(std::string_view name) noexcept;

/// Whether an attach may use `identifier`: `[A-Za-z0-9_-]{1,64}`, and none of the fixed names.
bool isClientIdentifier(std::string_view identifier) noexcept;

}  // namespace server::bayeux
