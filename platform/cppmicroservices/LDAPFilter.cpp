#include "cppmicroservices/LDAPFilter.hpp"

#include "cppmicroservices/detail/asciiCase.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace cppmicroservices {
namespace {

/// Whether `text` is the pieces in their order, with any text between them.
bool matchesPattern(std::string_view text, const std::vector<std::string>& pieces) {
    const std::string& first = pieces.front();
    const std::string& last = pieces.back();
    if (pieces.size() == 1) {
        return text == first;
    }
    if (text.size() < first.size() + last.size() || !text.starts_with(first) || !text.ends_with(last)) {
        return false;
    }
    text = text.substr(first.size(), text.size() - first.size() - last.size());
    // The leftmost place of each piece leaves the most room for the next.
    for (auto piece = pieces.begin() + 1; piece != pieces.end() - 1; ++piece) {
        const auto at = text.find(*piece);
        if (at == std::string_view::npos) {
            return false;
        }
        text.remove_prefix(at + piece->size());
    }
    return true;
}

std::string withoutCaseAndBlanks(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (character != ' ') {
            result += detail::toLower(character);
        }
    }
    return result;
}

std::optional<double> readNumber(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

/// The number in `value`, if it holds one. 64-bit integers beyond 2^53 are compared rounded.
std::optional<double> numberIn(const Any& value) {
    if (const auto* real = value.getIf<double>()) {
        return *real;
    }
    if (const auto* single = value.getIf<float>()) {
        return *single;
    }
    if (const auto* integer = value.getIf<std::int64_t>()) {
        return static_cast<double>(*integer);
    }
    if (const auto* integer = value.getIf<std::uint64_t>()) {
        return static_cast<double>(*integer);
    }
    return std::nullopt;
}

}  // namespace

struct LDAPFilter::Node {
    enum class Kind { all, any, none, present, equal, approximate, atLeast, atMost };

    Kind kind = Kind::all;
    std::vector<Node> children = {};  ///< of all, any and none
    std::string name = {};
    /// The value, cut at its bare asterisks. Only `equal` may have more than one piece.
    std::vector<std::string> pieces = {};

    bool matches(const ServiceProperties& properties) const {
        const auto childMatches = [&properties](const Node& child) { return child.matches(properties); };
        switch (kind) {
            case Kind::all:
                return std::ranges::all_of(children, childMatches);
            case Kind::any:
                return std::ranges::any_of(children, childMatches);
            case Kind::none:
                return std::ranges::none_of(children, childMatches);
            default: {
                const Any* value = findProperty(properties, name);
                return value != nullptr && (kind == Kind::present || matchesValue(*value));
            }
        }
    }

  private:
    bool matchesValue(const Any& value) const {
        if (const auto* elements = value.getIf<foundation::json::Array>()) {
            return std::ranges::any_of(*elements,
                                       [this](const Any& element) { return matchesValue(element); });
        }
        if (const auto* text = value.getIf<std::string>()) {
            return matchesText(*text);
        }
        if (const auto* boolean = value.getIf<bool>()) {
            const bool equality = kind == Kind::equal || kind == Kind::approximate;
            return equality && pieces.size() == 1 &&
                   detail::equalIgnoringCase(pieces.front(), *boolean ? "true" : "false");
        }
        if (const auto number = numberIn(value); number && pieces.size() == 1) {
            const auto wanted = readNumber(pieces.front());
            return wanted && matchesNumber(*number, *wanted);
        }
        return false;
    }

    bool matchesText(std::string_view text) const {
        switch (kind) {
            case Kind::approximate:
                return withoutCaseAndBlanks(text) == withoutCaseAndBlanks(pieces.front());
            case Kind::atLeast:
                return text >= pieces.front();
            case Kind::atMost:
                return text <= pieces.front();
            default:
                return matchesPattern(text, pieces);
        }
    }

    bool matchesNumber(double number, double wanted) const {
        switch (kind) {
            case Kind::atLeast:
                return number >= wanted;
            case Kind::atMost:
                return number <= wanted;
            default:
                return number == wanted;
        }
    }
};

/// Reads a filter by recursive descent.
class LDAPParser {
  public:
    explicit LDAPParser(const std::string& text) : text_(text) {}

    LDAPFilter::Node parse() {
        auto node = parseFilter();
        skipBlanks();
        if (at_ != text_.size()) {
            fail("the text goes on behind the filter");
        }
        return node;
    }

  private:
    using Node = LDAPFilter::Node;

    Node parseFilter() {
        skipBlanks();
        expect('(');
        skipBlanks();
        Node node;
        switch (peek()) {
            case '&':
                node = parseComposite(Node::Kind::all);
                break;
            case '|':
                node = parseComposite(Node::Kind::any);
                break;
            case '!':
                ++at_;
                node.kind = Node::Kind::none;
                node.children.push_back(parseFilter());
                break;
            default:
                node = parseComparison();
        }
        skipBlanks();
        expect(')');
        return node;
    }

    Node parseComposite(Node::Kind kind) {
        ++at_;
        Node node;
        node.kind = kind;
        do {
            node.children.push_back(parseFilter());
            skipBlanks();
        } while (peek() == '(');
        return node;
    }

    Node parseComparison() {
        Node node;
        const auto nameEnd = std::min(text_.find_first_of("=~<>()", at_), text_.size());
        node.name = text_.substr(at_, nameEnd - at_);
        node.name.erase(node.name.find_last_not_of(' ') + 1);
        if (node.name.empty()) {
            fail("a property's name is expected");
        }
        at_ = nameEnd;
        node.kind = parseOperator();
        node.pieces = parseValue(node.kind == Node::Kind::equal);
        if (node.pieces == std::vector<std::string>{"", ""}) {
            node.kind = Node::Kind::present;
        }
        return node;
    }

    Node::Kind parseOperator() {
        Node::Kind kind = Node::Kind::equal;
        switch (peek()) {
            case '~':
                kind = Node::Kind::approximate;
                break;
            case '>':
                kind = Node::Kind::atLeast;
                break;
            case '<':
                kind = Node::Kind::atMost;
                break;
            default:
                break;
        }
        if (kind != Node::Kind::equal) {
            ++at_;
        }
        if (peek() != '=') {
            fail("one of = ~= >= <= is expected");
        }
        ++at_;
        return kind;
    }

    std::vector<std::string> parseValue(bool wildcards) {
        std::vector<std::string> pieces(1);
        for (; peek() != ')'; ++at_) {
            switch (peek()) {
                case '\0':
                    if (at_ == text_.size()) {
                        fail("')' is missing");
                    }
                    pieces.back() += '\0';
                    break;
                case '(':
                    fail("'(' must be escaped by a backslash in a value");
                case '*':
                    if (wildcards) {
                        pieces.emplace_back();
                    } else {
                        pieces.back() += '*';
                    }
                    break;
                case '\\':
                    ++at_;
                    if (at_ == text_.size()) {
                        fail("a character is expected behind the backslash");
                    }
                    pieces.back() += text_[at_];
                    break;
                default:
                    pieces.back() += peek();
            }
        }
        return pieces;
    }

    /// The character at this place; NUL at the end.
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    void skipBlanks() { at_ = std::min(text_.find_first_not_of(' ', at_), text_.size()); }

    void expect(char character) {
        if (peek() != character) {
            fail(std::string("'") + character + "' is expected");
        }
        ++at_;
    }

    [[noreturn]] void fail(const std::string& reason) const {
        throw std::invalid_argument("bad filter \"" + text_ + "\" at offset " + std::to_string(at_) + ": " +
                                    reason);
    }

    const std::string& text_;
    std::size_t at_ = 0;
};

LDAPFilter::LDAPFilter(const std::string& text) : text_(text) {
    if (!text.empty()) {
        root_ = std::make_shared<const Node>(LDAPParser(text_).parse());
    }
}

bool LDAPFilter::Match(const ServiceProperties& properties) const {
    return root_ == nullptr || root_->matches(properties);
}

}  // namespace cppmicroservices
