// The entry point of libFuzzer.

#include "fuzzRepair.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzRepair({reinterpret_cast<const char*>(data), size});
    return 0;
}
