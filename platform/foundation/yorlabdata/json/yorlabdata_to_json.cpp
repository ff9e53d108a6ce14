#include "fl/i18n/ustring.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <string>
#include <utility>

namespace foundation::yorlabdata::json {

namespace {

namespace fj = foundation::json;
using yorlabjson::ToJsonMode;

/// Integers up to here are exact in a double, which is what most readers of JSON have.
constexpr std::int64_t maxExactInteger = std::int64_t{1} << 53;

template <typename T>
fj::Value numberToJson(T number) {
    if constexpr (std::floating_point<T>) {
        if (!std::isfinite(number)) {
            return std::isnan(number) ? "NaN" : number > 0 ? "Inf" : "-Inf";
        }
    } else if constexpr (sizeof(T) == sizeof(std::int64_t)) {
        if (std::cmp_greater(number, maxExactInteger) || std::cmp_less(number, -maxExactInteger)) {
            return std::to_string(number);
        }
    }
    return number;
}

/// `parts` numbers of type T an element.
template <typename T>
fj::Array numbersToJson(const Array& array, std::size_t parts = 1) {
    const T* const numbers = array.data<T>();
    const std::size_t count = array.size() * parts;
    fj::Array values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        values.push_back(numberToJson(numbers[i]));
    }
    return values;
}

fj::Value dataToJson(const Array& array, ToJsonMode mode) {
    switch (array.kind()) {
        case Kind::float64:
            return numbersToJson<double>(array);
        case Kind::float32:
            return numbersToJson<float>(array);
        case Kind::int8:
            return numbersToJson<std::int8_t>(array);
        case Kind::int16:
            return numbersToJson<std::int16_t>(array);
        case Kind::int32:
            return numbersToJson<std::int32_t>(array);
        case Kind::int64:
            return numbersToJson<std::int64_t>(array);
        case Kind::uint8:
            return numbersToJson<std::uint8_t>(array);
        case Kind::uint16:
            return numbersToJson<std::uint16_t>(array);
        case Kind::uint32:
            return numbersToJson<std::uint32_t>(array);
        case Kind::uint64:
            return numbersToJson<std::uint64_t>(array);
        case Kind::boolean:
            return numbersToJson<bool>(array);
        case Kind::complex128:
            return numbersToJson<double>(array, 2);
        case Kind::complex64:
            return numbersToJson<float>(array, 2);
        case Kind::text:
            return fl::i18n::to_string(array.text());
        case Kind::list: {
            fj::Array values;
            values.reserve(array.size());
            for (const Array& element : array.list()) {
                values.push_back(yorlabdata_to_json(element, mode));
            }
            return values;
        }
        case Kind::record: {
            fj::Object members;
            for (const auto& [key, value] : array.record()) {
                members.emplace(key, yorlabdata_to_json(value, mode));
            }
            return members;
        }
        case Kind::null:
            break;
    }
    return fj::Null();
}

bool allFinite(const Array& array) {
    const double* const numbers = array.data<double>();
    return std::all_of(numbers, numbers + array.size(), [](double number) { return std::isfinite(number); });
}

bool hasShortForm(const Array& array, const Shape& shape) {
    switch (array.kind()) {
        case Kind::text:
            return true;
        case Kind::boolean:
            return shape.empty();
        case Kind::float64:
            return shape.size() <= 1 && allFinite(array);
        default:
            return false;
    }
}

fj::Value sizeToJson(const Shape& shape) {
    fj::Array lengths;
    lengths.reserve(shape.size());
    for (const std::size_t length : shape) {
        lengths.emplace_back(length);
    }
    return lengths;
}

}  // namespace

fj::Value yorlabdata_to_json(const Array& array, ToJsonMode mode, yorlabjson::NanType, ObjectFilter) {
    if (array.kind() == Kind::null) {
        return fj::Null();
    }
    const Shape shape = array.shape();
    fj::Value data = dataToJson(array, mode);
    if (mode == ToJsonMode::preferYDAShort && hasShortForm(array, shape)) {
        const bool isNumericScalar = isNumeric(array.kind()) && shape.empty();
        return isNumericScalar ? std::move(data.get<fj::Array>().front()) : std::move(data);
    }
    fj::Object longForm;
    longForm.emplace("ywtype", std::string(nameOf(array.kind())));
    longForm.emplace("ywsize", sizeToJson(shape));
    longForm.emplace("ywdata", std::move(data));
    return longForm;
}

}  // namespace foundation::yorlabdata::json
