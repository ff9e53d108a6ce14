// The JSON tree and the arrays beside nlohmann/json, RapidJSON, Boost.JSON and simdjson's DOM.
//
// Repetitions of all contenders are interleaved at random and the ratios are those of the medians, so that a
// machine that slows down in between does not decide. A parse includes the destruction of its result.
// simdjson keeps its parser and its memory, as its authors advise; it builds no tree that could be changed.

#include "RatioReporter.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <benchmark/benchmark.h>
#include <boost/json.hpp>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using foundation::json::Object;
using foundation::json::Serializer;
using foundation::json::Value;
using foundation::yorlabdata::ArrayFactory;
using foundation::yorlabjson::ToJsonMode;
namespace conversion = foundation::yorlabdata::json;

constexpr std::size_t million = 1000000;

/// 200 bytes, an eval as clients send it.
std::string requestText() {
    return R"-({"requestID":"c0ffee-47110","command":"x = linspace(0, 1, 101); y = sin(x); y.sum()","isUserEval":true,)-"
           R"-("runOptions":{"dequeueMode":"DEQUEUE_AT_PROMPT","queueName":"live plots","useNullOutSink":false}})-";
}

/// About a megabyte of records with texts, numbers, flags and nested arrays.
std::string mixedText() {
    std::mt19937_64 random(3);
    Object records;
    for (int i = 0; i < 3700; ++i) {
        foundation::json::Array samples;
        for (int k = 0; k < 8; ++k) {
            samples.emplace_back(static_cast<double>(random() % 1000000) / 1000);
        }
        const std::string number = std::to_string(random() % 1000000);
        records.emplace("sensor" + number,
                        Object{{"name", "Temperature of tank " + number},
                               {"unit", "\u00b0C"},
                               {"position", Object{{"x", static_cast<double>(random() >> 11) * 0x1p-53},
                                                   {"y", static_cast<double>(random() >> 11) * 0x1p-53}}},
                               {"enabled", random() % 2 == 0},
                               {"note", "last seen \"well\"\n"},
                               {"parent", foundation::json::Null()},
                               {"count", static_cast<std::int64_t>(random() % 100000)},
                               {"samples", std::move(samples)}});
    }
    return Serializer::serialize(std::move(records));
}

/// Between 0 and 1, with all the digits that a double can have.
std::vector<double> fullDoubles() {
    std::mt19937_64 random(1);
    std::vector<double> numbers(million);
    for (double& number : numbers) {
        number = static_cast<double>(random() >> 11) * 0x1p-53;
    }
    return numbers;
}

/// With two to five digits, as prices and readings have them.
std::vector<double> shortDoubles() {
    std::mt19937_64 random(2);
    std::vector<double> numbers(million);
    for (double& number : numbers) {
        number = static_cast<double>(random() % 100000) / 100;
    }
    return numbers;
}

foundation::yorlabdata::Array toArray(const std::vector<double>& numbers) {
    return ArrayFactory().createArray<double>({1000, 1000}, numbers);
}

std::string numbersText(const std::vector<double>& numbers) {
    std::string text = "[";
    for (const double number : numbers) {
        Serializer::append(text, number);
        text += ',';
    }
    text.back() = ']';
    return text;
}

std::string argumentText(const std::vector<double>& numbers) {
    return R"({"ywtype":"float64","ywsize":[1000,1000],"ywdata":)" + numbersText(numbers) + "}";
}

void registerParsers(const std::string& task, const std::string& text) {
    const auto add = [&](const std::string& contender, auto parse) {
        benchmark::RegisterBenchmark((task + "/" + contender).c_str(),
                                     [parse, text](benchmark::State& state) mutable {
                                         for ([[maybe_unused]] const auto iteration : state) {
                                             parse(text);
                                         }
                                     });
    };
    add("yvm",
        [](const std::string& input) { benchmark::DoNotOptimize(foundation::json::parseText(input)); });
    add("nlohmann", [](const std::string& input) { benchmark::DoNotOptimize(nlohmann::json::parse(input)); });
    add("RapidJSON", [](const std::string& input) {
        rapidjson::Document document;
        document.Parse(input.data(), input.size());
        benchmark::DoNotOptimize(document);
    });
    add("Boost.JSON", [](const std::string& input) { benchmark::DoNotOptimize(boost::json::parse(input)); });
    benchmark::RegisterBenchmark((task + "/simdjson DOM").c_str(), [text](benchmark::State& state) {
        simdjson::dom::parser parser;
        const simdjson::padded_string padded(text);
        for ([[maybe_unused]] const auto iteration : state) {
            benchmark::DoNotOptimize(parser.parse(padded).value());
        }
    });
}

void registerArgument(const std::string& task, const std::string& text) {
    benchmark::RegisterBenchmark((task + "/yvm").c_str(), [text](benchmark::State& state) {
        const ArrayFactory factory;
        for ([[maybe_unused]] const auto iteration : state) {
            benchmark::DoNotOptimize(conversion::string_to_yorlabdata(text, factory));
        }
    });
    benchmark::RegisterBenchmark((task + "/simdjson DOM").c_str(), [text](benchmark::State& state) {
        simdjson::dom::parser parser;
        const simdjson::padded_string padded(text);
        for ([[maybe_unused]] const auto iteration : state) {
            benchmark::DoNotOptimize(parser.parse(padded).value());
        }
    });
}

/// Ours starts at the array and so builds its tree first; the peers start at a tree that is there.
void registerResult(const std::string& task, const std::vector<double>& numbers) {
    benchmark::RegisterBenchmark(
        (task + "/yvm").c_str(), [array = toArray(numbers)](benchmark::State& state) {
            for ([[maybe_unused]] const auto iteration : state) {
                benchmark::DoNotOptimize(
                    Serializer::serialize(conversion::yorlabdata_to_json(array, ToJsonMode::preferYDAShort)));
            }
        });
    benchmark::RegisterBenchmark((task + "/Boost.JSON").c_str(), [numbers](benchmark::State& state) {
        const boost::json::value tree(boost::json::array(numbers.begin(), numbers.end()));
        for ([[maybe_unused]] const auto iteration : state) {
            benchmark::DoNotOptimize(boost::json::serialize(tree));
        }
    });
    benchmark::RegisterBenchmark((task + "/nlohmann").c_str(), [numbers](benchmark::State& state) {
        const nlohmann::json tree(numbers);
        for ([[maybe_unused]] const auto iteration : state) {
            benchmark::DoNotOptimize(tree.dump());
        }
    });
}

std::size_t heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void printSizes(const std::string& text) {
    const std::size_t before = heapBytes();
    const Value value = foundation::json::parseText(text);
    std::printf("one value takes %zu bytes; %zu doubles in an array take %.2f bytes each (%zu in all)\n",
                sizeof(Value), value.get<foundation::json::Array>().size(),
                static_cast<double>(heapBytes() - before) / static_cast<double>(million),
                heapBytes() - before);
}

/// Whether the numbers of the array survive the text bit by bit.
bool roundTrips(const std::vector<double>& numbers) {
    const auto array = toArray(numbers);
    const std::string text =
        Serializer::serialize(conversion::yorlabdata_to_json(array, ToJsonMode::preferYDAShort));
    return conversion::string_to_yorlabdata(text, ArrayFactory()) == array;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<double> full = fullDoubles();
    const std::vector<double> few = shortDoubles();
    if (!roundTrips(full) || !roundTrips(few)) {
        std::fprintf(stderr, "json_bench: the numbers do not survive their text\n");
        return 1;
    }
    printSizes(numbersText(full));
    const std::string request = requestText();
    const std::string mixed = mixedText();
    std::printf("request of %zu bytes, mixed object of %zu bytes\n", request.size(), mixed.size());

    registerParsers("parse a request", request);
    registerParsers("parse a mixed object", mixed);
    registerParsers("parse 1000000 doubles", numbersText(full));
    registerParsers("parse 1000000 short doubles", numbersText(few));
    registerArgument("argument text to array, 1000000 doubles", argumentText(full));
    registerArgument("argument text to array, 1000000 short doubles", argumentText(few));
    registerResult("array to result text, 1000000 doubles", full);
    registerResult("array to result text, 1000000 short doubles", few);

    // Defaults, which the command line may override.
    std::vector<char*> arguments{argv[0]};
    std::string repetitions = "--benchmark_repetitions=9";
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    std::string minTime = "--benchmark_min_time=0.05";
    for (std::string* argument : {&repetitions, &interleave, &minTime}) {
        arguments.push_back(argument->data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
