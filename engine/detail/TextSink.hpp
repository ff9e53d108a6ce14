#pragma once

#include "ylutil/io/YLSink.hpp"

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>

namespace yvm::engine {

/// The writing end of one destination of text.
///
/// Text that comes after a quiet spell is synchronised at once; while more keeps coming, at most once every
/// 20 ms, which is looked at when text is written. What stays behind leaves with `synchronise`.
///
/// Safe from any thread. Its mutex is the engine's sink mutex: to be waited for without the GIL. A failure
/// of the destination is logged and never reaches the writer.
class TextSink {
  public:
    static constexpr std::chrono::milliseconds batchTime{20};

    /// Who sees to the copies in the diary and the log that the traits of a sink ask for. The buffers of a
    /// command's own streams do so themselves.
    enum class Copies { ByBuffer, Here };

    /// Null: the text is dropped.
    explicit TextSink(boost::shared_ptr<ylutil::io::YLSink> sink, Copies copies = Copies::ByBuffer)
        : copies_(copies), sink_(std::move(sink)) {}

    /// What is written and not synchronised is synchronised first. The replaced one is let go of outside the
    /// mutex, since its end may be that of whoever reads it.
    void replaceSink(boost::shared_ptr<ylutil::io::YLSink> sink);
    boost::shared_ptr<ylutil::io::YLSink> sink() const;
    /// Those of the sink; without one the default.
    ylutil::io::SinkTraits traits() const;

    /// A high surrogate at the end waits for what follows, so that a pair written in two halves is never cut
    /// in two. An empty text does nothing.
    void write(std::u16string_view text);

    enum class HeldSurrogate { Keep, Release };
    /// `Release` also writes a high surrogate that still waits: nothing is to follow.
    void synchronise(HeldSurrogate held);

  private:
    using Clock = std::chrono::steady_clock;

    void putLocked(std::u16string_view text);
    void copyLocked(std::u16string_view text);
    void synchroniseLocked();

    const Copies copies_;
    mutable std::mutex mutex_;
    // Guarded by mutex_, as is the use of the sink.
    boost::shared_ptr<ylutil::io::YLSink> sink_;
    std::optional<char16_t> heldSurrogate_;
    bool pending_ = false;
    Clock::time_point lastSynchronised_{};
};

}  // namespace yvm::engine
