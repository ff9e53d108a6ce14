// Runs the table of texts in data/grammar_cases.tsv through the parser. Every failure of a text is followed
// by the edit that the channel layer makes to find the request's identifier, so that the damaged texts are
// inputs as well.

#include "foundation/json/Parser.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::json {
namespace {

struct GrammarCase {
    int line;
    std::string input;
    std::string result;
    std::vector<std::string> failures;
};

std::string unescape(const std::string& field) {
    std::string bytes;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            bytes += field[i];
        } else if (field.at(i + 1) == 'x') {
            bytes += static_cast<char>(std::stoi(field.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else {
            bytes += field.at(++i);
        }
    }
    return bytes;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::vector<GrammarCase> readCases() {
    std::ifstream file(GRAMMAR_CASES_FILE);
    std::vector<GrammarCase> cases;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.starts_with("# ")) {
            continue;
        }
        const std::vector<std::string> fields = split(line, '\t');
        if (fields.size() != 4) {
            throw std::runtime_error("line " + std::to_string(number) + " has not four fields");
        }
        cases.push_back({number, unescape(fields[0]), fields[1],
                         fields[3] == "-" ? std::vector<std::string>{} : split(fields[3], ' ')});
    }
    return cases;
}

enum class Outcome { parsed, failed, conversionError };

struct Attempt {
    Outcome outcome;
    JsonParseResult result = {};
};

/// Parses the whole of `text`; what is left over behind the value is a failure with code 0.
Attempt attempt(const std::string& text) {
    Value value;
    try {
        const JsonParseResult result = parse(text.data(), text.data() + text.size(), value);
        const bool parsed = result.ok() && result.offset == text.size();
        return {parsed ? Outcome::parsed : Outcome::failed, result};
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("invalid conversion: "));
        return {Outcome::conversionError};
    }
}

std::string describe(const Attempt& attempt) {
    switch (attempt.outcome) {
        case Outcome::parsed:
            return "ok -";
        case Outcome::conversionError:
            return "conv -";
        case Outcome::failed:
            break;
    }
    return std::to_string(static_cast<int>(attempt.result.code)) + " " +
           std::to_string(attempt.result.offset);
}

/// Edits `text` for another attempt. Returns whether that changed anything.
bool repair(std::string& text, const JsonParseResult& failure) {
    switch (failure.code) {
        case ParseResult::invalidUnicodeEscape:
            text.erase(failure.offset, 1);
            return true;
        case ParseResult::expectedString:
            text.insert(failure.offset, "\"");
            return true;
        case ParseResult::expectedColon:
            text.insert(failure.offset, ":");
            return true;
        default:
            return false;
    }
}

std::vector<std::string> failuresUnderRepair(std::string text) {
    std::vector<std::string> failures;
    for (;;) {
        const Attempt now = attempt(text);
        if (now.outcome != Outcome::failed) {
            return failures;
        }
        failures.push_back(std::to_string(static_cast<int>(now.result.code)) + "@" +
                           std::to_string(now.result.offset));
        if (!repair(text, now.result)) {
            return failures;
        }
    }
}

TEST(GrammarCases, TheTableIsRead) {
    EXPECT_GT(readCases().size(), 400u);
}

TEST(GrammarCases, EachTextGivesItsCodeAndOffset) {
    for (const GrammarCase& c : readCases()) {
        EXPECT_EQ(describe(attempt(c.input)), c.result) << "line " << c.line << ": " << c.input;
    }
}

TEST(GrammarCases, EachRepairMeetsTheSameFailures) {
    for (const GrammarCase& c : readCases()) {
        EXPECT_EQ(failuresUnderRepair(c.input), c.failures) << "line " << c.line << ": " << c.input;
    }
}

}  // namespace
}  // namespace foundation::json
