#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::json {

/// The alternative of a default-constructed Value. The parser never produces it.
struct Undefined {
    friend bool operator==(const Undefined&, const Undefined&) = default;
};

/// The JSON word `null`.
struct Null {
    friend bool operator==(const Null&, const Null&) = default;
};

class Value;

using Array = std::vector<Value>;

/// Members ordered by key, bytewise.
using Object = std::map<std::string, Value>;

/// The ten alternatives of a Value, in their fixed order.
enum class Kind : std::uint8_t {
    undefined,
    null,
    boolean,
    real,
    single,
    int64,
    uint64,
    string,
    array,
    object
};

/// Static facts on one alternative: its `kind`, and its `name` in the text of a conversion error.
template <typename T>
struct traits;

template <>
struct traits<Undefined> {
    static constexpr Kind kind = Kind::undefined;
    static constexpr const char* name = "undefined";
};
template <>
struct traits<Null> {
    static constexpr Kind kind = Kind::null;
    static constexpr const char* name = "null";
};
template <>
struct traits<bool> {
    static constexpr Kind kind = Kind::boolean;
    static constexpr const char* name = "boolean";
};
template <>
struct traits<double> {
    static constexpr Kind kind = Kind::real;
    static constexpr const char* name = "double";
};
template <>
struct traits<float> {
    static constexpr Kind kind = Kind::single;
    static constexpr const char* name = "float";
};
template <>
struct traits<std::int64_t> {
    static constexpr Kind kind = Kind::int64;
    static constexpr const char* name = "int64";
};
template <>
struct traits<std::uint64_t> {
    static constexpr Kind kind = Kind::uint64;
    static constexpr const char* name = "uint64";
};
template <>
struct traits<std::string> {
    static constexpr Kind kind = Kind::string;
    static constexpr const char* name = "string";
};
template <>
struct traits<Array> {
    static constexpr Kind kind = Kind::array;
    static constexpr const char* name = "array";
};
template <>
struct traits<Object> {
    static constexpr Kind kind = Kind::object;
    static constexpr const char* name = "object";
};

/// A type that a Value can hold.
template <typename T>
concept Alternative = requires {
    { traits<T>::kind } -> std::convertible_to<Kind>;
};

/// An integer that becomes one of the two 64-bit alternatives. Characters and bool are no such integers.
template <typename T>
concept PlainInteger =
    std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
    !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// One JSON value: a tag and eight bytes, 16 bytes in all; strings, arrays and objects are boxed.
///
/// Nothing converts between the alternatives. There are two ways to read one, which differ in what they throw
/// and are both needed: `get` is that of boost::variant, `as` tells both type names.
///
/// Copying, comparing and destroying take no stack per level of nesting, so that a text of a million brackets
/// is harmless. Destroying nested containers allocates a work list; running out of memory there ends the
/// program.
///
/// A plain value: safe to read from several threads, not to write.
class Value {
  public:
    /// Holds Undefined.
    Value() noexcept : kind_(Kind::undefined) {}
    Value(Undefined) noexcept : Value() {}
    Value(Null) noexcept : kind_(Kind::null) {}
    /// A template, so that no pointer becomes a bool.
    template <std::same_as<bool> T>
    Value(T value) noexcept : kind_(Kind::boolean) {
        storage_.boolean = value;
    }
    Value(double value) noexcept : kind_(Kind::real) { storage_.real = value; }
    Value(float value) noexcept : kind_(Kind::single) { storage_.single = value; }
    /// Every signed integer becomes the signed 64-bit alternative, every unsigned one the unsigned.
    template <PlainInteger T>
    Value(T value) noexcept : kind_(std::signed_integral<T> ? Kind::int64 : Kind::uint64) {
        if constexpr (std::signed_integral<T>) {
            // A signed char is a small number here, std::int8_t.
            storage_.int64 = value;  // NOLINT(bugprone-signed-char-misuse)
        } else {
            storage_.uint64 = value;
        }
    }
    Value(std::string value) : kind_(Kind::string) { storage_.string = new std::string(std::move(value)); }
    Value(std::string_view value) : kind_(Kind::string) { storage_.string = new std::string(value); }
    Value(const char* value) : Value(std::string_view(value)) {}
    Value(std::nullptr_t) = delete;
    /// Beware of `Array{array}` and `Array{object}`: braces build an array of one element.
    Value(Array value);
    Value(Object value);

    Value(const Value& other) : kind_(other.kind_), storage_(other.storage_) {
        if (isBoxed()) {
            copyBox(other);
        }
    }
    /// Leaves `other` Undefined.
    Value(Value&& other) noexcept : kind_(other.kind_), storage_(other.storage_) {
        other.kind_ = Kind::undefined;
    }
    Value& operator=(const Value& other) { return *this = Value(other); }
    Value& operator=(Value&& other) noexcept {
        // Through a temporary: `other` may be a descendant of this value.
        Value taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Value() {
        if (isBoxed()) {
            destroyBox();
        }
    }

    void swap(Value& other) noexcept {
        std::swap(kind_, other.kind_);
        std::swap(storage_, other.storage_);
    }

    Kind kind() const noexcept { return kind_; }

    /// `traits<X>::name` of the stored alternative X.
    const char* typeName() const noexcept;

    template <Alternative T>
    bool is() const noexcept {
        return kind_ == traits<T>::kind;
    }

    /// The stored T, or null if another alternative is stored.
    template <Alternative T>
    const T* getIf() const noexcept {
        return is<T>() ? &unchecked<T>(*this) : nullptr;
    }
    template <Alternative T>
    T* getIf() noexcept {
        return is<T>() ? &unchecked<T>(*this) : nullptr;
    }

    /// The stored T. Throws boost::bad_get if another alternative is stored, like boost::get on a variant.
    template <Alternative T>
    const T& get() const {
        if (!is<T>()) {
            throwBadGet();
        }
        return unchecked<T>(*this);
    }
    template <Alternative T>
    T& get() {
        if (!is<T>()) {
            throwBadGet();
        }
        return unchecked<T>(*this);
    }

    /// The stored T. Throws std::runtime_error "invalid conversion: <stored name> to <name of T>" if another
    /// alternative is stored.
    template <Alternative T>
    const T& as() const {
        if (!is<T>()) {
            throwInvalidConversion(traits<T>::name);
        }
        return unchecked<T>(*this);
    }
    template <Alternative T>
    T& as() {
        if (!is<T>()) {
            throwInvalidConversion(traits<T>::name);
        }
        return unchecked<T>(*this);
    }

    /// Equal when both hold the same alternative and equal contents: the double 1 is not the integer 1.
    friend bool operator==(const Value& left, const Value& right) { return equal(left, right); }

  private:
    union Storage {
        Undefined undefined;
        Null null;
        bool boolean;
        double real;
        float single;
        std::int64_t int64;
        std::uint64_t uint64;
        std::string* string;
        Array* array;
        Object* object;
    };

    bool isBoxed() const noexcept { return kind_ >= Kind::string; }
    bool isContainer() const noexcept { return kind_ >= Kind::array; }

    void copyBox(const Value& other);
    void destroyBox() noexcept;
    /// Moves the containers among the direct children of `parent` to `pending`.
    static void takeNestedContainers(Value& parent, std::vector<Value>& pending);
    static bool equal(const Value& left, const Value& right);
    static bool equalScalars(const Value& left, const Value& right);
    [[noreturn]] static void throwBadGet();
    [[noreturn]] void throwInvalidConversion(const char* wanted) const;

    /// The part of the storage that holds a T; `self` is const or not.
    template <Alternative T, typename Self>
    static auto& unchecked(Self& self) noexcept {
        if constexpr (std::same_as<T, Undefined>) {
            return self.storage_.undefined;
        } else if constexpr (std::same_as<T, Null>) {
            return self.storage_.null;
        } else if constexpr (std::same_as<T, bool>) {
            return self.storage_.boolean;
        } else if constexpr (std::same_as<T, double>) {
            return self.storage_.real;
        } else if constexpr (std::same_as<T, float>) {
            return self.storage_.single;
        } else if constexpr (std::same_as<T, std::int64_t>) {
            return self.storage_.int64;
        } else if constexpr (std::same_as<T, std::uint64_t>) {
            return self.storage_.uint64;
        } else if constexpr (std::same_as<T, std::string>) {
            return *self.storage_.string;
        } else if constexpr (std::same_as<T, Array>) {
            return *self.storage_.array;
        } else {
            return *self.storage_.object;
        }
    }

    Kind kind_;
    /// All eight bytes are set from the start, for moves copy them whatever the alternative.
    Storage storage_{.int64 = 0};
};

}  // namespace foundation::json
