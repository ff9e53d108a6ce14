#pragma once

#include "foundation/yorlabdata/Array.hpp"

#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <type_traits>

namespace foundation::yorlabdata {

/// The numeric kind whose elements are T, Kind::null if there is none.
template <typename T>
constexpr Kind kindOf = std::same_as<T, double>                 ? Kind::float64
                        : std::same_as<T, float>                ? Kind::float32
                        : std::same_as<T, std::int8_t>          ? Kind::int8
                        : std::same_as<T, std::int16_t>         ? Kind::int16
                        : std::same_as<T, std::int32_t>         ? Kind::int32
                        : std::same_as<T, std::int64_t>         ? Kind::int64
                        : std::same_as<T, std::uint8_t>         ? Kind::uint8
                        : std::same_as<T, std::uint16_t>        ? Kind::uint16
                        : std::same_as<T, std::uint32_t>        ? Kind::uint32
                        : std::same_as<T, std::uint64_t>        ? Kind::uint64
                        : std::same_as<T, bool>                 ? Kind::boolean
                        : std::same_as<T, std::complex<double>> ? Kind::complex128
                        : std::same_as<T, std::complex<float>>  ? Kind::complex64
                                                                : Kind::null;

template <typename T>
concept Element = kindOf<T> != Kind::null;

/// Makes arrays, in memory of its own. Stateless today; whoever makes several arrays keeps one factory for
/// all.
class ArrayFactory {
  public:
    /// Uninitialised memory for `size` elements of a numeric kind, aligned for any of them.
    std::shared_ptr<void> createBuffer(Kind kind, std::size_t size) const;

    /// A scalar: empty shape, one element.
    template <Element T>
    Array createScalar(T value) const {
        return createArray<T>({}, std::span<const T>(&value, 1));
    }

    /// Copies `elements`, which are in C order. Throws std::invalid_argument unless there are as many as the
    /// product of `shape`.
    template <Element T>
    Array createArray(Shape shape, std::type_identity_t<std::span<const T>> elements) const {
        return copyArray(kindOf<T>, std::move(shape), elements.data(), elements.size());
    }

  private:
    Array copyArray(Kind kind, Shape shape, const void* elements, std::size_t count) const;
};

}  // namespace foundation::yorlabdata
