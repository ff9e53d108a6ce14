#pragma once

#include "engine/detail/CapturedDescriptor.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <array>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

namespace yvm::engine {

/// Leads what is written to the descriptors 1 and 2 of the process to the engine: by code in C and C++, by
/// programs that inherit them, by forked children.
///
/// A thread reads as fast as it comes, so that nobody who writes there waits for a client. `stdout` of the C
/// library is set to leave by the line, as on a terminal.
///
/// What somebody writes who then ends the process by a signal (`abort`, a crash) is copied to the original
/// descriptors.
///
/// Order of life: made before the interpreter starts; `stop`, also if that start fails; destroyed. There is
/// one in a process.
class DescriptorCapture {
  public:
    using Stream = ylutil::io::StreamTypeEnum;
    /// Called with a text, or with none when the text before is to be synchronised. One call at a time,
    /// without the GIL; must not wait for readers.
    using Receiver = std::function<void(Stream stream, std::u16string_view text)>;

    /// Throws `std::system_error` when there are no descriptors or threads left.
    explicit DescriptorCapture(Receiver receiver);
    ~DescriptorCapture();
    DescriptorCapture(const DescriptorCapture&) = delete;
    DescriptorCapture& operator=(const DescriptorCapture&) = delete;

    /// Returns when the receiver has got what was written before the call, save what sits in buffers of
    /// libraries other than C's `stdout`, the start of a cut character included: what comes next is of
    /// somebody else. Without the GIL.
    void drainToTheEnd();

    /// The same, but a cut character waits for its rest.
    void drain();

    /// Puts the original descriptors back. Idempotent; one thread.
    void stop();

  private:
    struct Captured {
        explicit Captured(int descriptor, Stream ofStream) : pipe(descriptor), stream(ofStream) {}
        CapturedDescriptor pipe;
        const Stream stream;
    };

    void run();
    void readLocked(Captured& captured, std::size_t limit);
    void drainLocked();

    const Receiver receiver_;
    std::mutex mutex_;
    // Guarded by mutex_, as are the calls of the receiver.
    std::array<std::optional<Captured>, 2> captured_;
    bool mayBePending_ = false;
    bool stopped_ = false;

    int stopEvent_ = -1;
    std::thread reader_;
};

}  // namespace yvm::engine
