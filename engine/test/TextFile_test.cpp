#include "engine/detail/TextFile.hpp"

#include "foundation/log/Severity.hpp"
#include "platform/testing/LogCapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace yvm::engine {
namespace {

using Lines = TextFile::Lines;

/// Bounds a failure; nothing that works takes this long.
constexpr std::chrono::seconds deadline{60};

class TextFileTest : public ::testing::Test {
  protected:
    TextFileTest() {
        std::string name = std::filesystem::temp_directory_path() / "text-file-XXXXXX";
        folder_ = ::mkdtemp(name.data());
        path_ = folder_ / "copy.txt";
    }
    ~TextFileTest() override { std::filesystem::remove_all(folder_); }

    static std::string contentOf(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string content() const { return contentOf(path_); }
    std::string older() const { return contentOf(path_.string() + ".1"); }

    /// Writes the text until a file is where it is expected. Fails the test at the deadline.
    void writeUntilThere(TextFile& file, std::u16string_view text) const {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (!std::filesystem::exists(path_)) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            file.write(text);
        }
    }

    std::filesystem::path folder_;
    std::filesystem::path path_;
};

TEST_F(TextFileTest, TextOfAnyScriptIsInTheFileAsSoonAsItIsWritten) {
    TextFile file(path_, Lines::Plain);
    file.write(u"a\U0001F600\u05D0e\u0301");
    EXPECT_EQ(content(), "a\U0001F600\u05D0e\u0301");
    file.write(std::u16string{u'\0', char16_t(0xD800), u'\n'});
    EXPECT_EQ(content(), std::string("a\U0001F600\u05D0e\u0301\0\uFFFD\n", 15));
}

TEST_F(TextFileTest, NothingIsCreatedBeforeTheFirstText) {
    TextFile file(path_, Lines::Plain);
    file.write(u"");
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(TextFileTest, TextIsAppendedToWhatIsThere) {
    std::ofstream(path_) << "before\n";
    TextFile(path_, Lines::Plain).write(u"after\n");
    EXPECT_EQ(content(), "before\nafter\n");
}

TEST_F(TextFileTest, OnlyTheOwnerMayRead) {
    TextFile(path_, Lines::Plain).write(u"x");
    EXPECT_EQ(std::filesystem::status(path_).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(TextFileTest, EachLineBeginsWithTheTimeHoweverItsTextIsCut) {
    TextFile file(path_, Lines::WithTimes);
    file.write(u"a");
    file.write(u"b\nc");
    file.write(u"\n");
    const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ";
    EXPECT_THAT(content(), ::testing::MatchesRegex("^" + time + "ab\n" + time + "c\n$"));
}

TEST_F(TextFileTest, AfterALineThatWasLostTheNextBeginsWithTheTime) {
    TextFile file(path_, Lines::WithTimes);
    std::filesystem::remove(folder_);
    file.write(u"lost");
    std::filesystem::create_directory(folder_);
    file.write(u"there");
    EXPECT_THAT(content(), ::testing::EndsWith("Z there"));
}

TEST_F(TextFileTest, AFullFileIsKeptOnceUnderAnotherName) {
    TextFile file(path_, Lines::Plain, 8);
    file.write(u"12345678");
    EXPECT_EQ(content(), "12345678");
    file.write(u"abc");
    EXPECT_EQ(older(), "12345678");
    EXPECT_EQ(content(), "abc");
    file.write(u"longer than the limit");
    EXPECT_EQ(older(), "abc");
    EXPECT_EQ(content(), "longer than the limit");
    file.write(u"x");
    EXPECT_EQ(older(), "longer than the limit");
    EXPECT_EQ(content(), "x");
}

TEST_F(TextFileTest, AFileThatWasRemovedOrRenamedIsBegunAnew) {
    TextFile file(path_, Lines::Plain);
    file.write(u"one");
    std::filesystem::remove(path_);
    writeUntilThere(file, u"two");
    EXPECT_EQ(content(), "two");
    std::filesystem::rename(path_, folder_ / "kept.txt");
    writeUntilThere(file, u"three");
    EXPECT_EQ(content(), "three");
    EXPECT_EQ(contentOf(folder_ / "kept.txt").find("two"), 0U);
}

TEST_F(TextFileTest, AFullFileThatWasJustRemovedIsBegunAnew) {
    TextFile file(path_, Lines::Plain, 8);
    file.write(u"12345678");
    std::filesystem::remove(path_);
    file.write(u"abc");
    EXPECT_EQ(content(), "abc");
}

TEST_F(TextFileTest, AFailureIsLoggedOnceUntilWritingWorksAgain) {
    const platform_testing::LogCapture log;
    TextFile file(path_, Lines::Plain);
    const auto failures = [&log] {
        return log.texts("yvm::engine::TextFile", static_cast<unsigned>(foundation::log::CaughtException));
    };
    std::filesystem::remove(folder_);
    file.write(u"lost");
    file.write(u"lost");
    EXPECT_THAT(failures(), ::testing::ElementsAre("Text is lost that was to be copied to " + path_.string() +
                                                   ": No such file or directory"));
    std::filesystem::create_directory(folder_);
    file.write(u"there");
    EXPECT_EQ(content(), "there");
    std::filesystem::remove_all(folder_);
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (failures().size() < 2 && std::chrono::steady_clock::now() < end) {
        file.write(u"lost");
    }
    EXPECT_EQ(failures().size(), 2U);
}

TEST_F(TextFileTest, AFullDiskIsAFailureLikeAnother) {
    const platform_testing::LogCapture log;
    TextFile file("/dev/full", Lines::Plain);
    file.write(u"lost");
    EXPECT_THAT(log.texts("yvm::engine::TextFile", static_cast<unsigned>(foundation::log::CaughtException)),
                ::testing::ElementsAre(::testing::HasSubstr("No space left on device")));
}

TEST_F(TextFileTest, APipeThatNobodyReadsHoldsNobodyUp) {
    const platform_testing::LogCapture log;
    ASSERT_EQ(::mkfifo(path_.c_str(), S_IRUSR | S_IWUSR), 0);
    TextFile(path_, Lines::Plain).write(u"lost");
    EXPECT_EQ(log.records("yvm::engine::TextFile").size(), 1U);
}

TEST_F(TextFileTest, TextsOfSeveralThreadsAreNotMixed) {
    TextFile file(path_, Lines::Plain);
    std::vector<std::thread> threads;
    for (const char16_t unit : {u'a', u'b', u'c'}) {
        threads.emplace_back([&file, text = std::u16string(63, unit) + u'\n'] {
            for (int i = 0; i < 200; ++i) {
                file.write(text);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const std::string all = content();
    ASSERT_EQ(all.size(), 3U * 200U * 64U);
    for (std::size_t line = 0; line < all.size(); line += 64) {
        ASSERT_EQ(all.substr(line, 64), std::string(63, all[line]) + "\n");
    }
}

}  // namespace
}  // namespace yvm::engine
