#include "engine/detail/CapturedDescriptor.hpp"

#include "fl/i18n/ustring.hpp"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace yvm::engine {

namespace {

/// Room for a burst of a program while nobody reads. What an ordinary process may ask for.
constexpr int pipeSize = 1 << 20;

/// Out of the way of programs that expect certain low numbers.
constexpr int firstOwnDescriptor = 100;

/// How long the start of a character at the end of `text` is which lacks its rest; 0 if there is none.
std::size_t incompleteTail(std::string_view text) {
    for (std::size_t length = 1; length <= std::min<std::size_t>(3, text.size()); ++length) {
        const auto byte = static_cast<unsigned char>(text[text.size() - length]);
        if ((byte & 0xC0U) != 0x80U) {
            const std::size_t expected = byte >= 0xF0U ? 4 : byte >= 0xE0U ? 3 : byte >= 0xC0U ? 2 : 1;
            return expected > length ? length : 0;
        }
    }
    return 0;
}

}  // namespace

CapturedDescriptor::CapturedDescriptor(int descriptor)
    : descriptor_(descriptor), original_(::fcntl(descriptor, F_DUPFD_CLOEXEC, firstOwnDescriptor)) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        const int error = errno;
        ::close(original_);
        throw std::system_error(error, std::generic_category(), "a descriptor cannot be captured");
    }
    readEnd_ = ::fcntl(ends[0], F_DUPFD_CLOEXEC, firstOwnDescriptor);
    ::close(ends[0]);
    ::fcntl(readEnd_, F_SETFL, O_NONBLOCK);
    ::fcntl(readEnd_, F_SETPIPE_SZ, pipeSize);  // Refused, the usual size serves as well.
    ::dup2(ends[1], descriptor_);
    ::close(ends[1]);
}

CapturedDescriptor::~CapturedDescriptor() {
    if (original_ >= 0) {
        ::dup2(original_, descriptor_);
        ::close(original_);
    } else {
        ::close(descriptor_);
    }
    ::close(readEnd_);
}

std::size_t CapturedDescriptor::unread() const noexcept {
    int count = 0;
    return ::ioctl(readEnd_, FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::u16string CapturedDescriptor::read(std::size_t limit) {
    std::string bytes = std::exchange(incomplete_, {});
    const std::size_t kept = bytes.size();
    bytes.resize(kept + limit);
    ssize_t count = 0;
    do {
        count = ::read(readEnd_, bytes.data() + kept, limit);
    } while (count < 0 && errno == EINTR);
    bytes.resize(kept + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    const std::size_t tail = incompleteTail(bytes);
    incomplete_ = bytes.substr(bytes.size() - tail);
    bytes.resize(bytes.size() - tail);
    return fl::i18n::to_ustring(bytes);
}

std::u16string CapturedDescriptor::takeIncomplete() {
    return fl::i18n::to_ustring(std::exchange(incomplete_, {}));
}

}  // namespace yvm::engine
