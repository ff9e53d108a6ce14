#pragma once

namespace foundation::log {

/// The severity flags of a record. Each record carries one; a logger's mask is their union.
enum Severity : unsigned {
    LookupDetail = 2,      ///< detail of lookups and of teardown
    Normal = 8,            ///< normal events
    CaughtException = 16,  ///< an exception was caught and ends here
    FunctionEntry = 32,
    FunctionExit = 64,
    RefusedEngine = 512,  ///< a client asked for an engine that is not served
};

}  // namespace foundation::log
