#include "engine/detail/GatedWriters.hpp"

#include <utility>

namespace yvm::engine {

GatedWriters::GatedWriters(std::shared_ptr<OutputGate> gate, std::function<void()> wakeEngine)
    : gate_(std::move(gate)) {
    if (gate_ != nullptr) {
        gate_->onOpened([this, wakeEngine = std::move(wakeEngine)] {
            {
                const std::lock_guard lock(mutex_);
                ++openings_;
            }
            opened_.notify_all();
            wakeEngine();
        });
    }
}

GatedWriters::~GatedWriters() {
    stop();
}

bool GatedWriters::mayWrite(Way way, const IDType& command) noexcept {
    if (gate_ == nullptr || gate_->mayWrite(way, command)) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    return stopped_;
}

void GatedWriters::hasWritten(Way way, const IDType& command, std::size_t units) noexcept {
    if (gate_ != nullptr) {
        gate_->hasWritten(way, command, units);
    }
}

void GatedWriters::sinksReplaced() noexcept {
    if (gate_ != nullptr) {
        gate_->sinksReplaced();
    }
}

void GatedWriters::waitUntilMayWrite(Way way, const IDType& command) {
    std::unique_lock lock(mutex_);
    while (!stopped_) {
        // Known before the gate is asked, so that an opening between its answer and the wait counts.
        const auto openings = openings_;
        lock.unlock();
        if (mayWrite(way, command)) {
            return;
        }
        lock.lock();
        opened_.wait(lock, [&] { return stopped_ || openings_ != openings; });
    }
}

void GatedWriters::stop() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(stopped_, true)) {
            return;
        }
    }
    opened_.notify_all();
    if (gate_ != nullptr) {
        gate_->onOpened({});
    }
}

}  // namespace yvm::engine
