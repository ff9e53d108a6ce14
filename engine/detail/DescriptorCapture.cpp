#include "engine/detail/DescriptorCapture.hpp"

#include "engine/detail/TextSink.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <system_error>
#include <utility>

namespace yvm::engine {

namespace {

constexpr std::size_t chunkSize = std::size_t{64} << 10U;

/// For what runs where nothing but plain descriptors may be touched: a signal of a crash, a forked child.
struct Ends {
    std::atomic<int> original{-1};
    std::atomic<int> readEnd{-1};
};
std::array<Ends, 2> ends;

constexpr std::array<int, 5> crashSignals{SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

/// What the process has said last, in pipes that nobody will read any more.
void copyToOriginals(int signalNumber) {
    std::array<char, 4096> bytes{};
    for (const Ends& end : ends) {
        ssize_t count = 0;
        while ((count = ::read(end.readEnd, bytes.data(), bytes.size())) > 0 &&
               ::write(end.original, bytes.data(), static_cast<std::size_t>(count)) == count) {
        }
    }
    // The handler is gone by SA_RESETHAND.
    ::raise(signalNumber);
}

void copyWhenItCrashes() {
    struct sigaction action{};
    action.sa_handler = &copyToOriginals;
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    for (const int signalNumber : crashSignals) {
        struct sigaction before{};
        // A handler of somebody else, such as a sanitizer's, is left alone.
        if (::sigaction(signalNumber, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
            ::sigaction(signalNumber, &action, nullptr);
        }
    }
}

/// A child that holds the reading end could never learn that the server has gone, and would wait for ever
/// when the pipe is full.
void closeReadEndsInChild() {
    for (Ends& end : ends) {
        if (const int descriptor = end.readEnd.exchange(-1); descriptor >= 0) {
            ::close(descriptor);
        }
    }
}

}  // namespace

DescriptorCapture::DescriptorCapture(Receiver receiver)
    : receiver_(std::move(receiver)), stopEvent_(::eventfd(0, EFD_CLOEXEC)) {
    if (stopEvent_ < 0) {
        throw std::system_error(errno, std::generic_category(), "descriptors cannot be captured");
    }
    // What stands in the buffer was written for the original.
    std::fflush(stdout);
    captured_[0].emplace(STDOUT_FILENO, Stream::Output);
    captured_[1].emplace(STDERR_FILENO, Stream::Error);
    for (std::size_t i = 0; i < ends.size(); ++i) {
        ends[i].original = captured_[i]->pipe.original();
        ends[i].readEnd = captured_[i]->pipe.readEnd();
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    copyWhenItCrashes();
    static const int registered = ::pthread_atfork(nullptr, nullptr, &closeReadEndsInChild);
    if (registered != 0) {
        throw std::system_error(registered, std::generic_category(), "descriptors cannot be captured");
    }
    reader_ = std::thread([this] { run(); });
}

DescriptorCapture::~DescriptorCapture() {
    stop();
    ::close(stopEvent_);
}

void DescriptorCapture::drainToTheEnd() {
    std::fflush(stdout);
    const std::lock_guard lock(mutex_);
    if (stopped_) {
        return;
    }
    drainLocked();
    for (auto& captured : captured_) {
        if (const auto text = captured->pipe.takeIncomplete(); !text.empty()) {
            receiver_(captured->stream, text);
        }
    }
    // Whoever drains to the end synchronises as well.
    mayBePending_ = false;
}

void DescriptorCapture::drain() {
    std::fflush(stdout);
    const std::lock_guard lock(mutex_);
    if (!stopped_) {
        drainLocked();
    }
}

void DescriptorCapture::stop() {
    if (!reader_.joinable()) {
        return;
    }
    drainToTheEnd();
    const std::uint64_t one = 1;
    while (::write(stopEvent_, &one, sizeof one) < 0 && errno == EINTR) {
    }
    reader_.join();
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    for (std::size_t i = 0; i < ends.size(); ++i) {
        ends[i].readEnd = -1;
        captured_[i].reset();
    }
}

void DescriptorCapture::run() {
    pthread_setname_np(pthread_self(), "descriptors");
    std::array<pollfd, 3> waited{{{captured_[0]->pipe.readEnd(), POLLIN, 0},
                                  {captured_[1]->pipe.readEnd(), POLLIN, 0},
                                  {stopEvent_, POLLIN, 0}}};
    bool isPending = false;
    while (waited[2].revents == 0) {
        const int timeout = isPending ? static_cast<int>(TextSink::batchTime.count()) : -1;
        if (::poll(waited.data(), waited.size(), timeout) < 0) {
            continue;  // Interrupted.
        }
        const std::lock_guard lock(mutex_);
        bool hasRead = false;
        for (std::size_t i = 0; i < captured_.size(); ++i) {
            if ((waited[i].revents & POLLIN) != 0) {
                readLocked(*captured_[i], chunkSize);
                hasRead = true;
            }
            if ((waited[i].revents & (POLLHUP | POLLERR)) != 0 && (waited[i].revents & POLLIN) == 0) {
                waited[i].fd = -1;  // Everybody has closed it; nothing will come.
            }
        }
        if (!hasRead && mayBePending_) {
            mayBePending_ = false;
            for (const auto& captured : captured_) {
                receiver_(captured->stream, {});
            }
        }
        isPending = mayBePending_;
    }
}

void DescriptorCapture::readLocked(Captured& captured, std::size_t limit) {
    if (const auto text = captured.pipe.read(limit); !text.empty()) {
        mayBePending_ = true;
        receiver_(captured.stream, text);
    }
}

void DescriptorCapture::drainLocked() {
    for (auto& captured : captured_) {
        // No more than stands there now: a program in the background may write without end.
        for (std::size_t left = captured->pipe.unread(); left > 0;) {
            const std::size_t count = std::min(left, chunkSize);
            readLocked(*captured, count);
            left -= count;
        }
    }
}

}  // namespace yvm::engine
