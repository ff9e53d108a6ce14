#include "foundation/json/Serializer.hpp"

#include "foundation/json/detail/number.hpp"
#include "foundation/json/detail/text.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace foundation::json {

namespace {

/// A container that is being written.
struct Open {
    const Value* container;
    Array::const_iterator element;
    Object::const_iterator member;
    bool first;
};

/// Walks a value with a stack of its own and writes it to a text. `Layout` writes what stands between the
/// tokens.
template <typename Layout>
class Writer {
  public:
    explicit Writer(std::string& text) : text_(text) {}

    void write(const Value& value) {
        begin(value);
        while (!open_.empty()) {
            step();
        }
    }

  private:
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
                beginArray(value);
                break;
            case Kind::object:
                beginObject(value);
                break;
        }
    }

    void beginArray(const Value& value) {
        const Array& array = value.get<Array>();
        if (array.empty()) {
            text_ += "[]";
            return;
        }
        text_ += '[';
        open_.push_back({&value, array.begin(), {}, true});
    }

    void beginObject(const Value& value) {
        const Object& object = value.get<Object>();
        if (object.empty()) {
            text_ += "{}";
            return;
        }
        text_ += '{';
        open_.push_back({&value, {}, object.begin(), true});
    }

    /// Writes the next child of the innermost container, or closes it.
    void step() {
        Open& open = open_.back();
        const bool isArray = open.container->is<Array>();
        const bool atEnd = isArray ? open.element == open.container->get<Array>().end()
                                   : open.member == open.container->get<Object>().end();
        if (atEnd) {
            open_.pop_back();
            Layout::breakLine(text_, open_.size());
            text_ += isArray ? ']' : '}';
            return;
        }
        if (!open.first) {
            text_ += ',';
        }
        open.first = false;
        Layout::breakLine(text_, open_.size());
        if (isArray) {
            begin(*open.element++);
        } else {
            const auto& [key, child] = *open.member++;
            detail::appendQuoted(text_, key);
            text_ += Layout::colon;
            begin(child);
        }
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

void Serializer::append(std::string& text, const Value& value) {
    Writer<Compact>(text).write(value);
}

std::string pretty_print(const Value& value) {
    std::string text;
    Writer<Indented>(text).write(value);
    return text;
}

}  // namespace foundation::json
