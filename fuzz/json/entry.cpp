// The entry point of libFuzzer; FUZZ_FUNCTION is one of fuzzJson.hpp.

#include "fuzzJson.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FUZZ_FUNCTION({reinterpret_cast<const char*>(data), size});
    return 0;
}
