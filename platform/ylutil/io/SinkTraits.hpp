#pragma once

namespace ylutil::io {

/// What the destination of a text can do, and where else the text is to be copied. A value.
///
/// Defaults: the destination is a plain stream. It pages nothing, knows no hotlinks, wants displayed
/// values formatted as text, and neither diary, echo nor log is written.
class SinkTraits {
  public:
    SinkTraits() noexcept = default;
    SinkTraits(bool supportsMore, bool supportsHotlinks, bool needsFormattingForDisplay, bool useDiary,
               bool useEcho, bool useLogging) noexcept;
    SinkTraits(const SinkTraits&) noexcept = default;
    SinkTraits& operator=(const SinkTraits&) noexcept = default;
    virtual ~SinkTraits();

    bool supportsMore() const noexcept { return supportsMore_; }
    bool supportsHotlinks() const noexcept { return supportsHotlinks_; }
    bool needsFormattingForDisplay() const noexcept { return needsFormattingForDisplay_; }
    bool useDiary() const noexcept { return useDiary_; }
    bool useEcho() const noexcept { return useEcho_; }
    bool useLogging() const noexcept { return useLogging_; }

    friend bool operator==(const SinkTraits& left, const SinkTraits& right) noexcept;

  private:
    bool supportsMore_ = false;
    bool supportsHotlinks_ = false;
    bool needsFormattingForDisplay_ = true;
    bool useDiary_ = false;
    bool useEcho_ = false;
    bool useLogging_ = false;
};

}  // namespace ylutil::io
