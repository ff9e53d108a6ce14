#include "fl/i18n/ustring.hpp"
#include "foundation/json/ParserException.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/json/detail/number.hpp"
#include "foundation/json/detail/text.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <complex>
#include <concepts>
#include <cstring>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace foundation::yorlabdata::json {

namespace {

using foundation::json::ParseResult;
using foundation::json::ParserException;
namespace lexer = foundation::json::detail;

/// Lists and records are read by recursion.
constexpr std::size_t maxDepth = 512;

/// What stands in `ywtype`, for the texts of errors.
constexpr std::string_view acceptedTypes =
    "float64, float32, int8, int16, int32, int64, uint8, uint16, uint32, uint64, bool, complex128, "
    "complex64, text, "
    "list or record";

/// Reads one value from its text. Built for one text.
class Reader {
  public:
    Reader(std::string_view text, const ArrayFactory& factory)
        : text_(text), position_(text.data()), end_(text.data() + text.size()), factory_(factory) {}

    Array readAll() {
        skipToToken();
        Array array = readValue();
        position_ = lexer::skipWhiteSpace(position_, end_);
        if (position_ != end_) {
            throw ParserException(ParseResult::success, "Parse incomplete", text_, offset());
        }
        return array;
    }

  private:
    /// The members of a long form as far as they have been met.
    struct LongForm {
        std::optional<Kind> kind;
        std::optional<Shape> shape;
        /// Where `ywdata` starts, if it could not be read when it was met.
        const char* deferredData = nullptr;
        std::optional<Array> array;
    };

    // Each reads the value at `position_`, a token, and stops behind it.

    Array readValue() {
        if (path_.size() > maxDepth) {
            fail("lists and records are nested deeper than " + std::to_string(maxDepth) + " levels");
        }
        switch (*position_) {
            case '"':
                return Array(fl::i18n::to_ustring(readString()));
            case '[':
                return readShortArray();
            case '{':
                return readLongForm();
            case 't':
                readWord("true");
                return factory_.createScalar(true);
            case 'f':
                readWord("false");
                return factory_.createScalar(false);
            case 'n':
                readWord("null");
                return {};
            default:
                return factory_.createScalar(readFinite());
        }
    }

    Array readShortArray() {
        auto numbers = std::make_shared<std::vector<double>>();
        if (enter(']')) {
            do {
                const char first = *position_;
                if (first != '-' && (first < '0' || first > '9')) {
                    fail("element " + std::to_string(numbers->size()) + " is " + token() +
                         "; a plain array takes finite numbers only, all else needs the form {\"ywtype\":...,"
                         "\"ywsize\":...,\"ywdata\":...}");
                }
                numbers->push_back(readFinite());
            } while (next(']', ParseResult::expectedCommaOrBracket));
        }
        const std::size_t size = numbers->size();
        const double* const memory = numbers->data();
        return {Kind::float64, {size}, std::shared_ptr<const void>(std::move(numbers), memory)};
    }

    Array readLongForm() {
        LongForm form;
        if (enter('}')) {
            do {
                readMember(form);
            } while (next('}', ParseResult::expectedCommaOrBrace));
        }
        if (!form.kind) {
            fail(std::string("\"ywtype\" is missing; it takes ").append(acceptedTypes));
        }
        if (isNumeric(*form.kind) && !form.shape) {
            fail("\"ywsize\" is missing; it takes an array of lengths, [] for a scalar");
        }
        if (form.deferredData != nullptr) {
            const char* const behind = std::exchange(position_, form.deferredData);
            form.array = readData(*form.kind, form.shape.value_or(Shape()));
            position_ = behind;
        }
        if (!form.array) {
            fail("\"ywdata\" is missing");
        }
        if (form.shape && *form.shape != form.array->shape()) {
            fail("\"ywsize\" is " + describe(*form.shape) + " and should be " +
                 describe(form.array->shape()));
        }
        return std::move(*form.array);
    }

    void readMember(LongForm& form) {
        const std::string key = readKey();
        if (key == "ywtype" && !form.kind) {
            form.kind = readKind();
        } else if (key == "ywsize" && !form.shape) {
            form.shape = readShape();
        } else if (key == "ywdata" && !form.array && form.deferredData == nullptr) {
            if (form.kind && (form.shape || !isNumeric(*form.kind))) {
                form.array = readData(*form.kind, form.shape.value_or(Shape()));
            } else {
                form.deferredData = position_;
                skipValue();
            }
        } else if (key == "ywtype" || key == "ywsize" || key == "ywdata") {
            fail("\"" + key + "\" stands there twice");
        } else {
            fail("unknown key \"" + key + "\"; an array has \"ywtype\", \"ywsize\" and \"ywdata\"");
        }
    }

    Kind readKind() {
        if (*position_ != '"') {
            fail("\"ywtype\" is " + token() + "; it takes a string");
        }
        const std::string name = readString();
        const std::optional<Kind> kind = kindNamed(name);
        if (!kind) {
            fail(("unknown \"ywtype\" \"" + name + "\"; it takes ").append(acceptedTypes));
        }
        return *kind;
    }

    Shape readShape() {
        if (*position_ != '[') {
            fail("\"ywsize\" is " + token() + "; it takes an array of lengths");
        }
        Shape shape;
        if (enter(']')) {
            do {
                std::size_t length = 0;
                const auto [stop, error] = std::from_chars(position_, end_, length);
                if (error != std::errc() || !atEndOfScalar(stop)) {
                    fail("\"ywsize\" holds " + token() + "; it takes lengths, which are integers from 0 on");
                }
                position_ = stop;
                shape.push_back(length);
            } while (next(']', ParseResult::expectedCommaOrBracket));
        }
        return shape;
    }

    /// `shape` is looked at only if the kind is numeric.
    Array readData(Kind kind, const Shape& shape) {
        switch (kind) {
            case Kind::text:
                if (*position_ != '"') {
                    fail("\"ywdata\" of text is " + token() + "; it takes a string");
                }
                return Array(fl::i18n::to_ustring(readString()));
            case Kind::list:
                return readList();
            case Kind::record:
                return readRecord();
            case Kind::float64:
                return readNumeric<double>(kind, shape);
            case Kind::float32:
                return readNumeric<float>(kind, shape);
            case Kind::int8:
                return readNumeric<std::int8_t>(kind, shape);
            case Kind::int16:
                return readNumeric<std::int16_t>(kind, shape);
            case Kind::int32:
                return readNumeric<std::int32_t>(kind, shape);
            case Kind::int64:
                return readNumeric<std::int64_t>(kind, shape);
            case Kind::uint8:
                return readNumeric<std::uint8_t>(kind, shape);
            case Kind::uint16:
                return readNumeric<std::uint16_t>(kind, shape);
            case Kind::uint32:
                return readNumeric<std::uint32_t>(kind, shape);
            case Kind::uint64:
                return readNumeric<std::uint64_t>(kind, shape);
            case Kind::boolean:
                return readNumeric<bool>(kind, shape);
            case Kind::complex128:
                return readNumeric<double>(kind, shape, 2);
            case Kind::complex64:
                return readNumeric<float>(kind, shape, 2);
            case Kind::null:
                break;
        }
        throw std::logic_error("null is no ywtype");
    }

    Array readList() {
        if (*position_ != '[') {
            fail("\"ywdata\" of list is " + token() + "; it takes an array of values");
        }
        List list;
        if (enter(']')) {
            do {
                path_.push_back("[" + std::to_string(list.size()) + "]");
                list.push_back(readValue());
                path_.pop_back();
            } while (next(']', ParseResult::expectedCommaOrBracket));
        }
        return Array(std::move(list));
    }

    Array readRecord() {
        if (*position_ != '{') {
            fail("\"ywdata\" of record is " + token() + "; it takes an object of values");
        }
        Record record;
        std::set<std::string> keys;
        if (enter('}')) {
            do {
                std::string key = readKey();
                path_.push_back("." + key);
                if (!keys.insert(key).second) {
                    fail("the key stands there twice");
                }
                Array value = readValue();
                path_.pop_back();
                record.emplace_back(std::move(key), std::move(value));
            } while (next('}', ParseResult::expectedCommaOrBrace));
        }
        return Array(std::move(record));
    }

    /// Reads `parts` numbers of type T an element.
    template <typename T>
    Array readNumeric(Kind kind, const Shape& shape, std::size_t parts = 1) {
        if (*position_ != '[') {
            fail("\"ywdata\" of " + std::string(nameOf(kind)) + " is " + token() + "; it takes an array");
        }
        const std::size_t size = sizeOf(shape, parts);
        std::shared_ptr<void> buffer = factory_.createBuffer(kind, size / parts);
        T* const numbers = static_cast<T*>(buffer.get());
        std::size_t count = 0;
        if (enter(']')) {
            do {
                if (count == size) {
                    failCount(shape, size, "more");
                }
                numbers[count] = readElement<T>(kind, count);
                ++count;
            } while (next(']', ParseResult::expectedCommaOrBracket));
        }
        if (count != size) {
            failCount(shape, size, std::to_string(count));
        }
        return {kind, shape, std::move(buffer)};
    }

    /// The numbers that a shape asks for. Refuses more than the rest of the text could hold before memory is
    /// taken.
    std::size_t sizeOf(const Shape& shape, std::size_t parts) {
        const auto room = static_cast<std::size_t>(end_ - position_);
        if (std::ranges::find(shape, std::size_t{0}) != shape.end()) {
            return 0;
        }
        std::size_t size = parts;
        for (const std::size_t length : shape) {
            if (length > room / size) {
                fail("\"ywsize\" " + describe(shape) + " asks for more numbers than \"ywdata\" has");
            }
            size *= length;
        }
        return size;
    }

    [[noreturn]] void failCount(const Shape& shape, std::size_t size, const std::string& count) {
        fail("\"ywsize\" " + describe(shape) + " asks for " + std::to_string(size) +
             " numbers, \"ywdata\" has " + count);
    }

    template <typename T>
    T readElement(Kind kind, std::size_t index) {
        const char* const start = position_;
        T number{};
        if constexpr (std::same_as<T, bool>) {
            if (*start == 't' || *start == 'f') {
                number = *start == 't';
                readWord(number ? "true" : "false");
                return number;
            }
        } else if constexpr (std::floating_point<T>) {
            if (*start == '"' ? readNonFinite(number) : readFloating(number)) {
                return number;
            }
        } else if (readInteger(number)) {
            return number;
        }
        position_ = start;
        failElement<T>(kind, index);
    }

    template <typename T>
    [[noreturn]] void failElement(Kind kind, std::size_t index) {
        std::string accepted = "true and false";
        if constexpr (std::floating_point<T>) {
            accepted = "numbers in its range, \"NaN\", \"Inf\" and \"-Inf\"";
        } else if constexpr (!std::same_as<T, bool>) {
            accepted = "integers from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
                       std::to_string(std::numeric_limits<T>::max()) + ", also as strings of digits";
        }
        fail("number " + std::to_string(index) + " of \"ywdata\" is " + token() + "; " +
             std::string(nameOf(kind)) + " takes " + accepted);
    }

    bool readNonFinite(auto& number) {
        using T = std::remove_reference_t<decltype(number)>;
        const std::string name = readString();
        number = name == "NaN" ? std::numeric_limits<T>::quiet_NaN() : std::numeric_limits<T>::infinity();
        if (name == "-Inf") {
            number = -number;
        }
        return name == "NaN" || name == "Inf" || name == "-Inf";
    }

    bool readFloating(double& number) {
        return lexer::readNumber(position_, end_, number) == ParseResult::success && std::isfinite(number);
    }

    bool readFloating(float& number) {
        const char* const start = position_;
        double wide = 0;
        if (lexer::readNumber(position_, end_, wide) != ParseResult::success) {
            return false;
        }
        // From the text: rounding twice, by way of the double, may miss the nearest float.
        number = lexer::string_to_float(start, position_);
        return std::isfinite(number);
    }

    template <std::integral T>
    bool readInteger(T& number) {
        const bool quoted = *position_ == '"';
        const auto [stop, error] = std::from_chars(position_ + quoted, end_, number);
        if (error != std::errc() || (quoted && (stop == end_ || *stop != '"')) ||
            !atEndOfScalar(stop + quoted)) {
            return false;
        }
        position_ = stop + quoted;
        return true;
    }

    double readFinite() {
        const char* const start = position_;
        double number = 0;
        if (lexer::readNumber(position_, end_, number) != ParseResult::success) {
            position_ = start;
            failParse(ParseResult::expectedString);
        }
        if (!std::isfinite(number)) {
            position_ = start;
            fail("the number " + token() + " is beyond the range of float64");
        }
        return number;
    }

    std::string readString() {
        std::string text;
        if (const ParseResult result = lexer::readString(position_, end_, text);
            result != ParseResult::success) {
            failParse(result);
        }
        return text;
    }

    /// Stops at the value.
    std::string readKey() {
        if (*position_ != '"') {
            failParse(ParseResult::expectedString);
        }
        std::string key = readString();
        skipToToken();
        if (*position_ != ':') {
            failParse(ParseResult::expectedColon);
        }
        ++position_;
        skipToToken();
        return key;
    }

    void readWord(std::string_view word) {
        if (!std::string_view(position_, end_).starts_with(word)) {
            failParse(ParseResult::expectedString);
        }
        position_ += word.size();
    }

    /// Goes behind a value without a look at more than its brackets and strings: it is read later.
    void skipValue() {
        if (skipFlatArray()) {
            return;
        }
        std::size_t depth = 0;
        while (position_ != end_) {
            switch (*position_) {
                case '"':
                    skipString();
                    continue;
                case '[':
                case '{':
                    ++depth;
                    break;
                case ']':
                case '}':
                    if (depth == 0) {
                        return;
                    }
                    --depth;
                    break;
                case ',':
                    if (depth == 0) {
                        return;
                    }
                    break;
                default:
                    break;
            }
            ++position_;
        }
        failParse(ParseResult::unexpectedEnd);
    }

    /// The common case of a long `ywdata`, at the speed of memchr.
    bool skipFlatArray() {
        const char* const bracket =
            *position_ == '[' ? static_cast<const char*>(std::memchr(position_, ']', remaining())) : nullptr;
        if (bracket == nullptr) {
            return false;
        }
        const std::string_view content(position_ + 1, bracket);
        for (const char nested : {'"', '[', '{'}) {
            if (content.find(nested) != std::string_view::npos) {
                return false;
            }
        }
        position_ = bracket + 1;
        return true;
    }

    void skipString() {
        for (++position_; position_ != end_; ++position_) {
            if (*position_ == '"') {
                ++position_;
                return;
            }
            if (*position_ == '\\') {
                ++position_;
                if (position_ == end_) {
                    break;
                }
            }
        }
        failParse(ParseResult::unterminatedString);
    }

    /// At an opening bracket: goes behind it, and behind the closing one too if there is nothing inside.
    /// Returns whether there is.
    bool enter(char closing) {
        ++position_;
        skipToToken();
        if (*position_ != closing) {
            return true;
        }
        ++position_;
        return false;
    }

    /// Behind an element or member: goes to the next one, or behind the closing bracket. Returns whether
    /// there is one.
    bool next(char closing, ParseResult otherwise) {
        skipToToken();
        if (*position_ == closing) {
            ++position_;
            return false;
        }
        if (*position_ != ',') {
            failParse(otherwise);
        }
        ++position_;
        skipToToken();
        return true;
    }

    void skipToToken() {
        position_ = lexer::skipWhiteSpace(position_, end_);
        if (position_ == end_) {
            failParse(ParseResult::unexpectedEnd);
        }
    }

    bool atEndOfScalar(const char* position) const {
        return position == end_ || lexer::isWhiteSpace(*position) || *position == ',' || *position == ']';
    }

    std::size_t offset() const { return static_cast<std::size_t>(position_ - text_.data()); }
    std::size_t remaining() const { return static_cast<std::size_t>(end_ - position_); }

    /// The start of what stands at `position_`, for the text of an error.
    std::string token() const {
        constexpr std::size_t longest = 30;
        std::string_view rest(position_, end_);
        if (rest.starts_with('[')) {
            return "an array";
        }
        if (rest.starts_with('{')) {
            return "an object";
        }
        const bool quoted = rest.starts_with('"');
        const std::size_t stop = quoted ? rest.find('"', 1) : rest.find_first_of(" \t\r\n,]}");
        rest = rest.substr(0, stop == std::string_view::npos ? stop : stop + quoted);
        return std::string(rest.substr(0, longest)).append(rest.size() > longest ? "..." : "");
    }

    static std::string describe(const Shape& shape) {
        std::string text = "[";
        for (const std::size_t length : shape) {
            text.append(text.size() > 1 ? "," : "").append(std::to_string(length));
        }
        return text + "]";
    }

    [[noreturn]] void failParse(ParseResult code) const {
        throw ParserException(code, get_parse_result_description(code), text_, offset());
    }

    /// `text` after the place of the value in the lists and records around it.
    [[noreturn]] void fail(const std::string& text) const {
        constexpr std::size_t mostSteps = 8;
        std::string place;
        for (std::size_t i = 0; i < path_.size() && i < mostSteps; ++i) {
            place += path_[i];
        }
        if (path_.size() > mostSteps) {
            place += "...";
        }
        throw std::runtime_error((place.empty() ? "invalid array: " : "invalid array at " + place + ": ") +
                                 text);
    }

    const std::string_view text_;
    const char* position_;
    const char* const end_;
    const ArrayFactory& factory_;
    /// From the outermost value to the one being read: "[3]" in a list, ".key" in a record.
    std::vector<std::string> path_;
};

}  // namespace

Array string_to_yorlabdata(std::string_view text, const ArrayFactory& factory) {
    return Reader(text, factory).readAll();
}

Array json_to_yorlabdata(const foundation::json::Value& value, const ArrayFactory& factory) {
    // By way of the text, so that both say and accept the same; only the inline arguments of old clients come
    // here.
    return string_to_yorlabdata(foundation::json::Serializer::serialize(value), factory);
}

}  // namespace foundation::yorlabdata::json
