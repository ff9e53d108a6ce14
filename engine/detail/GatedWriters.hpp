#pragma once

#include "yvm/OutputGate.hpp"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace yvm::engine {

/// The engine's end of the host's gate: where writers other than the engine's thread wait for it.
///
/// Safe from any thread. Its mutex is a leaf.
class GatedWriters {
  public:
    using Way = OutputGate::Way;
    using IDType = OutputGate::IDType;

    /// Null: nobody is held back. `wakeEngine` must not block; it is called, on any thread, whenever the
    /// engine's thread should ask the gate again.
    GatedWriters(std::shared_ptr<OutputGate> gate, std::function<void()> wakeEngine);
    ~GatedWriters();
    GatedWriters(const GatedWriters&) = delete;
    GatedWriters& operator=(const GatedWriters&) = delete;

    bool mayWrite(Way way, const IDType& command) noexcept;
    void hasWritten(Way way, const IDType& command, std::size_t units) noexcept;
    void sinksReplaced() noexcept;

    /// Blocks until the command may write, or `stop`. Not for the engine's thread; without the GIL.
    void waitUntilMayWrite(Way way, const IDType& command);

    /// From now on everybody may write: those who read are not waited for any more. Idempotent.
    void stop();

  private:
    const std::shared_ptr<OutputGate> gate_;

    std::mutex mutex_;
    std::condition_variable opened_;
    // Guarded by mutex_.
    std::uint64_t openings_ = 0;
    bool stopped_ = false;
};

}  // namespace yvm::engine
