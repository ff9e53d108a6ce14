#include "server/bayeux/Channels.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

TEST(Channels, KnowsWhichNamesClientsCanParse) {
    for (const char* name : {"/a", "/a/b", "/yvm/x_-1/eval/request", "/!~()$@"}) {
        EXPECT_TRUE(isChannelName(name)) << name;
    }
    for (const char* name : {"", "/", "a", "a/b", "/a/", "//a", "/a//b", "/a.b", "/a b", "/a:b", "/a+b",
                             "/\xc3\xa4", "/a/*", "/a/**", "/a\n"}) {
        EXPECT_FALSE(isChannelName(name)) << name;
    }
}

TEST(Channels, TakesAWildcardAsTheLastSegmentOnly) {
    for (const char* name : {"/a", "/a/*", "/a/**", "/*", "/**"}) {
        EXPECT_TRUE(isSubscribable(name)) << name;
    }
    for (const char* name : {"*", "/*/a", "/a/b*", "/a/***", "/a/*/b", "/**/a", "/a//*"}) {
        EXPECT_FALSE(isSubscribable(name)) << name;
    }
}

TEST(Channels, FindsTheClientOfAChannel) {
    const auto parts = asClientChannel("/yvm/abc/eval/request");
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->client, "abc");
    EXPECT_EQ(parts->rest, "/eval/request");
    EXPECT_EQ(asClientChannel("/yvm/abc/**")->rest, "/**");
    for (const char* name : {"/yvm", "/yvm/", "/yvm/abc", "/yvm/*", "/yvm/**", "/yvm/attach/request",
                             "/other/abc/x", "/yvm//x", "/yvm/a!/x"}) {
        EXPECT_FALSE(asClientChannel(name)) << name;
    }
}

TEST(Channels, KnowsWhichWayTextWentInEitherVersion) {
    using Way = yvm::OutputGate::Way;
    for (const char* name : {"/yvm/a/text/output", "/yvm/a/text/error", "/yvm/a/output", "/yvm/a/error",
                             "/yvm/output/output", "/yvm/a/event/fireEvent"}) {
        EXPECT_EQ(wayOfText(name), Way::OwnStreams) << name;
    }
    for (const char* name : {"/yvm/a/yvmSinks/output", "/yvm/sinks/response"}) {
        EXPECT_EQ(wayOfText(name), Way::ClientWideSinks) << name;
    }
    for (const char* name : {"/yvm/a/eval/response", "/yvm/a/yvmSinks/response", "/yvm/sinks/set",
                             "/yvm/a/text/response", "/yvm/attach/output", "/yvm/output"}) {
        EXPECT_EQ(wayOfText(name), std::nullopt) << name;
    }
}

TEST(Channels, KnowsTheFormOfAnAttachIdentifier) {
    EXPECT_TRUE(isClientIdentifier("aZ0_-"));
    EXPECT_TRUE(isClientIdentifier(std::string(64, 'a')));
    for (const std::string& identifier : {std::string(), std::string(65, 'a'), std::string("attach"),
                                          std::string("detach"), std::string("sinks"), std::string("a b"),
                                          std::string("a/b"), std::string("a.b"), std::string("a\0", 2)}) {
        EXPECT_FALSE(isClientIdentifier(identifier)) << identifier;
    }
}

}  // namespace
}  // namespace server::bayeux
