#pragma once

#include "foundation/msg_svc/exchange/IDType.hpp"

#include <cstddef>
#include <functional>

namespace yvm {

/// Holds back whoever writes text while those who read it are behind. Implemented by the host of the engine,
/// which knows the readers; asked by the engine before it writes.
///
/// Nothing here blocks: a writer that is refused finds itself something to do until it is told, and asks
/// again. A refusal ends within a bound that the implementation keeps.
///
/// Safe from any thread. The engine calls it with no lock held, the interpreter's included.
class [[gnu::visibility("default")]] OutputGate {
  public:
    using IDType = foundation::msg_svc::exchange::IDType;

    /// Which way a text goes.
    enum class Way {
        OwnStreams,      ///< to the streams of the command that writes it
        ClientWideSinks  ///< to the sinks of `YVM::replaceSinks`
    };

    virtual ~OutputGate() = default;

    /// Whether the command, null for none, may write now. After a refusal the function of `onOpened` is
    /// called when it is worth asking again.
    virtual bool mayWrite(Way way, const IDType& command) noexcept = 0;

    /// So many 16-bit units have been written.
    virtual void hasWritten(Way way, const IDType& command, std::size_t units) noexcept = 0;

    /// The client-wide sinks are others now. What was written to the earlier ones and never published no
    /// longer counts.
    virtual void sinksReplaced() noexcept = 0;

    /// `opened` is called on any thread, with locks of the host held: it may not block, nor call the gate. An
    /// empty function ends that, and returns when a call in progress has ended.
    virtual void onOpened(std::function<void()> opened) = 0;
};

}  // namespace yvm
