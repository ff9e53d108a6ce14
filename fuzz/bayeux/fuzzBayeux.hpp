#pragma once

#include <string_view>

/// Reads `text` as the frame of a client and passes the data of its messages through the gate before the
/// module. Ends the program with a message on stderr when an invariant is broken: above all, what the gate
/// lets through must be a text that the module's own parser reads as an object that is not empty.
void fuzzEnvelope(std::string_view text);
