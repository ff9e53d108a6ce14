#include "engine/detail/TextSink.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"

#include <boost/exception/diagnostic_information.hpp>

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

}  // namespace

void TextSink::write(std::u16string_view text) {
    if (text.empty()) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (sink_ == nullptr) {
        return;
    }
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
    putLocked(text);
    if (pending_ && Clock::now() - lastSynchronised_ >= batchTime) {
        synchroniseLocked();
    }
}

void TextSink::replaceSink(boost::shared_ptr<ylutil::io::YLSink> sink) {
    const std::lock_guard lock(mutex_);
    if (pending_) {
        synchroniseLocked();
    }
    sink_.swap(sink);
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
    const std::lock_guard lock(mutex_);
    if (sink_ == nullptr) {
        return;
    }
    if (held == HeldSurrogate::Release && heldSurrogate_) {
        const char16_t unit = *heldSurrogate_;
        heldSurrogate_.reset();
        putLocked({&unit, 1});
    }
    if (pending_) {
        synchroniseLocked();
    }
}

void TextSink::putLocked(std::u16string_view text) {
    if (text.empty()) {
        return;
    }
    pending_ = true;
    try {
        sink_->buffer().sputn(text.data(), static_cast<std::streamsize>(text.size()));
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Writing text failed: " << boost::current_exception_diagnostic_information();
    }
    if (copies_ == Copies::Here) {
        copyLocked(text);
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
    pending_ = false;
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
}

}  // namespace yvm::engine
