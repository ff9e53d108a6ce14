#pragma once

#include <string_view>

/// What a fuzzer does with one input. Each ends the program with a message on stderr when an invariant is
/// broken.

/// Parses `text`, beside simdjson where that accepts it too, and prints and parses again what came of it.
void fuzzParser(std::string_view text);

/// Reads `text` as an array, and writes and reads both forms of what came of it.
void fuzzArrays(std::string_view text);
