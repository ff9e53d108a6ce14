#pragma once

#include <string_view>

namespace connector::message_service::detail {

enum class PatternKind {
    exact,        ///< the whole name
    children,     ///< "prefix/*": one further segment
    descendants,  ///< "prefix/**": one further segment or more
};

struct Pattern {
    PatternKind kind;
    /// The name itself, or what stands before the slash of the star.
    std::string_view prefix;
};

/// Reads a channel name or pattern; the result refers into `text`.
constexpr Pattern parsePattern(std::string_view text) noexcept {
    if (text.ends_with("/**")) {
        return {PatternKind::descendants, text.substr(0, text.size() - 3)};
    }
    if (text.ends_with("/*")) {
        return {PatternKind::children, text.substr(0, text.size() - 2)};
    }
    return {PatternKind::exact, text};
}

/// The part of `channel` behind "`prefix`/"; empty where it does not lie below the prefix.
constexpr std::string_view below(std::string_view prefix, std::string_view channel) noexcept {
    const bool isBelow =
        channel.size() > prefix.size() && channel.starts_with(prefix) && channel[prefix.size()] == '/';
    return isBelow ? channel.substr(prefix.size() + 1) : std::string_view();
}

/// The lane of a publisher that names none: the first two segments ("/yvm/attach").
constexpr std::string_view defaultLane(std::string_view channel) noexcept {
    const auto second = channel.find('/', 1);
    return second == std::string_view::npos ? channel : channel.substr(0, channel.find('/', second + 1));
}

}  // namespace connector::message_service::detail
