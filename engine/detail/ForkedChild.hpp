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

    /// Called in the child right after the fork, on its one thread, with the GIL held: marks the process and
    /// gives SIGINT and SIGTERM their default effect. Otherwise a handler of the server would run in the
    /// child and tell the server, through a pipe that both share, that it was asked to stop.
    static void enter() noexcept;

    /// Writes text as UTF-8 to the descriptor that the child inherited: its only stream.
    static void write(ylutil::io::StreamTypeEnum stream, std::u16string_view text) noexcept;
};

}  // namespace yvm::engine
