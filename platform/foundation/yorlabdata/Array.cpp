#include "foundation/yorlabdata/Array.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <numeric>
#include <stdexcept>

namespace foundation::yorlabdata {

namespace {

struct KindFacts {
    std::string_view name;
    std::size_t elementSize;
};

/// By the number of the kind.
constexpr std::array<KindFacts, 17> kindFacts{{{"null", 0},
                                               {"float64", 8},
                                               {"float32", 4},
                                               {"int8", 1},
                                               {"int16", 2},
                                               {"int32", 4},
                                               {"int64", 8},
                                               {"uint8", 1},
                                               {"uint16", 2},
                                               {"uint32", 4},
                                               {"uint64", 8},
                                               {"bool", 1},
                                               {"complex128", 16},
                                               {"complex64", 8},
                                               {"text", 0},
                                               {"list", 0},
                                               {"record", 0}}};

const KindFacts& factsOf(Kind kind) noexcept {
    return kindFacts[static_cast<std::size_t>(kind)];
}

}  // namespace

std::string_view nameOf(Kind kind) noexcept {
    return factsOf(kind).name;
}

std::optional<Kind> kindNamed(std::string_view name) noexcept {
    // From 1: null is no `ywtype`.
    for (std::size_t i = 1; i < kindFacts.size(); ++i) {
        if (kindFacts[i].name == name) {
            return static_cast<Kind>(i);
        }
    }
    return std::nullopt;
}

std::size_t elementSize(Kind kind) noexcept {
    return factsOf(kind).elementSize;
}

Array::Array(Kind kind, Shape shape, std::shared_ptr<const void> buffer) : kind_(kind) {
    if (!isNumeric(kind)) {
        throw std::invalid_argument("the kind " + std::string(nameOf(kind)) + " is not numeric");
    }
    const std::size_t size = std::accumulate(shape.begin(), shape.end(), std::size_t{1}, std::multiplies<>());
    content_ = Buffer{std::move(shape), size, std::move(buffer)};
}

Array::Array(std::u16string text)
    : kind_(Kind::text), content_(std::make_shared<const std::u16string>(std::move(text))) {}

Array::Array(List list) : kind_(Kind::list), content_(std::make_shared<const List>(std::move(list))) {}

Array::Array(Record record)
    : kind_(Kind::record), content_(std::make_shared<const Record>(std::move(record))) {}

Shape Array::shape() const {
    if (const auto* buffer = std::get_if<Buffer>(&content_)) {
        return buffer->shape;
    }
    return kind_ == Kind::list ? Shape{size()} : Shape{};
}

std::size_t Array::size() const noexcept {
    switch (kind_) {
        case Kind::null:
            return 0;
        case Kind::text:
            return (*std::get_if<std::shared_ptr<const std::u16string>>(&content_))->size();
        case Kind::list:
            return (*std::get_if<std::shared_ptr<const List>>(&content_))->size();
        case Kind::record:
            return (*std::get_if<std::shared_ptr<const Record>>(&content_))->size();
        default:
            return std::get_if<Buffer>(&content_)->size;
    }
}

std::shared_ptr<const void> Array::buffer() const noexcept {
    const auto* buffer = std::get_if<Buffer>(&content_);
    return buffer != nullptr ? buffer->memory : nullptr;
}

const std::u16string& Array::text() const {
    const auto* text = std::get_if<std::shared_ptr<const std::u16string>>(&content_);
    if (text == nullptr) {
        throwNot(Kind::text);
    }
    return **text;
}

const List& Array::list() const {
    const auto* list = std::get_if<std::shared_ptr<const List>>(&content_);
    if (list == nullptr) {
        throwNot(Kind::list);
    }
    return **list;
}

const Record& Array::record() const {
    const auto* record = std::get_if<std::shared_ptr<const Record>>(&content_);
    if (record == nullptr) {
        throwNot(Kind::record);
    }
    return **record;
}

bool Array::equal(const Array& left, const Array& right) {
    if (left.kind_ != right.kind_ || left.size() != right.size() || left.shape() != right.shape()) {
        return false;
    }
    switch (left.kind_) {
        case Kind::null:
            return true;
        case Kind::text:
            return left.text() == right.text();
        case Kind::list:
            return left.list() == right.list();
        case Kind::record:
            return left.record() == right.record();
        default:
            return left.size() == 0 ||
                   std::memcmp(left.data(), right.data(), left.size() * elementSize(left.kind_)) == 0;
    }
}

void Array::throwNot(Kind wanted) const {
    throw std::runtime_error("the array is of kind " + std::string(nameOf(kind_)) + ", not " +
                             std::string(nameOf(wanted)));
}

}  // namespace foundation::yorlabdata
