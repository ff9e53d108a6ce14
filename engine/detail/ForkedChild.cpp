#include "engine/detail/ForkedChild.hpp"

#include "fl/i18n/ustring.hpp"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <string>
#include <system_error>

namespace yvm::engine {

namespace {

// Written while the process has one thread.
bool isForkedChild = false;

}  // namespace

bool ForkedChild::isThis() noexcept {
    return isForkedChild;
}

void ForkedChild::markFromNowOn() {
    const int error = pthread_atfork(nullptr, nullptr, [] { isForkedChild = true; });
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "forked children cannot be marked");
    }
}

void ForkedChild::restoreSignals() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM}) {
        std::signal(signal, SIG_DFL);
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void ForkedChild::write(ylutil::io::StreamTypeEnum stream, std::u16string_view text) noexcept {
    std::string utf8;
    try {
        utf8 = fl::i18n::to_string(text);
    } catch (const std::exception&) {
        return;  // No memory for the text, and nobody to tell.
    }
    const int descriptor = stream == ylutil::io::StreamTypeEnum::Error ? STDERR_FILENO : STDOUT_FILENO;
    std::string_view rest = utf8;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor, rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;  // A closed descriptor takes no text, as for any process.
        }
    }
}

}  // namespace yvm::engine
