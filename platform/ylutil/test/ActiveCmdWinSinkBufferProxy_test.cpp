#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"

#include <gtest/gtest.h>

#include <string>

namespace ylutil::io {
namespace {

class ActiveCmdWinSinkBufferProxyTest : public ::testing::Test {
  protected:
    ~ActiveCmdWinSinkBufferProxyTest() override { ActiveCmdWinSinkBufferProxy::setReceivers({}, {}); }
};

TEST_F(ActiveCmdWinSinkBufferProxyTest, TextIsDroppedWhileNobodyReceives) {
    EXPECT_NO_THROW(ActiveCmdWinSinkBufferProxy::logLog(u"abc", 3, false));
    EXPECT_NO_THROW(ActiveCmdWinSinkBufferProxy::logDiary(u"abc", 3, true));
}

TEST_F(ActiveCmdWinSinkBufferProxyTest, LogAndDiaryHaveAReceiverEach) {
    std::u16string log;
    std::u16string diary;
    bool diarySynchronised = false;
    ActiveCmdWinSinkBufferProxy::setReceivers(
        [&log](std::u16string_view text, bool) { log += text; },
        [&diary, &diarySynchronised](std::u16string_view text, bool synchronise) {
            diary += text;
            diarySynchronised = synchronise;
        });

    ActiveCmdWinSinkBufferProxy::logLog(u"to the log, not all", 10, false);
    ActiveCmdWinSinkBufferProxy::logDiary(u"to the diary", 12, true);

    EXPECT_EQ(log, u"to the log");
    EXPECT_EQ(diary, u"to the diary");
    EXPECT_TRUE(diarySynchronised);
}

TEST_F(ActiveCmdWinSinkBufferProxyTest, AReceiverMayReplaceItself) {
    int calls = 0;
    ActiveCmdWinSinkBufferProxy::setReceivers(
        [&calls](std::u16string_view, bool) {
            ++calls;
            ActiveCmdWinSinkBufferProxy::setReceivers({}, {});
        },
        {});

    ActiveCmdWinSinkBufferProxy::logLog(u"a", 1, false);
    ActiveCmdWinSinkBufferProxy::logLog(u"b", 1, false);

    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace ylutil::io
