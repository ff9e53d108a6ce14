#include "foundation/msg_svc/threadutil/ConcurrentTBBHashMap.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace foundation::msg_svc::threadutil {
namespace {

using TextMap = ConcurrentTBBHashMap<std::string, std::string>;

boost::function<std::string()> make(const char* text) {
    return [text] { return std::string(text); };
}

TEST(ConcurrentTBBHashMapTest, FindReturnsACopyAndLeavesTheEntry) {
    TextMap map;
    EXPECT_EQ(map.find("a"), std::nullopt);
    map.findOrInsert("a", make("1"));
    EXPECT_EQ(map.find("a"), "1");
    EXPECT_EQ(map.find("a"), "1");
    EXPECT_EQ(map.size(), 1U);
}

TEST(ConcurrentTBBHashMapTest, FindOrInsertKeepsTheFirstValueAndDoesNotCallTheFactoryAgain) {
    TextMap map;
    EXPECT_EQ(map.findOrInsert("a", make("1")), "1");
    const auto forbidden = []() -> std::string { throw std::logic_error("called"); };
    EXPECT_EQ(map.findOrInsert("a", forbidden), "1");
    EXPECT_EQ(map.size(), 1U);
}

TEST(ConcurrentTBBHashMapTest, EraseReturnsTheValueOnce) {
    TextMap map;
    map.findOrInsert("a", make("1"));
    EXPECT_EQ(map.erase("a"), "1");
    EXPECT_EQ(map.erase("a"), std::nullopt);
    EXPECT_FALSE(map.contains("a"));
    EXPECT_EQ(map.size(), 0U);
}

TEST(ConcurrentTBBHashMapTest, ContainsComparesTheWholeKey) {
    TextMap map;
    map.findOrInsert("a", make("1"));
    EXPECT_TRUE(map.contains("a"));
    EXPECT_FALSE(map.contains("A"));
    EXPECT_FALSE(map.contains(""));
}

TEST(ConcurrentTBBHashMapTest, ClearRemovesAll) {
    TextMap map;
    map.findOrInsert("a", make("1"));
    map.findOrInsert("b", make("2"));
    map.clear();
    EXPECT_EQ(map.size(), 0U);
    EXPECT_FALSE(map.contains("a"));
    EXPECT_EQ(map.findOrInsert("a", make("3")), "3");
}

TEST(ConcurrentTBBHashMapTest, ForEachVisitsEveryEntryOnceAndMayChangeIt) {
    TextMap map;
    map.findOrInsert("a", make("1"));
    map.findOrInsert("b", make("2"));
    map.forEach([](const std::string& key, std::string& value) { value += key; });
    std::map<std::string, std::string> seen;
    const TextMap& constant = map;
    constant.forEach([&](const std::string& key, const std::string& value) {
        EXPECT_TRUE(seen.emplace(key, value).second);
    });
    EXPECT_EQ(seen, (std::map<std::string, std::string>{{"a", "1a"}, {"b", "2b"}}));
}

TEST(ConcurrentTBBHashMapTest, AThrowingFactoryLeavesNoEntry) {
    ConcurrentTBBHashMap<std::string, std::function<int()>> map;
    const auto failing = []() -> std::function<int()> { throw std::runtime_error("no value"); };
    try {
        map.findOrInsert("a", failing);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no value");
    }
    EXPECT_FALSE(map.contains("a"));
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(map.findOrInsert("a", [] { return std::function<int()>([] { return 7; }); })(), 7);
}

TEST(ConcurrentTBBHashMapTest, AnEmptyFactoryLeavesNoEntry) {
    TextMap map;
    EXPECT_THROW(map.findOrInsert("a", boost::function<std::string()>()), boost::bad_function_call);
    EXPECT_EQ(map.size(), 0U);
}

TEST(ConcurrentTBBHashMapTest, AValueThatDiesMayUseTheMap) {
    struct Reader {
        explicit Reader(ConcurrentMap<int, std::shared_ptr<Reader>>& mapToRead) : map(mapToRead) {}
        ~Reader() { map.contains(1); }
        ConcurrentMap<int, std::shared_ptr<Reader>>& map;
    };
    ConcurrentTBBHashMap<int, std::shared_ptr<Reader>> map;
    const auto makeReader = [&] { return std::make_shared<Reader>(map); };
    map.findOrInsert(1, makeReader);
    map.findOrInsert(2, makeReader);
    map.erase(1);
    map.clear();
    EXPECT_EQ(map.size(), 0U);
}

TEST(ConcurrentTBBHashMapTest, OneOfManyThreadsInsertsAKey) {
    ConcurrentTBBHashMap<int, int> map;
    std::atomic<int> calls = 0;
    std::vector<int> results(8);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            results[static_cast<std::size_t>(thread)] = map.findOrInsert(1, [&] {
                ++calls;
                return thread;
            });
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(results, std::vector<int>(8, *map.find(1)));
}

TEST(ConcurrentTBBHashMapTest, StandsAllOperationsAtOnce) {
    constexpr int keys = 16;
    constexpr int rounds = 2000;
    ConcurrentTBBHashMap<int, std::function<int()>> map;
    std::atomic<int> inserted = 0;
    std::atomic<int> erased = 0;
    std::atomic<bool> wrongValue = false;
    std::atomic<bool> working = true;
    const auto check = [&](int key, const std::function<int()>& value) {
        wrongValue = wrongValue || !value || value() != key;
    };
    const auto work = [&](int seed) {
        for (int round = 0; round < rounds; ++round) {
            const int key = (round * 7 + seed) % keys;
            const bool fails = round % 11 == 0;
            try {
                check(key, map.findOrInsert(key, [&]() -> std::function<int()> {
                    if (fails) {
                        throw std::runtime_error("no value");
                    }
                    ++inserted;
                    return [key] { return key; };
                }));
            } catch (const std::runtime_error&) {
                // The entry of a failed factory must not show up below as an empty function.
            }
            if (const auto found = map.find((key + 1) % keys)) {
                check((key + 1) % keys, *found);
            }
            if (const auto value = map.erase((key + 3) % keys)) {
                ++erased;
                check((key + 3) % keys, *value);
            }
        }
    };
    std::thread iterator([&] {
        while (working) {
            map.forEach([&](int key, const std::function<int()>& value) { check(key, value); });
            EXPECT_LE(map.size(), static_cast<std::size_t>(keys));
            map.contains(3);
        }
    });
    std::vector<std::thread> workers;
    for (int seed = 0; seed < 4; ++seed) {
        workers.emplace_back(work, seed);
    }
    for (auto& worker : workers) {
        worker.join();
    }
    working = false;
    iterator.join();
    EXPECT_FALSE(wrongValue);
    EXPECT_EQ(static_cast<std::size_t>(inserted - erased), map.size());
}

}  // namespace
}  // namespace foundation::msg_svc::threadutil
