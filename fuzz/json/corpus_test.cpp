// Runs the corpora through what the fuzzers do, so that neither rots. A broken invariant ends the program.

#include "fuzzJson.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

/// Returns the number of inputs.
std::size_t runCorpus(const std::string& name, void (*fuzz)(std::string_view)) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(CORPUS_FOLDER "/") + name)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        SCOPED_TRACE(entry.path().string());
        fuzz(text);
        for (std::size_t length = 0; length < text.size(); ++length) {
            fuzz(std::string_view(text).substr(0, length));
        }
        ++count;
    }
    return count;
}

TEST(JsonCorpus, ParserKeepsItsInvariantsOnEveryInputAndItsPrefixes) {
    EXPECT_GT(runCorpus("parser", fuzzParser), 20u);
}

TEST(JsonCorpus, ArraysKeepTheirInvariantsOnEveryInputAndItsPrefixes) {
    EXPECT_GT(runCorpus("arrays", fuzzArrays), 20u);
}

}  // namespace
