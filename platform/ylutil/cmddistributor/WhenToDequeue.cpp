#include "ylutil/cmddistributor/WhenToDequeue.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace ylutil::cmddistributor {
namespace {

/// The place of a name is the number of its mode.
constexpr std::array<std::string_view, 8> names = {
    "DEQUEUE_UNKNOWN",
    "DEQUEUE_AT_PPE",
    "DEQUEUE_AT_PAUSE",
    "DEQUEUE_AT_PROMPT",
    "DEQUEUE_AT_NON_DEBUG_PROMPT",
    "DEQUEUE_AT_DEBUG_PROMPT",
    "DEQUEUE_AT_IDLE",
    "DEQUEUE_AT_BOOTSTRAP",
};

}  // namespace

std::string WhenToDequeue::toString(Enum mode) {
    const auto number = static_cast<int>(mode);
    const bool known = number >= 0 && number < static_cast<int>(names.size());
    return std::string(names[known ? static_cast<std::size_t>(number) : 0]);
}

WhenToDequeue::Enum WhenToDequeue::toWhenToDequeue(std::string_view text) {
    const auto* const found = std::ranges::find(names, text);
    if (found == names.end()) {
        std::string message = "\"" + std::string(text) + "\" is no dequeue mode; accepted are";
        for (const auto name : names) {
            message.append(" ").append(name);
        }
        throw std::invalid_argument(message);
    }
    return static_cast<Enum>(found - names.begin());
}

}  // namespace ylutil::cmddistributor
