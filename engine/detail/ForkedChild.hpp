#pragma once

#include "ylutil/io/StreamTypeEnum.hpp"

#include <string_view>

namespace yvm::engine {

/// What a process is that a command forked: a copy of this one with a single thread, whose locks may be held
/// for ever by threads that it does not have, and which shares every socket and pipe of the server. It must
/// touch none of them.
class ForkedChild {
  public:
    /// Whether this process is such a child.
    static bool isThis() noexcept;

    /// Has every child marked that this process forks from now on, before anything else runs in it: the
    /// interpreter's own work after a fork lets go of objects of this engine already. Throws
    /// `std::system_error` when there is no memory for it.
    static void markFromNowOn();

    /// Called in the child right after the fork, on its one thread, with the GIL held: gives SIGINT and
    /// SIGTERM their default effect. Otherwise a handler of the server would run in the child and tell the
    /// server, through a pipe that both share, that it was asked to stop.
    static void restoreSignals() noexcept;

    /// Writes text as UTF-8 to the descriptor that the child inherited: its only stream.
    static void write(ylutil::io::StreamTypeEnum stream, std::u16string_view text) noexcept;
};

}  // namespace yvm::engine
