#include "ylutil/io/SinkTraits.hpp"

namespace ylutil::io {

SinkTraits::SinkTraits(bool supportsMore, bool supportsHotlinks, bool needsFormattingForDisplay,
                       bool useDiary, bool useEcho, bool useLogging) noexcept
    : supportsMore_(supportsMore),
      supportsHotlinks_(supportsHotlinks),
      needsFormattingForDisplay_(needsFormattingForDisplay),
      useDiary_(useDiary),
      useEcho_(useEcho),
      useLogging_(useLogging) {}

SinkTraits::~SinkTraits() = default;

bool operator==(const SinkTraits& left, const SinkTraits& right) noexcept {
    return left.supportsMore_ == right.supportsMore_ && left.supportsHotlinks_ == right.supportsHotlinks_ &&
           left.needsFormattingForDisplay_ == right.needsFormattingForDisplay_ &&
           left.useDiary_ == right.useDiary_ && left.useEcho_ == right.useEcho_ &&
           left.useLogging_ == right.useLogging_;
}

}  // namespace ylutil::io
