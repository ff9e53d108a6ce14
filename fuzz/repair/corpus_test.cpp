// Runs the corpus through what the fuzzer does, so that neither rots. A broken invariant ends the program.

#include "fuzzRepair.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

TEST(RepairCorpus, TheRepairKeepsItsInvariantsOnEveryInputAndItsPrefixes) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS_FOLDER)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        SCOPED_TRACE(entry.path().string());
        fuzzRepair(text);
        for (std::size_t length = 0; length < text.size(); ++length) {
            fuzzRepair(std::string_view(text).substr(0, length));
        }
        ++count;
    }
    EXPECT_GT(count, 15U);
}

}  // namespace
