#include "engine/detail/TextFile.hpp"

#include "fl/i18n/ustring.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>

namespace yvm::engine {

namespace {

foundation::log::diagnostic_logger& logger() {
    static auto& instance = *new foundation::log::diagnostic_logger("yvm::engine::TextFile");
    return instance;
}

/// How often it is looked whether the file is still where it was: each time would double the cost of a write.
constexpr std::chrono::milliseconds lookAgain{100};

[[noreturn]] void throwErrno() {
    throw std::system_error(errno, std::generic_category());
}

/// Such as "2026-01-31T09:15:00.250Z ".
std::string timeNow() {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const std::time_t seconds = system_clock::to_time_t(now);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    const auto milliseconds = static_cast<int>(now.time_since_epoch().count() % 1000);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ ", milliseconds);
    return text.data();
}

}  // namespace

TextFile::TextFile(std::filesystem::path path, Lines lines, std::uint64_t limit)
    : path_(std::move(path)), lines_(lines), limit_(limit) {}

TextFile::~TextFile() {
    close();
}

void TextFile::write(std::u16string_view text) noexcept {
    if (text.empty()) {
        return;
    }
    const std::lock_guard lock(mutex_);
    try {
        append(format(text));
        hasFailed_ = false;
    } catch (const std::exception& error) {
        if (!std::exchange(hasFailed_, true)) {
            FOUNDATION_LOG(logger(), foundation::log::CaughtException)
                << "Text is lost that was to be copied to " << path_.string() << ": " << error.what();
        }
        close();
        isAtLineStart_ = true;
    }
}

std::string TextFile::format(std::u16string_view text) {
    std::string utf8 = fl::i18n::to_string(text);
    if (lines_ == Lines::Plain) {
        return utf8;
    }
    std::string result;
    for (std::string_view rest = utf8; !rest.empty();) {
        const std::size_t end = rest.find('\n');
        const auto piece = end == std::string_view::npos ? rest : rest.substr(0, end + 1);
        if (isAtLineStart_) {
            result += timeNow();
        }
        result += piece;
        isAtLineStart_ = piece.back() == '\n';
        rest.remove_prefix(piece.size());
    }
    return result;
}

void TextFile::append(std::string_view utf8) {
    openUnlessOpen();
    if (size_ > 0 && size_ + utf8.size() > limit_) {
        close();
        std::error_code error;
        std::filesystem::rename(path_, path_.string() + ".1", error);
        if (error && error != std::errc::no_such_file_or_directory) {
            throw std::system_error(error);
        }
        openUnlessOpen();
    }
    while (!utf8.empty()) {
        const ssize_t written = ::write(descriptor_, utf8.data(), utf8.size());
        if (written < 0 && errno != EINTR) {
            throwErrno();
        }
        const std::size_t taken = written < 0 ? 0 : static_cast<std::size_t>(written);
        utf8.remove_prefix(taken);
        size_ += taken;
    }
}

void TextFile::openUnlessOpen() {
    struct stat open{};
    struct stat named{};
    const auto now = Clock::now();
    if (descriptor_ >= 0 && now < nextLook_) {
        return;
    }
    nextLook_ = now + lookAgain;
    if (descriptor_ >= 0 && ::fstat(descriptor_, &open) == 0 && ::stat(path_.c_str(), &named) == 0 &&
        open.st_ino == named.st_ino && open.st_dev == named.st_dev) {
        return;
    }
    close();
    // What the users of the engine print is for nobody else who has an account on the machine.
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    descriptor_ =
        ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, ownerOnly);
    if (descriptor_ < 0 || ::fstat(descriptor_, &open) != 0) {
        throwErrno();
    }
    size_ = static_cast<std::uint64_t>(open.st_size);
}

void TextFile::close() noexcept {
    if (descriptor_ >= 0) {
        ::close(std::exchange(descriptor_, -1));
    }
}

}  // namespace yvm::engine
