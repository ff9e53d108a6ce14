#include "server/http/RequestGuard.hpp"

#include <gtest/gtest.h>

namespace server::http {
namespace {

using Token = RequestGuard::Token;

TEST(RequestGuard, FindsTheTokenInQueryAndHeader) {
    const RequestGuard guard({.token = "s3cret", .allowedOrigins = {}});
    EXPECT_EQ(guard.tokenOf("/bayeux", ""), Token::Absent);
    EXPECT_EQ(guard.tokenOf("/bayeux?x=1", ""), Token::Absent);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=s3cret", ""), Token::Right);
    EXPECT_EQ(guard.tokenOf("/bayeux?x=1&token=s3cret&y", ""), Token::Right);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=%733cret", ""), Token::Right);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=s3cre", ""), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=", ""), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux?token", ""), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux?atoken=s3cret", ""), Token::Absent);
    EXPECT_EQ(guard.tokenOf("/bayeux", "Bearer s3cret"), Token::Right);
    EXPECT_EQ(guard.tokenOf("/bayeux", "Bearer other"), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux", "Basic s3cret"), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=s3cret", "Bearer other"), Token::Wrong);
    EXPECT_EQ(guard.tokenOf("/bayeux?token=other", "Bearer s3cret"), Token::Wrong);
}

TEST(RequestGuard, WithoutATokenTheHostIsALoopbackName) {
    const RequestGuard open({});
    for (const char* host : {"127.0.0.1:8888", "localhost", "localhost:1", "[::1]:8888"}) {
        EXPECT_TRUE(open.allowsHost(host)) << host;
    }
    for (const char* host : {"", "evil.example", "127.0.0.1.evil.example", "localhost.evil.example:8888"}) {
        EXPECT_FALSE(open.allowsHost(host)) << host;
    }
    EXPECT_TRUE(RequestGuard({.token = "t", .allowedOrigins = {}}).allowsHost("my.example"));
}

TEST(RequestGuard, WithoutATokenAllAreRight) {
    const RequestGuard guard({});
    EXPECT_EQ(guard.tokenOf("/bayeux?token=any", "Bearer any"), Token::Right);
    EXPECT_TRUE(guard.isRight(""));
}

TEST(RequestGuard, APageOfTheServerItselfAndNoPageAtAllMayConnect) {
    const RequestGuard guard({.token = "t", .allowedOrigins = {"https://friend.example"}});
    EXPECT_TRUE(guard.allowsOrigin("", "127.0.0.1:8888"));
    EXPECT_TRUE(guard.allowsOrigin("http://127.0.0.1:8888", "127.0.0.1:8888"));
    EXPECT_TRUE(guard.allowsOrigin("https://host.example", "host.example"));
    EXPECT_TRUE(guard.allowsOrigin("https://friend.example", "127.0.0.1:8888"));
    EXPECT_FALSE(guard.allowsOrigin("http://127.0.0.1:9999", "127.0.0.1:8888"));
    EXPECT_FALSE(guard.allowsOrigin("http://friend.example", "127.0.0.1:8888"));
    EXPECT_FALSE(guard.allowsOrigin("null", "127.0.0.1:8888"));
    EXPECT_FALSE(guard.allowsOrigin("https://evil.example", "127.0.0.1:8888"));
}

TEST(RequestGuard, WithoutATokenOnlyLoopbackNamesAreTheSameOrigin) {
    const RequestGuard guard({});
    EXPECT_TRUE(guard.allowsOrigin("http://localhost:8888", "localhost:8888"));
    EXPECT_TRUE(guard.allowsOrigin("http://[::1]:8888", "[::1]:8888"));
    EXPECT_FALSE(guard.allowsOrigin("http://rebound.example:8888", "rebound.example:8888"));
}

TEST(RequestGuard, KnowsTheNamesOfTheLoopbackInterface) {
    for (const char* host :
         {"localhost", "localhost:1", "127.0.0.1", "127.0.0.1:8888", "127.1.2.3", "::1", "[::1]:5"}) {
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    }
    for (const char* host : {"", "0.0.0.0", "example.org", "127.evil.example", "localhost.evil.example",
                             "[::2]", "::", "1127.0.0.1"}) {
        EXPECT_FALSE(isLoopbackHost(host)) << host;
    }
}

}  // namespace
}  // namespace server::http
