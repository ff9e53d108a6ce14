#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"

#include <memory>
#include <mutex>
#include <utility>

namespace ylutil::io {
namespace {

using Receiver = ActiveCmdWinSinkBufferProxy::Receiver;

struct Receivers {
    Receiver log;
    Receiver diary;
};

std::mutex mutex;
std::shared_ptr<const Receivers> installed;  // guarded by mutex

void pass(Receiver Receivers::* which, const char16_t* text, long long count, bool synchronise) {
    std::shared_ptr<const Receivers> receivers;
    {
        const std::lock_guard lock(mutex);
        receivers = installed;
    }
    // Called unlocked: a receiver writes files, and may install others.
    if (receivers && (*receivers).*which) {
        ((*receivers).*which)(std::u16string_view(text, static_cast<std::size_t>(count)), synchronise);
    }
}

}  // namespace

void ActiveCmdWinSinkBufferProxy::logLog(const char16_t* text, long long count, bool synchronise) {
    pass(&Receivers::log, text, count, synchronise);
}

void ActiveCmdWinSinkBufferProxy::logDiary(const char16_t* text, long long count, bool synchronise) {
    pass(&Receivers::diary, text, count, synchronise);
}

void ActiveCmdWinSinkBufferProxy::setReceivers(Receiver log, Receiver diary) {
    auto receivers = std::make_shared<const Receivers>(Receivers{std::move(log), std::move(diary)});
    // The old ones die after the lock is gone, as their destructors are not ours.
    const std::lock_guard lock(mutex);
    installed.swap(receivers);
}

}  // namespace ylutil::io
