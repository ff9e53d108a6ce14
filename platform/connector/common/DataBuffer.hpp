#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace connector::common {

/// The immutable bytes of one message, shared from the publisher to every receiver without a copy.
///
/// The bytes are JSON text in UTF-8. A default-constructed or empty buffer has a null data pointer.
/// Copies share the bytes; safe to read from any number of threads.
class DataBuffer {
  public:
    DataBuffer() noexcept = default;
    explicit DataBuffer(std::string text)
        : text_(text.empty() ? nullptr : std::make_shared<const std::string>(std::move(text))) {}

    /// The first byte, or null when there is none.
    const char* data() const noexcept { return text_ ? text_->data() : nullptr; }
    std::size_t size() const noexcept { return text_ ? text_->size() : 0; }
    std::string_view view() const noexcept { return {data(), size()}; }

  private:
    std::shared_ptr<const std::string> text_;
};

}  // namespace connector::common
