#include "engine/detail/TextSink.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <ctime>
#include <string>
#include <string_view>

namespace yvm::engine {

namespace {

foundation::log::diagnostic_logger& logger() {
    static auto& instance = *new foundation::log::diagnostic_logger("yvm::engine::TextSink");
    return instance;
}

constexpr bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

/// The clock as it stood at the last tick of the system's timer, some milliseconds ago: for text that comes
/// a million times a second, where the clock itself costs as much as the text.
TextSink::Clock::time_point coarseNow() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return TextSink::Clock::time_point(std::chrono::seconds(now.tv_sec) +
                                       std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace

TextSink::Due TextSink::write(std::u16string_view text, WithinLine withinLine) {
    if (text.empty()) {
        return Due::Never;
    }
    const SinkTexts::Firing firing(texts_);
    const std::lock_guard lock(mutex_);
    if (sink_ == nullptr) {
        return Due::Never;
    }
    putGatheredLocked();
    std::u16string joined;
    if (heldSurrogate_) {
        joined = *heldSurrogate_;
        joined += text;
        text = joined;
        heldSurrogate_.reset();
    }
    if (isHighSurrogate(text.back())) {
        heldSurrogate_ = text.back();
        text.remove_suffix(1);
    }
    if (text.empty()) {
        return Due::Never;
    }
    putLocked(text);
    const auto now = Clock::now();
    const bool isNew = !pendingSince_;
    if (isNew) {
        pendingSince_ = now;
    }
    if (now - lastSynchronised_ < batchTime) {
        return isNew ? Due::Later : Due::Never;
    }
    // A caller that could not see to it in a batch's time is asked no more.
    if (withinLine == WithinLine::LeavesByCaller && text.back() != u'\n' &&
        now - *pendingSince_ < batchTime) {
        return Due::AtOnce;
    }
    synchroniseLocked();
    return Due::Never;
}

bool TextSink::gather(std::basic_string_view<unsigned char> text) {
    // Whoever holds the mutex may be in need of the GIL.
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock || !pendingSince_ || heldSurrogate_ || gathered_.size() + text.size() > gatherLimit ||
        coarseNow() - lastSynchronised_ >= batchTime) {
        return false;
    }
    const auto id = cmddistributor::RequestIdAdapter().getRequestId();
    if (id != gatheredFor_) {
        if (!gathered_.empty()) {
            return false;
        }
        gatheredFor_ = id;
    }
    gathered_.insert(gathered_.end(), text.begin(), text.end());
    return true;
}

void TextSink::replaceSink(boost::shared_ptr<ylutil::io::YLSink> sink, Destination destination) {
    const std::lock_guard lock(mutex_);
    releaseSurrogateLocked();
    if (pendingSince_) {
        synchroniseLocked();
    }
    sink_.swap(sink);
    destination_.store(destination, std::memory_order_relaxed);
}

boost::shared_ptr<ylutil::io::YLSink> TextSink::sink() const {
    const std::lock_guard lock(mutex_);
    return sink_;
}

ylutil::io::SinkTraits TextSink::traits() const {
    const std::lock_guard lock(mutex_);
    return sink_ != nullptr ? sink_->traits() : ylutil::io::SinkTraits();
}

void TextSink::synchronise(HeldSurrogate held) {
    const SinkTexts::Firing firing(texts_);
    const std::lock_guard lock(mutex_);
    if (sink_ == nullptr) {
        return;
    }
    if (held == HeldSurrogate::Release) {
        releaseSurrogateLocked();
    }
    if (pendingSince_) {
        synchroniseLocked();
    }
}

void TextSink::releaseSurrogateLocked() {
    if (sink_ != nullptr && heldSurrogate_) {
        const char16_t unit = *heldSurrogate_;
        heldSurrogate_.reset();
        putLocked({&unit, 1});
        pendingSince_ = Clock::now();
    }
}

void TextSink::putGatheredLocked() {
    if (gathered_.empty()) {
        return;
    }
    const cmddistributor::RequestIdScope writer(gatheredFor_);
    putLocked({gathered_.data(), gathered_.size()});
    gathered_.clear();
}

void TextSink::putLocked(std::u16string_view text) {
    try {
        sink_->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Writing text failed: " << boost::current_exception_diagnostic_information();
    }
    if (destination_ != Destination::OwnStream) {
        copyLocked(text);
    }
    if (texts_ != nullptr) {
        texts_->add(stream_, text);
    }
}

void TextSink::copyLocked(std::u16string_view text) {
    using ylutil::io::ActiveCmdWinSinkBufferProxy;
    const char16_t* const units = text.data();
    const auto count = static_cast<long long>(text.size());
    if (sink_->traits().useLogging()) {
        ActiveCmdWinSinkBufferProxy::logLog(units, count, false);
    }
    if (sink_->traits().useDiary()) {
        ActiveCmdWinSinkBufferProxy::logDiary(units, count, false);
    }
}

void TextSink::synchroniseLocked() {
    putGatheredLocked();
    pendingSince_.reset();
    lastSynchronised_ = Clock::now();
    try {
        if (sink_->buffer().pubsync() != 0) {
            FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                << "Synchronising text failed: the stream buffer refused";
        }
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Synchronising text failed: " << boost::current_exception_diagnostic_information();
    }
    if (texts_ != nullptr) {
        texts_->hasLeft();
    }
}

}  // namespace yvm::engine
