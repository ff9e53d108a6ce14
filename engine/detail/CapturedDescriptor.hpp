#pragma once

#include <string>
#include <string_view>

namespace yvm::engine {

/// One descriptor of the process, led into a pipe, and what has come out of that so far.
///
/// Not safe for use from several threads at once.
class CapturedDescriptor {
  public:
    /// Throws `std::system_error` when there are no descriptors left.
    explicit CapturedDescriptor(int descriptor);
    /// Puts the original back. What is still unread is lost, and whoever still writes to the pipe fails.
    ~CapturedDescriptor();
    CapturedDescriptor(const CapturedDescriptor&) = delete;
    CapturedDescriptor& operator=(const CapturedDescriptor&) = delete;

    /// What the descriptor was; -1 if it was not open.
    int original() const noexcept { return original_; }
    int readEnd() const noexcept { return readEnd_; }

    /// How many bytes wait to be read.
    std::size_t unread() const noexcept;
    /// Reads, without waiting, at most `limit` bytes, and returns them as 16-bit text: bad UTF-8 as U+FFFD, a
    /// character that is not complete is kept for the next time.
    std::u16string read(std::size_t limit);
    /// The text of a character that was never completed: nothing is to follow.
    std::u16string takeIncomplete();

  private:
    const int descriptor_;
    const int original_;
    int readEnd_ = -1;
    std::string incomplete_;
};

}  // namespace yvm::engine
