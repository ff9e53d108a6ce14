#include "cmddistributor/RequestIdAdapter.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace cmddistributor {
namespace {

using foundation::msg_svc::exchange::IDType;

TEST(RequestIdAdapterTest, AThreadThatRunsNoCommandHasTheNullIdentity) {
    EXPECT_TRUE(RequestIdAdapter().getRequestId().isNull());
}

TEST(RequestIdAdapterTest, AnInnerCommandHidesTheOuterUntilItEnds) {
    const IDType outer;
    const IDType inner;
    {
        const RequestIdScope outerScope(outer);
        EXPECT_EQ(RequestIdAdapter().getRequestId(), outer);
        {
            const RequestIdScope innerScope(inner);
            EXPECT_EQ(RequestIdAdapter().getRequestId(), inner);
        }
        EXPECT_EQ(RequestIdAdapter().getRequestId(), outer);
    }
    EXPECT_TRUE(RequestIdAdapter().getRequestId().isNull());
}

TEST(RequestIdAdapterTest, EachThreadHasItsOwn) {
    const RequestIdScope scope{IDType()};
    IDType seen;
    std::thread([&seen] { seen = RequestIdAdapter().getRequestId(); }).join();
    EXPECT_TRUE(seen.isNull());
}

}  // namespace
}  // namespace cmddistributor
