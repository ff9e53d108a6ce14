#include "foundation/yorlabdata/ArrayFactory.hpp"

#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

namespace foundation::yorlabdata {

std::shared_ptr<void> ArrayFactory::createBuffer(Kind kind, std::size_t size) const {
    // operator new aligns for every element type; std::make_shared would zero the memory first.
    return {::operator new(size * elementSize(kind)), [](void* memory) { ::operator delete(memory); }};
}

Array ArrayFactory::copyArray(Kind kind, Shape shape, const void* elements, std::size_t count) const {
    const std::size_t expected =
        std::accumulate(shape.begin(), shape.end(), std::size_t{1}, std::multiplies<>());
    if (count != expected) {
        throw std::invalid_argument("the shape asks for " + std::to_string(expected) + " elements, not " +
                                    std::to_string(count));
    }
    std::shared_ptr<void> buffer = createBuffer(kind, count);
    if (count != 0) {
        std::memcpy(buffer.get(), elements, count * elementSize(kind));
    }
    return {kind, std::move(shape), std::move(buffer)};
}

}  // namespace foundation::yorlabdata
