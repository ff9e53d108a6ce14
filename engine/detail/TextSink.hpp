#pragma once

#include "engine/detail/SinkTexts.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"
#include "ylutil/io/YLSink.hpp"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace yvm::engine {

/// The writing end of one destination of text.
///
/// Text that comes after a quiet spell is synchronised at once; while more keeps coming, once in a batch's
/// time, which is looked at when text is written. What stays behind leaves with `synchronise`, and whoever
/// writes is told when somebody has to see to that.
///
/// Safe from any thread. Its mutex is the engine's sink mutex: to be waited for without the GIL. A failure
/// of the destination is logged and never reaches the writer.
class TextSink {
  public:
    using Clock = std::chrono::steady_clock;

    /// How long text may wait, whatever the writer does.
    static constexpr std::chrono::milliseconds longestWait{20};
    /// How long text waits while more keeps coming. Shorter, so that a writer who goes on sees to its text
    /// itself and nobody has to break into it.
    static constexpr std::chrono::milliseconds batchTime{15};

    /// Where the text goes, for those who hold writers back. What the traits of a sink ask for in the diary
    /// and the log is copied here, save by a command's own streams, whose buffers do so themselves.
    enum class Destination { OwnStream, ClientWideSinks, Console };

    /// Null: the text is dropped. `texts` are told of all text, as that of `stream`, and may be null.
    TextSink(boost::shared_ptr<ylutil::io::YLSink> sink, Destination destination, SinkTexts* texts = nullptr,
             SinkTexts::Stream stream = SinkTexts::Stream::Output)
        : sink_(std::move(sink)), destination_(destination), texts_(texts), stream_(stream) {}

    /// What is written and not synchronised is synchronised first; its events are left to the next who
    /// synchronises, as this thread may hold locks that their handlers need. The replaced one is let go of
    /// outside the mutex, since its end may be that of whoever reads it.
    void replaceSink(boost::shared_ptr<ylutil::io::YLSink> sink, Destination destination);
    boost::shared_ptr<ylutil::io::YLSink> sink() const;
    /// Those of the sink; without one the default.
    ylutil::io::SinkTraits traits() const;
    Destination destination() const noexcept { return destination_; }

    /// What becomes of text after a quiet spell that ends within a line.
    enum class WithinLine {
        Leaves,         ///< as all other
        LeavesByCaller  ///< the caller sees to it as soon as the end of the line has had its chance to follow
    };
    /// When the caller is to have the text synchronised.
    enum class Due { Never, AtOnce, Later };
    /// A high surrogate at the end waits for what follows, so that a pair written in two halves is never cut
    /// in two. An empty text does nothing. `Later`, which is within `longestWait`, is told once a batch.
    Due write(std::u16string_view text, WithinLine withinLine = WithinLine::Leaves);

    /// Takes the text of a writer that goes on, if that needs no wait and no work: while text waits to be
    /// synchronised in its batch, and somebody knows. False when `write` has to take it. The characters are
    /// those of Latin-1. May be called with the GIL held.
    bool gather(std::basic_string_view<unsigned char> text);

    enum class HeldSurrogate { Keep, Release };
    /// `Release` also writes a high surrogate that still waits: nothing is to follow.
    void synchronise(HeldSurrogate held);

  private:
    /// What `gather` took is handed on in pieces of this many units.
    static constexpr std::size_t gatherLimit = 8192;

    void putGatheredLocked();
    void putLocked(std::u16string_view text);
    void copyLocked(std::u16string_view text);
    void synchroniseLocked();
    void releaseSurrogateLocked();

    mutable std::mutex mutex_;
    // Guarded by mutex_, as is the use of the sink.
    boost::shared_ptr<ylutil::io::YLSink> sink_;
    /// Text that `sink_` has not been given yet, and the command that wrote it.
    std::vector<char16_t> gathered_;  // no string, which takes characters of another size twice
    foundation::msg_svc::exchange::IDType gatheredFor_ = foundation::msg_svc::exchange::IDType::null();
    std::optional<char16_t> heldSurrogate_;
    /// Since when there is text that is not synchronised.
    std::optional<Clock::time_point> pendingSince_;
    Clock::time_point lastSynchronised_{};

    /// Written under mutex_. Relaxed: text that is written while the sink is replaced goes either way.
    std::atomic<Destination> destination_;

    SinkTexts* const texts_;
    const SinkTexts::Stream stream_;
};

}  // namespace yvm::engine
