#include "server/bayeux/Refusal.hpp"

#include <algorithm>

namespace server::bayeux {

namespace {

bool isInErrorGrammar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view(" -_!~()$@/*.").find(c) != std::string_view::npos;
}

/// What is quoted of a client's text.
constexpr std::size_t kMaxQuoted = 100;

}  // namespace

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
