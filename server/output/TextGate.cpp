#include "server/output/TextGate.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"

#include <new>
#include <optional>
#include <utility>

namespace server::output {

using foundation::concurrent::threadpool::ThreadPool;

bool TextGate::mayWrite(Way way, const IDType& command) noexcept {
    const bool isBehind = way == Way::ClientWideSinks && unpublished_ > options_.maxUnpublished;
    if (!holdsAnybody_ && !isBehind) {
        return true;
    }
    try {
        const std::lock_guard lock(mutex_);
        if (holdsLocked(way, command)) {
            ++waits_;
            return false;
        }
        // Asked again with the mutex held: whoever publishes now opens behind this.
        if (way == Way::ClientWideSinks && unpublished_ > options_.maxUnpublished) {
            forgetUnpublishedAfterWait();
            ++waits_;
            return false;
        }
        return true;
    } catch (const std::bad_alloc&) {
        // Without memory for a wait nobody is told to wait.
        return true;
    }
}

bool TextGate::holdsLocked(Way way, const IDType& command) {
    for (auto& [reader, held] : held_) {
        if (way == Way::ClientWideSinks ? held.clientWide : held.commands.contains(command)) {
            held.hasAsked = true;
            if (!std::exchange(held.isTimed, true)) {
                after(options_.maxWait - answerWait(), &TextGate::askAgain, reader, held.number);
            }
            return true;
        }
    }
    return false;
}

void TextGate::hasWritten(Way way, const IDType& /*command*/, std::size_t units) noexcept {
    if (way == Way::ClientWideSinks) {
        unpublished_ += units;
    }
}

void TextGate::sinksReplaced() noexcept {
    const std::lock_guard lock(mutex_);
    unpublished_ = 0;
    // The text that holds them up was that of the sinks before.
    for (auto& [reader, held] : held_) {
        held.clientWide = false;
    }
    openLocked();
}

void TextGate::onOpened(std::function<void()> opened) {
    const std::lock_guard lock(mutex_);
    opened_ = std::move(opened);
}

void TextGate::hold(const std::shared_ptr<TextReader>& reader, Way way) {
    const IDType command = cmddistributor::RequestIdAdapter().getRequestId();
    const std::lock_guard lock(mutex_);
    const auto [entry, isNew] = held_.try_emplace(reader.get());
    Held& held = entry->second;
    if (isNew) {
        held.reader = reader;
        held.number = ++lastNumber_;
    }
    if (way == Way::ClientWideSinks) {
        held.clientWide = true;
    } else {
        held.commands.insert(command);
    }
    holdsAnybody_ = true;
}

void TextGate::release(const TextReader& reader) noexcept {
    const std::lock_guard lock(mutex_);
    if (held_.erase(&reader) != 0) {
        holdsAnybody_ = !held_.empty();
        openLocked();
    }
}

void TextGate::published() noexcept {
    if (unpublished_.exchange(0) > options_.maxUnpublished) {
        const std::lock_guard lock(mutex_);
        openLocked();
    }
}

void TextGate::after(std::chrono::milliseconds wait, void (TextGate::*then)(const TextReader*, std::uint64_t),
                     const TextReader* reader, std::uint64_t number) {
    pool_->submitAfter(wait, [weak = weak_from_this(), then, reader, number] {
        if (const auto self = weak.lock()) {
            (*self.*then)(reader, number);
        }
        return std::optional<ThreadPool::Duration>();
    });
}

void TextGate::askAgain(const TextReader* reader, std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(reader);
    if (found == held_.end() || found->second.number != number) {
        return;
    }
    found->second.hasAsked = false;
    after(answerWait(), &TextGate::giveUpIfAsked, reader, number);
    openLocked();
}

void TextGate::giveUpIfAsked(const TextReader* reader, std::uint64_t number) {
    std::shared_ptr<TextReader> tooSlow;
    {
        const std::lock_guard lock(mutex_);
        const auto found = held_.find(reader);
        if (found == held_.end() || found->second.number != number) {
            return;
        }
        if (!found->second.hasAsked) {
            // Who waits from now on has the whole wait.
            found->second.isTimed = false;
            return;
        }
        tooSlow = found->second.reader.lock();
        held_.erase(found);
        holdsAnybody_ = !held_.empty();
        openLocked();
    }
    if (tooSlow) {
        tooSlow->giveUp();
    }
}

void TextGate::forgetUnpublishedAfterWait() {
    if (std::exchange(isWaitingForPublication_, true)) {
        return;
    }
    pool_->submitAfter(options_.publishWait, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            const std::lock_guard lock(self->mutex_);
            self->isWaitingForPublication_ = false;
            if (self->unpublished_.exchange(0) > self->options_.maxUnpublished) {
                self->openLocked();
            }
        }
        return std::optional<ThreadPool::Duration>();
    });
}

void TextGate::openLocked() const {
    if (opened_) {
        opened_();
    }
}

}  // namespace server::output
