#pragma once

namespace ylutil::cmddistributor {

/// How far a command had come when it failed. The numbers travel to clients in the `status` member
/// of an error.
enum class inExecutionStatus : int {
    CommandFailed = 1,   ///< the command ran and raised an error
    Unclassified = 2,    ///< a failure that is not known to be any of the others
    Cancelled = 3,       ///< cancelled while it waited, or stopped while it ran
    ShuttingDown = 4,    ///< the engine ended before the command did
    RequestInvalid = 5,  ///< the request itself was at fault; nothing ran
};

}  // namespace ylutil::cmddistributor
