#pragma once

#include <functional>
#include <string_view>

namespace ylutil::io {

/// Copies text to the engine's diary and log, whoever writes it.
///
/// The engine installs the two receivers; while none is installed the text is dropped, which is not
/// an error. Safe from any thread; a receiver is called on the writing thread.
class ActiveCmdWinSinkBufferProxy {
  public:
    /// `text` need not be terminated; `count` is in 16-bit units. `synchronise` asks the receiver to
    /// bring the text to its file before it returns.
    static void logLog(const char16_t* text, long long count, bool synchronise);
    static void logDiary(const char16_t* text, long long count, bool synchronise);

    using Receiver = std::function<void(std::u16string_view text, bool synchronise)>;

    /// Either may be empty. Replaces what was installed before.
    static void setReceivers(Receiver log, Receiver diary);
};

}  // namespace ylutil::io
