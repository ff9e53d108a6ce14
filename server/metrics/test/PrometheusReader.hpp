#pragma once

// Not the standard library's, which this compiler takes for uninitialised under a sanitizer.
#include <boost/regex.hpp>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

namespace server::metrics::testing {

/// Reads the text format as a scraper does, and fails the test where it is broken: names, escapes, numbers,
/// families that are not announced or not in one piece, repeated samples. Gives the numbers as they are
/// written, by name and labels.
inline std::map<std::string, std::string> readPrometheus(const std::string& text) {
    static const boost::regex help("# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) ([^\\\\\n]|\\\\\\\\|\\\\n)*");
    static const boost::regex type("# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge|histogram)");
    static const std::string label("[a-zA-Z_][a-zA-Z0-9_]*=\"([^\\\\\"\n]|\\\\\\\\|\\\\\"|\\\\n)*\"");
    static const boost::regex sample("(([a-zA-Z_:][a-zA-Z0-9_:]*)(\\{" + label + "(," + label +
                                     ")*\\})?) ([0-9]+(\\.[0-9]+)?)");
    std::map<std::string, std::string> samples;
    std::set<std::string> families;
    std::string family;
    std::string kind;
    EXPECT_TRUE(text.ends_with('\n')) << "the last line is cut";
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        boost::smatch match;
        if (boost::regex_match(line, match, help)) {
            family = match[1];
            kind.clear();
            EXPECT_TRUE(families.insert(family).second) << "a second time: " << line;
        } else if (boost::regex_match(line, match, type)) {
            EXPECT_EQ(match[1], family) << line;
            kind = match[2];
        } else if (boost::regex_match(line, match, sample)) {
            const std::string name = match[2];
            const std::string suffix = name.starts_with(family) ? name.substr(family.size()) : "foreign";
            const bool isOfHistogram = suffix == "_bucket" || suffix == "_sum" || suffix == "_count";
            EXPECT_TRUE(kind == "histogram" ? isOfHistogram : suffix.empty()) << line;
            EXPECT_FALSE(kind.empty()) << "no type: " << line;
            EXPECT_EQ(kind == "counter", family.ends_with("_total")) << line;
            EXPECT_TRUE(samples.emplace(match[1], match[match.size() - 2]).second) << "twice: " << line;
        } else {
            ADD_FAILURE() << "no line of the format: " << line;
        }
    }
    return samples;
}

}  // namespace server::metrics::testing
