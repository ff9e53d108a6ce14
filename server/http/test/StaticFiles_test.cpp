#include "server/http/StaticFiles.hpp"

#include "server/http/test/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace server::http {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(StaticFiles, FindsTheFilesOfItsFolderOnly) {
    const server::testing::TemporaryFolder folder;
    folder.write("index.html", "<p>");
    folder.write("assets/app.js", "1");
    folder.write("../" + folder.path().filename().string() + "-beside.txt", "secret");
    const StaticFiles files(folder.path());
    ASSERT_NE(files.find("/"), nullptr);
    EXPECT_EQ(files.find("/")->body, "<p>");
    EXPECT_EQ(files.find("/?token=x"), files.find("/index.html"));
    EXPECT_EQ(files.find("/")->contentType, "text/html; charset=utf-8");
    EXPECT_FALSE(files.find("/")->isImmutable);
    ASSERT_NE(files.find("/assets/app.js?v=1"), nullptr);
    EXPECT_EQ(files.find("/assets/app.js")->contentType, "text/javascript; charset=utf-8");
    EXPECT_TRUE(files.find("/assets/app.js")->isImmutable);
    for (const char* target :
         {"", "/assets", "/assets/", "/nothing", "/../index.html", "/%2e%2e/x", "index.html"}) {
        EXPECT_EQ(files.find(target), nullptr) << target;
    }
    std::filesystem::remove(folder.path().string() + "-beside.txt");
}

TEST(StaticFiles, TheTagFollowsTheContent) {
    const server::testing::TemporaryFolder folder;
    folder.write("index.html", "1");
    const std::string first = StaticFiles(folder.path()).find("/")->etag;
    EXPECT_EQ(StaticFiles(folder.path()).find("/")->etag, first);
    folder.write("index.html", "2");
    EXPECT_NE(StaticFiles(folder.path()).find("/")->etag, first);
}

TEST(StaticFiles, AFolderWithoutAPageIsRefused) {
    const server::testing::TemporaryFolder folder;
    EXPECT_THAT([&] { StaticFiles files(folder.path()); },
                ThrowsMessage<std::runtime_error>("the console folder '" + folder.path().string() +
                                                  "' holds no index.html"));
    EXPECT_THAT(
        [] { StaticFiles files("/does/not/exist"); },
        ThrowsMessage<std::runtime_error>("the console folder '/does/not/exist' holds no index.html"));
}

TEST(StaticFiles, HasNothingWithoutAFolder) {
    EXPECT_EQ(StaticFiles().find("/"), nullptr);
}

}  // namespace
}  // namespace server::http
