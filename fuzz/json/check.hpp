#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/// Ends the program, which is how a fuzzer reports, unless `holds`.
inline void check(bool holds, const char* claim, std::string_view text) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n%.*s\n", claim, static_cast<int>(text.size()), text.data());
        std::abort();
    }
}
