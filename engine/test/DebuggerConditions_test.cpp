#include "engine/test/DebuggerFixture.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <utility>
#include <vector>

namespace yvm::engine::test {
namespace {

class DebuggerConditionsTest : public DebuggerTest {
  public:
    const EventRecorder<DebuggerStoppedEvent> messages{
        [](const DebuggerStoppedEvent& event) { return fl::i18n::to_string(event.message()); }};

    /// As NumPy starts.
    static void resetNumpy() {
        eval("import numpy as np\nnp.seterr(all='warn', under='ignore')\nnp.seterrcall(None);");
    }
};

TEST_F(DebuggerConditionsTest, AFileThatIsNoRegularOneIsRefusedAndNotRead) {
    const auto pipe = (std::filesystem::current_path() / "pipe.py").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    for (const std::string& file : {pipe, std::string("/dev/zero"), std::string("/")}) {
        EXPECT_EQ(set(LineBreakpoint(fl::i18n::to_ustring(file), Location(1))), "no regular file: " + file);
    }
}

}  // namespace
}  // namespace yvm::engine::test
