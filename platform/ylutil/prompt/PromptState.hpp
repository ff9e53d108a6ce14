#pragma once

#include <string_view>

namespace ylutil::prompt {

/// What the engine's prompt does.
enum class PromptState {
    busy,    ///< a command runs
    idle,    ///< nothing runs; the prompt waits for commands
    paused,  ///< a command pauses or waits for a line of input
    debug    ///< a command stands still in the debugger
};

/// "busy", "idle", "paused" or "debug", as clients read it.
std::string_view toString(PromptState state) noexcept;

}  // namespace ylutil::prompt
