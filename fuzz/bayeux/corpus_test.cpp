// Runs the corpus through what the fuzzer does, so that neither rots. A broken invariant ends the program.

#include "fuzzBayeux.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

TEST(BayeuxCorpus, TheEnvelopeKeepsItsInvariantsOnEveryInputAndItsPrefixes) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS_FOLDER)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        fuzzEnvelope(text);
        for (std::size_t length = 0; length < text.size(); ++length) {
            fuzzEnvelope(std::string_view(text).substr(0, length));
        }
        ++count;
    }
    EXPECT_GT(count, 20U);
}

}  // namespace
