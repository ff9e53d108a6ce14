#pragma once

#include <string_view>

/// Sends `text` to a request channel and compares what becomes of it with what the repair of damaged
/// requests, taken step by step, foretells. Texts on which the channel never returns are recognised by the
/// steps and not sent. Ends the program with a message on stderr when an invariant is broken.
void fuzzRepair(std::string_view text);
