#include "server/bayeux/JsonText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>
#include <vector>

namespace server::bayeux {

namespace {

constexpr std::array<char, 16> kHexDigits = {'0', '1', '2', '3', '4', '5', '6', '7',
                                             '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

void appendUnicodeEscape(std::string& out, unsigned unit) {
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kHexDigits[(unit >> shift) & 0xF];
    }
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Walks one JSON text. Each `take...` either moves behind what it names, or sets `failure` and
/// returns false.
class Walker {
  public:
    Walker(std::string_view text, std::size_t maxDepth, std::function<void(const JsonMember&)> onMember)
        : text_(text), maxDepth_(maxDepth), onMember_(std::move(onMember)) {}

    std::optional<JsonFault> failure() {
        takeText();
        return failure_;
    }

  private:
    /// What may come next at the current position.
    enum class Due { Value, ValueOrEnd, Key, KeyOrEnd, CommaOrEnd };

    bool takeText() {
        Due due = Due::Value;
        while (true) {
            skipWhiteSpace();
            if (open_.empty() && due == Due::CommaOrEnd) {
                return at_ == text_.size() || fail("more text behind the value");
            }
            if (at_ == text_.size()) {
                return fail("the text ends too early");
            }
            const char c = text_[at_];
            switch (due) {
                case Due::CommaOrEnd:
                    if (c == ',') {
                        ++at_;
                        due = open_.back() == '{' ? Due::Key : Due::Value;
                        break;
                    }
                    if (c != (open_.back() == '{' ? '}' : ']')) {
                        return fail("a comma or the end is expected");
                    }
                    close();
                    break;
                case Due::KeyOrEnd:
                    if (c == '}') {
                        close();
                        due = Due::CommaOrEnd;
                        break;
                    }
                    [[fallthrough]];
                case Due::Key:
                    if (!takeKey()) {
                        return false;
                    }
                    due = Due::Value;
                    break;
                case Due::ValueOrEnd:
                    if (c == ']') {
                        close();
                        due = Due::CommaOrEnd;
                        break;
                    }
                    [[fallthrough]];
                case Due::Value:
                    if (key_ && onMember_) {
                        onMember_({*key_, open_.size(), c == '"', c == 'n'});
                    }
                    key_.reset();
                    if (c == '{' || c == '[') {
                        if (open_.size() == maxDepth_) {
                            fail("nested more than " + std::to_string(maxDepth_) + " levels deep");
                            failure_->isDepth = true;
                            return false;
                        }
                        open_.push_back(c);
                        ++at_;
                        due = c == '{' ? Due::KeyOrEnd : Due::ValueOrEnd;
                        break;
                    }
                    if (!takeScalar(c)) {
                        return false;
                    }
                    due = Due::CommaOrEnd;
                    break;
            }
        }
    }

    void close() {
        open_.pop_back();
        ++at_;
    }

    void skipWhiteSpace() {
        while (at_ < text_.size() &&
               (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\r' || text_[at_] == '\t')) {
            ++at_;
        }
    }

    bool takeKey() {
        if (text_[at_] != '"') {
            return fail("a key in quotes is expected");
        }
        const std::size_t start = at_ + 1;
        if (!takeString()) {
            return false;
        }
        key_ = text_.substr(start, at_ - 1 - start);
        skipWhiteSpace();
        if (at_ == text_.size() || text_[at_] != ':') {
            return fail("a colon is expected");
        }
        ++at_;
        return true;
    }

    bool takeScalar(char first) {
        switch (first) {
            case '"':
                return takeString();
            case 't':
                return takeWord("true");
            case 'f':
                return takeWord("false");
            case 'n':
                return takeWord("null");
            default:
                return takeNumber();
        }
    }

    bool takeWord(std::string_view word) {
        if (text_.substr(at_, word.size()) != word) {
            return fail("a value is expected");
        }
        at_ += word.size();
        return true;
    }

    bool takeDigits() {
        const std::size_t start = at_;
        while (at_ < text_.size() && isDigit(text_[at_])) {
            ++at_;
        }
        return at_ != start || fail("a digit is expected");
    }

    bool takeNumber() {
        const bool negative = text_[at_] == '-';
        if (!negative && !isDigit(text_[at_])) {
            return fail("a value is expected");
        }
        at_ += negative ? 1 : 0;
        if (at_ < text_.size() && text_[at_] == '0') {
            ++at_;
        } else if (!takeDigits()) {
            return false;
        }
        if (at_ < text_.size() && text_[at_] == '.') {
            ++at_;
            if (!takeDigits()) {
                return false;
            }
        }
        if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
            ++at_;
            at_ += at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-') ? 1 : 0;
            return takeDigits();
        }
        return true;
    }

    bool takeString() {
        ++at_;
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '"') {
                ++at_;
                return true;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                return fail("a control character stands in a string");
            }
            if (c == '\\') {
                if (!takeEscape()) {
                    return false;
                }
            } else {
                ++at_;
            }
        }
        return fail("a string has no end");
    }

    bool takeEscape() {
        ++at_;
        if (at_ == text_.size()) {
            return fail("a string has no end");
        }
        const char c = text_[at_];
        if (std::string_view("\"\\/bfnrt").find(c) != std::string_view::npos) {
            ++at_;
            return true;
        }
        if (c != 'u') {
            return fail("an unknown escape stands in a string");
        }
        const unsigned unit = takeCodeUnit();
        if (unit >= 0xDC00 && unit <= 0xDFFF) {
            return fail("a lone low surrogate stands in a string");
        }
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (text_.substr(at_, 2) != "\\u") {
                return fail("a lone high surrogate stands in a string");
            }
            ++at_;
            const unsigned low = takeCodeUnit();
            if (low < 0xDC00 || low > 0xDFFF) {
                return fail("a lone high surrogate stands in a string");
            }
        }
        return !failure_;
    }

    /// Takes the "u" and four digits. Gives 0 after a failure.
    unsigned takeCodeUnit() {
        const std::string_view digits = text_.substr(at_ + 1, 4);
        unsigned unit = 0;
        for (const char c : digits) {
            if (!isHexDigit(c)) {
                break;
            }
            unit = unit * 16 + static_cast<unsigned>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
            ++at_;
        }
        ++at_;
        if (digits.size() < 4 || text_.data() + at_ != digits.data() + 4) {
            fail("an unknown escape stands in a string");
            return 0;
        }
        return unit;
    }

    bool fail(const std::string& what) {
        if (!failure_) {
            failure_ = JsonFault{what + " at byte " + std::to_string(at_)};
        }
        return false;
    }

    std::string_view text_;
    std::size_t maxDepth_;
    std::function<void(const JsonMember&)> onMember_;
    std::size_t at_ = 0;
    /// The key whose value is due.
    std::optional<std::string_view> key_;
    std::vector<char> open_;
    std::optional<JsonFault> failure_;
};

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
    const auto needsEscape = [](char c) {
        return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
    };
    out += '"';
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::ranges::find_if(text, needsEscape) - text.begin());
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) {
            break;
        }
        if (const char c = text.front(); static_cast<unsigned char>(c) < 0x20) {
            appendUnicodeEscape(out, static_cast<unsigned char>(c));
        } else {
            out += '\\';
            out += c;
        }
        text.remove_prefix(1);
    }
    out += '"';
}

std::string toAsciiJson(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    for (std::size_t i = 0; i < json.size();) {
        const auto lead = static_cast<unsigned char>(json[i]);
        if (lead < 0x80) {
            out += json[i++];
            continue;
        }
        const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        unsigned codePoint = lead & (0xFFU >> (length + 1));
        for (std::size_t k = 1; k < length && i + k < json.size(); ++k) {
            codePoint = (codePoint << 6) | (static_cast<unsigned char>(json[i + k]) & 0x3FU);
        }
        if (codePoint >= 0x10000) {
            appendUnicodeEscape(out, 0xD800 + ((codePoint - 0x10000) >> 10));
            appendUnicodeEscape(out, 0xDC00 + ((codePoint - 0x10000) & 0x3FF));
        } else {
            appendUnicodeEscape(out, codePoint);
        }
        i += length;
    }
    return out;
}

bool spells(std::string_view spelled, std::string_view name) {
    // Other escapes stand for characters that no name has.
    constexpr std::string_view kEscape = "\\u00";
    for (const char wanted : name) {
        if (spelled.starts_with(kEscape)) {
            const std::string_view digits = spelled.substr(kEscape.size(), 2);
            unsigned unit = 0;
            const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
            if (read.ptr != digits.data() + 2 || unit != static_cast<unsigned char>(wanted)) {
                return false;
            }
            spelled.remove_prefix(kEscape.size() + digits.size());
        } else if (spelled.starts_with(wanted)) {
            spelled.remove_prefix(1);
        } else {
            return false;
        }
    }
    return spelled.empty();
}

std::optional<JsonFault> whyNotStrictJson(std::string_view text, std::size_t maxDepth,
                                          std::function<void(const JsonMember&)> onMember) {
    return Walker(text, maxDepth, std::move(onMember)).failure();
}

}  // namespace server::bayeux
