#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace foundation::yorlabdata {

/// What an Array holds. The numeric kinds, float64 to complex64, share one representation.
enum class Kind : std::uint8_t {
    null,
    float64,
    float32,
    int8,
    int16,
    int32,
    int64,
    uint8,
    uint16,
    uint32,
    uint64,
    /// One byte an element, 0 or 1.
    boolean,
    complex128,
    complex64,
    text,
    list,
    record,
};

/// The name of `kind` in `ywtype`: "float64", "bool", "complex128", "text" and so on; null gives "null",
/// which is no `ywtype`.
std::string_view nameOf(Kind kind) noexcept;

/// The kind that a `ywtype` names, empty if none.
std::optional<Kind> kindNamed(std::string_view name) noexcept;

constexpr bool isNumeric(Kind kind) noexcept {
    return kind >= Kind::float64 && kind <= Kind::complex64;
}

/// Bytes of one element of a numeric kind, else 0.
std::size_t elementSize(Kind kind) noexcept;

class Array;

/// Lengths along each dimension, outermost first.
using Shape = std::vector<std::size_t>;

using List = std::vector<Array>;

/// Keys in the order given, each once. JSON made from it is ordered by key.
using Record = std::vector<std::pair<std::string, Array>>;

/// One value that travels between a client and the engine: a numeric array of any shape, a text, a list, a
/// record, or null.
///
/// A numeric scalar is an array of empty shape with one element; a shape with a zero has none. Copies share
/// the content, which never changes. So copies may be read on several threads, and the last owner may die on
/// any thread: the deleter of a buffer that belongs to somebody else has to bear that.
class Array {
  public:
    /// Null.
    Array() = default;

    /// A numeric array over memory that `buffer` keeps alive: contiguous, in C order (last index fastest),
    /// aligned for the element, with as many elements as the product of `shape`. Complex elements are pairs,
    /// real part first. Throws std::invalid_argument for a kind that is not numeric.
    Array(Kind kind, Shape shape, std::shared_ptr<const void> buffer);

    explicit Array(std::u16string text);
    explicit Array(List list);
    explicit Array(Record record);

    Kind kind() const noexcept { return kind_; }

    /// Of a numeric array as given. Empty for all else, save a list: its length.
    Shape shape() const;

    /// Numeric: the product of the shape. Else the number of 16-bit units, list elements or members; 0 for
    /// null.
    std::size_t size() const noexcept;

    /// The elements of a numeric array, null for all else and perhaps for an array without elements. T is not
    /// checked.
    template <typename T = void>
    const T* data() const noexcept {
        const auto* buffer = std::get_if<Buffer>(&content_);
        return buffer != nullptr ? static_cast<const T*>(buffer->memory.get()) : nullptr;
    }

    /// The owner of the elements of a numeric array, to share them with somebody who outlives this Array.
    std::shared_ptr<const void> buffer() const noexcept;

    /// The content of a text, list or record. Throw std::runtime_error naming both kinds when it holds
    /// something else.
    const std::u16string& text() const;
    const List& list() const;
    const Record& record() const;

    /// Same kind, shape and contents; NaN equals NaN and 0.0 does not equal -0.0, since numbers compare by
    /// their bits.
    friend bool operator==(const Array& left, const Array& right) { return equal(left, right); }

  private:
    struct Buffer {
        Shape shape;
        std::size_t size;
        std::shared_ptr<const void> memory;
    };

    static bool equal(const Array& left, const Array& right);
    [[noreturn]] void throwNot(Kind wanted) const;

    Kind kind_ = Kind::null;
    std::variant<std::monostate, Buffer, std::shared_ptr<const std::u16string>, std::shared_ptr<const List>,
                 std::shared_ptr<const Record>>
        content_;
};

}  // namespace foundation::yorlabdata
