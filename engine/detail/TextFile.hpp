#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

namespace yvm::engine {

/// A file, UTF-8, to which text is appended as it is written: nothing waits in memory, so whoever reads the
/// file sees it at once. Before it grows beyond its limit it is renamed, with ".1" at the end of its name, in
/// place of the one before, and a new one is begun; so the two hold at most twice the limit and one text.
///
/// Nothing is created before the first text. A file that was removed or renamed by others is begun anew, soon
/// after. A failure (no folder, no space, no right) loses the text that was to be written, is logged once,
/// and the next text tries again.
///
/// Safe from any thread; never waits but for the disk, nor for the reader of a pipe that stands in the file's
/// place. Its mutex is a leaf.
class TextFile {
  public:
    static constexpr std::uint64_t defaultLimit = std::uint64_t{16} << 20U;

    enum class Lines { Plain, WithTimes };

    /// `WithTimes` begins each line with the time, UTC. `limit` is in bytes.
    TextFile(std::filesystem::path path, Lines lines, std::uint64_t limit = defaultLimit);
    ~TextFile();
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    void write(std::u16string_view text) noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    std::string format(std::u16string_view text);
    /// Throws `std::system_error`.
    void append(std::string_view utf8);
    void openUnlessOpen();
    void close() noexcept;

    const std::filesystem::path path_;
    const Lines lines_;
    const std::uint64_t limit_;

    std::mutex mutex_;
    // Guarded by mutex_.
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
    Clock::time_point nextLook_;
    bool isAtLineStart_ = true;
    bool hasFailed_ = false;
};

}  // namespace yvm::engine
