#include "foundation/json/ParserException.hpp"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace foundation::json {

namespace {

/// Bytes of context on each side of the error.
constexpr std::size_t contextReach = 80;

}  // namespace

ParserException::ParserException(ParseResult code, std::string_view description, std::string_view text,
                                 std::size_t offset)
    : ParserException(locate(code, text, offset), description) {}

ParserException::ParserException(Place place, std::string_view description)
    : std::runtime_error(describe(place, description)), place_(std::move(place)) {}

ParserException::~ParserException() = default;

ParserException::Place ParserException::locate(ParseResult code, std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const std::size_t lineFeed = before.rfind('\n');
    const std::size_t lineStart = lineFeed == std::string_view::npos ? 0 : lineFeed + 1;
    const std::size_t column = offset - lineStart;
    const std::size_t caret = std::min(column, contextReach);
    const std::string_view rest = text.substr(offset, contextReach);
    const std::string_view after = rest.substr(0, rest.find('\n'));
    return {code,
            offset,
            1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')),
            column,
            std::string(before.substr(offset - caret)).append(after),
            caret};
}

std::string ParserException::describe(const Place& place, std::string_view description) {
    char code[16];
    std::snprintf(code, sizeof code, "%04d", static_cast<int>(place.code));
    std::string text = "JSON ParserException (E";
    text.append(code).append("): ").append(description);
    text.append(" (Line ").append(std::to_string(place.line));
    text.append(", Column ").append(std::to_string(place.column)).append(")\n\t");
    text.append(place.context).append("\n\t").append(place.caret, ' ').append("^");
    return text;
}

}  // namespace foundation::json
