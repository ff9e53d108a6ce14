#pragma once

#include <string>
#include <string_view>

namespace ylutil::cmddistributor {

/// The moment of the engine's life at which a waiting command may be taken out of its queue.
///
/// | Mode                         | Runs a command                                                        |
/// |------------------------------|-----------------------------------------------------------------------|
/// | `DEQUEUE_AT_PPE`             | between two bytecodes of a running command, in a pause, at any prompt |
/// | `DEQUEUE_AT_PAUSE`           | while the engine pauses or waits for input, at any prompt             |
/// | `DEQUEUE_AT_PROMPT`          | at any prompt, the debug prompt included                              |
/// | `DEQUEUE_AT_NON_DEBUG_PROMPT`| at the top prompt only                                                |
/// | `DEQUEUE_AT_DEBUG_PROMPT`    | only while stopped in the debugger                                    |
/// | `DEQUEUE_AT_IDLE`            | at the top prompt, when nothing else waits                            |
/// | `DEQUEUE_AT_BOOTSTRAP`       | before the first prompt; later, first of all at the next top prompt   |
struct WhenToDequeue {
    enum Enum : int {
        DEQUEUE_UNKNOWN = 0,
        DEQUEUE_AT_PPE = 1,
        DEQUEUE_AT_PAUSE = 2,
        DEQUEUE_AT_PROMPT = 3,
        DEQUEUE_AT_NON_DEBUG_PROMPT = 4,
        DEQUEUE_AT_DEBUG_PROMPT = 5,
        DEQUEUE_AT_IDLE = 6,
        DEQUEUE_AT_BOOTSTRAP = 7,
    };

    /// The enumerator's own name, for example "DEQUEUE_AT_PROMPT"; "DEQUEUE_UNKNOWN" for any number
    /// outside the table.
    static std::string toString(Enum mode);

    /// The mode of that name, compared exactly. Throws `std::invalid_argument` on a text that names
    /// no mode; "DEQUEUE_UNKNOWN" names mode 0.
    static Enum toWhenToDequeue(std::string_view text);
};

}  // namespace ylutil::cmddistributor
