#pragma once

#include "yvm/OutputGate.hpp"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace yvm::engine::test {

/// A gate that the test closes and opens by hand, for one command or for the client-wide sinks. Open at
/// first, and a closed one that is destroyed refuses nobody. Safe from any thread.
class FakeGate final : public OutputGate {
  public:
    bool mayWrite(Way way, const IDType& command) noexcept override {
        const std::lock_guard lock(mutex_);
        const bool isClosed = way == Way::ClientWideSinks ? clientWideClosed_ : closed_.contains(command);
        if (isClosed) {
            ++refusals_[command];
            refused_.notify_all();
        }
        return !isClosed;
    }
    void hasWritten(Way way, const IDType& command, std::size_t units) noexcept override {
        const std::lock_guard lock(mutex_);
        written_[{way, command}] += units;
        ++writes_[command];
        if (closesAfter_ == command) {
            closed_.insert(command);
        }
    }
    void sinksReplaced() noexcept override {
        const std::lock_guard lock(mutex_);
        ++sinksReplaced_;
    }
    void onOpened(std::function<void()> opened) override {
        const std::lock_guard lock(mutex_);
        opened_ = std::move(opened);
    }

    void close(const IDType& command) {
        const std::lock_guard lock(mutex_);
        closed_.insert(command);
    }
    /// Closes for the command whenever it has written.
    void closeAfterEachWriteOf(const IDType& command) {
        const std::lock_guard lock(mutex_);
        closesAfter_ = command;
    }
    void closeClientWide() {
        const std::lock_guard lock(mutex_);
        clientWideClosed_ = true;
    }
    void openAll() {
        const std::lock_guard lock(mutex_);
        closesAfter_ = IDType::null();
        closed_.clear();
        clientWideClosed_ = false;
        tellLocked();
    }
    void open(const IDType& command) {
        const std::lock_guard lock(mutex_);
        closed_.erase(command);
        refusals_[command] = 0;
        tellLocked();
    }

    /// Until the command has been refused `count` times since it was last opened.
    void waitForRefusal(const IDType& command, int count = 1) {
        std::unique_lock lock(mutex_);
        if (!refused_.wait_for(lock, std::chrono::seconds(60), [&] { return refusals_[command] >= count; })) {
            throw std::runtime_error("the gate was not asked");
        }
    }
    std::size_t written(Way way, const IDType& command) {
        const std::lock_guard lock(mutex_);
        return written_[{way, command}];
    }
    int writes(const IDType& command) {
        const std::lock_guard lock(mutex_);
        return writes_[command];
    }
    int sinksReplacedCount() {
        const std::lock_guard lock(mutex_);
        return sinksReplaced_;
    }

  private:
    /// With the lock held, as a host may do.
    void tellLocked() {
        if (opened_) {
            opened_();
        }
    }

    std::mutex mutex_;
    std::condition_variable refused_;
    // Guarded by mutex_.
    std::function<void()> opened_;
    std::set<IDType> closed_;
    bool clientWideClosed_ = false;
    IDType closesAfter_ = IDType::null();
    std::map<IDType, int> refusals_;
    std::map<std::pair<Way, IDType>, std::size_t> written_;
    std::map<IDType, int> writes_;
    int sinksReplaced_ = 0;
};

}  // namespace yvm::engine::test
