#include "foundation/json/Serializer.hpp"

#include "foundation/json/detail/number.hpp"
#include "foundation/json/detail/text.hpp"

#include <algorithm>
#include <charconv>

namespace foundation::json {

namespace {

/// A container that is being written: an array or an object.
struct Open {
    const Array* array;
    const Object* object;
    Array::const_iterator element;
    Object::const_iterator member;
    bool first;
};

/// From so many elements on room is made for them at once, for so many characters each: what a double takes
/// with its comma. Memory that stays unused is never touched.
constexpr std::size_t longArray = 1024;
constexpr std::size_t usualElement = 20;

/// Walks a value with a stack of its own and writes it to a text. `Layout` writes what stands between the
/// tokens.
template <typename Layout>
class Writer {
  public:
    explicit Writer(std::string& text) : text_(text) {}

    void write(const Value& value) {
        begin(value);
        finish();
    }

    void write(const Object& object) {
        beginObject(object);
        finish();
    }

  private:
    void finish() {
        while (!open_.empty()) {
            if (open_.back().array != nullptr) {
                goOnWithArray();
            } else {
                goOnWithObject();
            }
        }
    }

    void begin(const Value& value) {
        switch (value.kind()) {
            case Kind::undefined:
            case Kind::null:
                text_ += "null";
                break;
            case Kind::boolean:
                text_ += value.get<bool>() ? "true" : "false";
                break;
            case Kind::real:
                writeFloating(value.get<double>());
                break;
            case Kind::single:
                writeFloating(value.get<float>());
                break;
            case Kind::int64:
                writeInteger(value.get<std::int64_t>());
                break;
            case Kind::uint64:
                writeInteger(value.get<std::uint64_t>());
                break;
            case Kind::string:
                detail::appendQuoted(text_, value.get<std::string>());
                break;
            case Kind::array:
                beginArray(value.get<Array>());
                break;
            case Kind::object:
                beginObject(value.get<Object>());
                break;
        }
    }

    void beginArray(const Array& array) {
        if (array.empty()) {
            text_ += "[]";
            return;
        }
        if (array.size() >= longArray) {
            text_.reserve(text_.size() + array.size() * usualElement);
        }
        text_ += '[';
        open_.push_back({&array, nullptr, array.begin(), {}, true});
    }

    void beginObject(const Object& object) {
        if (object.empty()) {
            text_ += "{}";
            return;
        }
        text_ += '{';
        open_.push_back({nullptr, &object, {}, object.begin(), true});
    }

    /// Writes the next elements of the innermost container, an array, until one of them is a container or
    /// it is closed.
    void goOnWithArray() {
        const std::size_t level = open_.size();
        Open& open = open_.back();
        while (open.element != open.array->end()) {
            separate(open);
            begin(*open.element++);
            if (open_.size() != level) {
                return;  // And `open` has moved.
            }
        }
        close(']');
    }

    void goOnWithObject() {
        Open& open = open_.back();
        if (open.member == open.object->end()) {
            close('}');
            return;
        }
        separate(open);
        const auto& [key, child] = *open.member++;
        detail::appendQuoted(text_, key);
        text_ += Layout::colon;
        begin(child);
    }

    void separate(Open& open) {
        if (!open.first) {
            text_ += ',';
        }
        open.first = false;
        Layout::breakLine(text_, open_.size());
    }

    void close(char bracket) {
        open_.pop_back();
        Layout::breakLine(text_, open_.size());
        text_ += bracket;
    }

    template <typename T>
    void writeFloating(T number) {
        char buffer[detail::numberRoom];
        text_.append(buffer, detail::writeNumber(buffer, number));
    }

    template <typename T>
    void writeInteger(T number) {
        char buffer[detail::numberRoom];
        text_.append(buffer, std::to_chars(buffer, std::end(buffer), number).ptr);
    }

    std::string& text_;
    std::vector<Open> open_;
};

struct Compact {
    static constexpr std::string_view colon = ":";
    static void breakLine(std::string&, std::size_t) {}
};

struct Indented {
    static constexpr std::string_view colon = ": ";
    static constexpr std::size_t maxLevels = 16;
    static void breakLine(std::string& text, std::size_t level) {
        text += '\n';
        text.append(2 * std::min(level, maxLevels), ' ');
    }
};

}  // namespace

std::string Serializer::serialize(const Value& value) {
    std::string text;
    append(text, value);
    return text;
}

std::string Serializer::serialize(const Object& object) {
    std::string text;
    Writer<Compact>(text).write(object);
    return text;
}

void Serializer::append(std::string& text, const Value& value) {
    Writer<Compact>(text).write(value);
}

std::string pretty_print(const Value& value) {
    std::string text;
    Writer<Indented>(text).write(value);
    return text;
}

}  // namespace foundation::json
