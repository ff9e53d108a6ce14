// An iterative parser: one loop over a stack of open containers, steered by the first byte of each token.
//
// The grammar is specified by alternatives: a value is a string, number, object, array, boolean or null,
// tried in this order from one start, and of the failures the one that got furthest counts, the earlier
// alternative on a tie. First bytes tell the alternatives apart, so this comes down to two rules:
// - a string, object or array that has been opened fails where its content fails, which is always further;
// - everything else fails at the start of the value, where the string comes first: expectedString.
// The end of the text is looked for before each token, so a text that stops short gives unexpectedEnd at its
// length wherever a token is due, except inside of a string.

#include "foundation/json/Parser.hpp"

#include "foundation/json/ParserException.hpp"
#include "foundation/json/detail/number.hpp"
#include "foundation/json/detail/text.hpp"

#include <iterator>
#include <limits>
#include <utility>

namespace foundation::json {

namespace {

enum class IntegerType { none, signed64, unsigned64 };

/// The storage that the string in a `ywtype` asks for. The width is not kept.
IntegerType integerTypeOf(std::string_view name) noexcept {
    if (name == "int64" || name == "int32" || name == "int16" || name == "int8") {
        return IntegerType::signed64;
    }
    if (name == "uint64" || name == "uint32" || name == "uint16" || name == "uint8") {
        return IntegerType::unsigned64;
    }
    return IntegerType::none;
}

/// An object that has been opened and not yet closed.
struct OpenObject {
    Object members;
    /// Of the member whose value is being parsed.
    std::string key;
    /// Asked for by the first `ywtype`; none also before one was met.
    IntegerType integerType = IntegerType::none;
    /// Where the value of the first `ywdata` starts, if that came before any `ywtype`.
    const char* untypedData = nullptr;
};

class Parser {
  public:
    Parser(const char* begin, const char* end) : begin_(begin), position_(begin), end_(end) {
        // Enough for most requests; growing from nothing costs them a tenth of their time.
        values_.reserve(16);
        frames_.reserve(8);
        objects_.reserve(4);
    }

    JsonParseResult run(Value& out) {
        ParseResult result = beginValue();
        while (result == ParseResult::success && !frames_.empty()) {
            result = frames_.back() == objectFrame ? continueObject() : continueArray();
        }
        if (result == ParseResult::success) {
            out = std::move(values_.back());
        }
        return {result, static_cast<std::size_t>(position_ - begin_)};
    }

  private:
    // Each function below leaves `position_` at the byte at fault when it fails.

    /// At the start of a value: finishes a scalar or an empty container onto `values_`, or opens containers
    /// down to the first scalar or empty one and finishes that.
    ParseResult beginValue() {
        for (;;) {
            if (position_ == end_) {
                return ParseResult::unexpectedEnd;
            }
            bool opened = false;
            ParseResult result = ParseResult::success;
            switch (*position_) {
                case '"':
                    return readText();
                case '[':
                    result = openArray(opened);
                    break;
                case '{':
                    result = openObject(opened);
                    break;
                case 't':
                    return readWord("true", true);
                case 'f':
                    return readWord("false", false);
                case 'n':
                    return readWord("null", Null());
                default:
                    return readNumber();
            }
            if (result != ParseResult::success || !opened) {
                return result;
            }
        }
    }

    /// The end of the text, or the first byte behind white space.
    ParseResult nextToken() {
        position_ = detail::skipWhiteSpace(position_, end_);
        return position_ == end_ ? ParseResult::unexpectedEnd : ParseResult::success;
    }

    ParseResult readText() {
        std::string text;
        const ParseResult result = detail::readString(position_, end_, text);
        values_.emplace_back(std::move(text));
        return result;
    }

    ParseResult readNumber() {
        const char* const start = position_;
        double number = 0;
        const ParseResult result = detail::readNumber(position_, end_, number);
        if (result != ParseResult::success) {
            // A failed number consumes nothing. Without this line it would fail where its digit is missing.
            position_ = start;
            return position_ == start ? ParseResult::expectedString : result;
        }
        values_.emplace_back(number);
        return ParseResult::success;
    }

    template <typename T>
    ParseResult readWord(std::string_view word, T value) {
        if (!std::string_view(position_, end_).starts_with(word)) {
            return ParseResult::expectedString;
        }
        position_ += word.size();
        values_.emplace_back(value);
        return ParseResult::success;
    }

    /// Stops at the first element if there is one.
    ParseResult openArray(bool& opened) {
        ++position_;
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        if (*position_ == ']') {
            ++position_;
            values_.emplace_back(Array());
            return ParseResult::success;
        }
        opened = true;
        frames_.push_back(values_.size());
        return ParseResult::success;
    }

    /// Stops at the value of the first member, unless that is finished already.
    ParseResult openObject(bool& opened) {
        ++position_;
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        if (*position_ == '}') {
            ++position_;
            values_.emplace_back(Object());
            return ParseResult::success;
        }
        frames_.push_back(objectFrame);
        objects_.emplace_back();
        return readKey(opened);
    }

    /// At the token where a key is due: reads the key and the colon. Stops at the value, or finishes it onto
    /// `values_` if it is a typed integer array; `atValue` tells which.
    ParseResult readKey(bool& atValue) {
        OpenObject& object = objects_.back();
        if (*position_ != '"') {
            return ParseResult::expectedString;
        }
        if (const ParseResult result = detail::readString(position_, end_, object.key);
            result != ParseResult::success) {
            return result;
        }
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        if (*position_ != ':') {
            return ParseResult::expectedColon;
        }
        ++position_;
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        atValue = true;
        if (object.key == dataKey) {
            if (object.integerType != IntegerType::none) {
                atValue = false;
                return readIntegerArray(object.integerType);
            }
            if (!object.members.contains(dataKey)) {
                object.untypedData = position_;
            }
        }
        return ParseResult::success;
    }

    /// Behind an element, which is the last of `values_`.
    ParseResult continueArray() {
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        if (*position_ == ',') {
            ++position_;
            position_ = detail::skipWhiteSpace(position_, end_);
            return beginValue();
        }
        if (*position_ != ']') {
            return ParseResult::expectedCommaOrBracket;
        }
        ++position_;
        const auto first = values_.begin() + static_cast<std::ptrdiff_t>(frames_.back());
        Value array(Array(std::make_move_iterator(first), std::make_move_iterator(values_.end())));
        values_.erase(first, values_.end());
        values_.push_back(std::move(array));
        frames_.pop_back();
        return ParseResult::success;
    }

    /// Behind the value of a member, which is the last of `values_`.
    ParseResult continueObject() {
        if (const ParseResult result = storeMember(); result != ParseResult::success) {
            return result;
        }
        if (const ParseResult result = nextToken(); result != ParseResult::success) {
            return result;
        }
        if (*position_ == ',') {
            ++position_;
            if (const ParseResult result = nextToken(); result != ParseResult::success) {
                return result;
            }
            bool atValue = false;
            const ParseResult result = readKey(atValue);
            return result == ParseResult::success && atValue ? beginValue() : result;
        }
        if (*position_ != '}') {
            return ParseResult::expectedCommaOrBrace;
        }
        ++position_;
        values_.emplace_back(std::move(objects_.back().members));
        objects_.pop_back();
        frames_.pop_back();
        return ParseResult::success;
    }

    /// Takes the last of `values_` as the value of the open member, unless the key has one.
    ParseResult storeMember() {
        OpenObject& object = objects_.back();
        Value value = std::move(values_.back());
        values_.pop_back();
        if (object.key == typeKey) {
            const std::string& type = value.as<std::string>();
            if (!object.members.contains(typeKey)) {
                object.integerType = integerTypeOf(type);
                if (const ParseResult result = retypeData(object); result != ParseResult::success) {
                    return result;
                }
            }
        }
        // Programs often write their keys in order, and then each belongs at the end.
        object.members.try_emplace(object.members.end(), std::move(object.key), std::move(value));
        return ParseResult::success;
    }

    /// Parses a `ywdata` that came before its `ywtype` once more if that turned out to name integers.
    ParseResult retypeData(OpenObject& object) {
        if (object.integerType == IntegerType::none || object.untypedData == nullptr) {
            return ParseResult::success;
        }
        const char* const behindType = std::exchange(position_, object.untypedData);
        if (const ParseResult result = readIntegerArray(object.integerType); result != ParseResult::success) {
            return result;
        }
        position_ = behindType;
        object.members.find(dataKey)->second = std::move(values_.back());
        values_.pop_back();
        return ParseResult::success;
    }

    /// At the value of a `ywdata`: finishes an array of integers onto `values_`.
    ParseResult readIntegerArray(IntegerType type) {
        if (*position_ != '[') {
            return ParseResult::expectedArray;
        }
        ++position_;
        Array integers;
        ParseResult result = nextToken();
        if (result == ParseResult::success && *position_ != ']') {
            result = readIntegers(type, integers);
        }
        if (result != ParseResult::success) {
            return result;
        }
        ++position_;
        values_.emplace_back(std::move(integers));
        return ParseResult::success;
    }

    /// At the first element: stops at the closing bracket.
    ParseResult readIntegers(IntegerType type, Array& integers) {
        for (;;) {
            const char* const element = position_;
            const bool negative = *position_ == '-';
            position_ += negative;
            if (position_ == end_ || !isDigit(*position_)) {
                position_ = element;
                return ParseResult::invalidIntegerElement;
            }
            const std::uint64_t magnitude = readMagnitude();
            if (position_ != end_ && std::string_view(".eE\"{").find(*position_) != std::string_view::npos) {
                return ParseResult::invalidIntegerElement;
            }
            integers.push_back(type == IntegerType::signed64 ? toSigned(negative, magnitude)
                                                             : Value(negative ? 0 : magnitude));
            if (const ParseResult result = nextToken(); result != ParseResult::success) {
                return result;
            }
            if (*position_ == ']') {
                return ParseResult::success;
            }
            if (*position_ != ',') {
                return ParseResult::expectedCommaOrBracket;
            }
            ++position_;
            if (const ParseResult result = nextToken(); result != ParseResult::success) {
                return result;
            }
        }
    }

    /// A zero, which ends the number, or a run of digits; saturates.
    std::uint64_t readMagnitude() {
        constexpr std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
        if (*position_ == '0') {
            ++position_;
            return 0;
        }
        std::uint64_t magnitude = 0;
        for (; position_ != end_ && isDigit(*position_); ++position_) {
            const auto digit = static_cast<std::uint64_t>(*position_ - '0');
            magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
        }
        return magnitude;
    }

    static Value toSigned(bool negative, std::uint64_t magnitude) {
        constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
        constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
        if (magnitude > static_cast<std::uint64_t>(most)) {
            return negative ? least : most;
        }
        const auto value = static_cast<std::int64_t>(magnitude);
        return negative ? -value : value;
    }

    static bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

    /// The frame of an object; that of an array is the number of values before its first element.
    static constexpr std::size_t objectFrame = std::numeric_limits<std::size_t>::max();
    static inline const std::string typeKey = "ywtype";
    static inline const std::string dataKey = "ywdata";

    const char* const begin_;
    const char* position_;
    const char* const end_;
    /// Finished values whose container is still open, outermost first.
    std::vector<Value> values_;
    /// The open containers, outermost first.
    std::vector<std::size_t> frames_;
    /// The objects among them.
    std::vector<OpenObject> objects_;
};

}  // namespace

JsonParseResult parse(const char* begin, const char* end, Value& out) {
    out = Value();
    return Parser(begin, end).run(out);
}

Value parseText(std::string_view text) {
    Value value;
    const JsonParseResult result = parse(text.data(), text.data() + text.size(), value);
    if (!result.ok()) {
        throw ParserException(result.code, get_parse_result_description(result.code), text, result.offset);
    }
    if (result.offset != text.size()) {
        throw ParserException(ParseResult::success, "Parse incomplete", text, result.offset);
    }
    return value;
}

}  // namespace foundation::json
