#include "engine/test/EventRecorder.hpp"
#include "fl/i18n/ustring.hpp"
#include "services/io/CLCEvent.hpp"
#include "ylutil/io/SinkTextEvent.hpp"

#include <sstream>
#include <thread>

namespace yvm::engine::test {
namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using services::io::CLCEvent;
using ylutil::io::SinkTextEvent;
using ylutil::io::StreamTypeEnum;

std::string textOf(const SinkTextEvent& event) {
    return (event.stream() == StreamTypeEnum::Error ? "[err]" : "") + fl::i18n::to_string(event.text());
}

/// A command without streams of its own.
Submission withoutStreams() {
    Submission submission;
    submission.ownStreams = false;
    return submission;
}

/// With sinks of a client, which note what they are given.
class SinkTextsTest : public EngineTest {
  public:
    void SetUp() override {
        EngineTest::SetUp();
        restore_.emplace(engine()->makeSinkRestorer(engine()));
        auto [out, err] = makeSinks(transcript_);
        engine()->replaceSinks(out, err);
    }

    void TearDown() override { restore_.reset(); }

  protected:
    const std::shared_ptr<Transcript> transcript_ = std::make_shared<Transcript>();

  private:
    std::optional<foundation::core::util::scope_guard> restore_;
};

/// All that was noted, as one.
std::string joined(const EventRecorder<SinkTextEvent>& texts) {
    std::string result;
    for (const auto& note : texts->all()) {
        result += note;
    }
    return result;
}

TEST_F(SinkTextsTest, TextWithoutOwnStreamsIsToldWithItsStreamAndCommand) {
    const EventRecorder<SinkTextEvent> texts([](const SinkTextEvent& event) {
        std::ostringstream note;
        note << *event.commandId() << " " << textOf(event);
        return note.str();
    });
    auto command = submitEval("import sys\nprint('a')\nprint('b', file=sys.stderr)\nprint('c', end='')",
                              withoutStreams());
    command.get();
    std::ostringstream id;
    id << command.id << " ";
    EXPECT_EQ(texts->all(),
              (std::vector<std::string>{id.str() + "a\n", id.str() + "[err]b\n", id.str() + "c"}));
}

TEST_F(SinkTextsTest, TextOfOwnStreamsIsNotTold) {
    const EventRecorder<SinkTextEvent> texts(textOf);
    eval("print('mine')");
    EXPECT_EQ(texts->all().size(), 0U);
}

TEST_F(SinkTextsTest, TextThatNobodyShowsIsNotTold) {
    engine()->replaceSinks({}, {});
    const EventRecorder<SinkTextEvent> texts(textOf);
    submitEval("print('dropped')", withoutStreams()).get();
    EXPECT_EQ(texts->all().size(), 0U);
}

TEST_F(EngineTest, TextForTheConsoleIsToldAsThatOfTheSinks) {
    const EventRecorder<SinkTextEvent> texts(textOf);
    takeConsoleText();
    submitEval("print('console')", withoutStreams()).get();
    EXPECT_EQ(takeConsoleText(), "console\n");
    EXPECT_EQ(joined(texts), "console\n");
}

TEST_F(SinkTextsTest, TheSinkHasATextBeforeItIsTold) {
    const EventRecorder<SinkTextEvent> texts(
        [this](const SinkTextEvent& event) { return textOf(event) + "/" + transcript_->text(); });
    submitEval("print('a')", withoutStreams()).get();
    submitEval("print('b')", withoutStreams()).get();
    EXPECT_EQ(texts->all(), (std::vector<std::string>{"a\n/a\n", "b\n/a\nb\n"}));
}

TEST_F(SinkTextsTest, OtherEventsDoNotOvertakeTheTextBeforeThem) {
    const auto order = std::make_shared<EventNotes>();
    const EventRecorder<SinkTextEvent> texts([order](const SinkTextEvent& event) {
        order->add(textOf(event));
        return "";
    });
    const EventRecorder<CLCEvent> cleared([order](const CLCEvent&) {
        order->add("clear");
        return "";
    });
    submitEval("import yvm\nfor i in range(100): print(i); yvm.clc()", withoutStreams()).get();
    // Text may come in pieces; what counts is what came before each event.
    std::string told;
    std::string expected;
    for (const auto& note : order->all()) {
        told += note;
    }
    for (int i = 0; i < 100; ++i) {
        expected += std::to_string(i) + "\nclear";
    }
    EXPECT_EQ(told, expected);
}

TEST_F(SinkTextsTest, AFloodIsToldWholeAndInFewerPiecesThanItWasWrittenIn) {
    const EventRecorder<SinkTextEvent> texts(textOf);
    submitEval("for i in range(20000): print(i)", withoutStreams()).get();
    EXPECT_EQ(joined(texts), transcript_->text());
    EXPECT_LT(texts->all().size(), 20000U);
}

TEST_F(SinkTextsTest, ThreadsAreToldInTheOrderInWhichTheSinkHasTheirText) {
    const EventRecorder<SinkTextEvent> texts(textOf);
    submitEval(
        "import threading\n"
        "def work(name):\n    for i in range(300): print(f'{name}{i}', flush=True)\n"
        "threads = [threading.Thread(target=work, args=(name,)) for name in 'abc']\n"
        "for t in threads: t.start()\nwork('m')\nfor t in threads: t.join()",
        withoutStreams())
        .get();
    EXPECT_EQ(joined(texts), transcript_->text());
}

TEST_F(SinkTextsTest, AHandlerOfTheCommandGetsItsTextAndNoOther) {
    const auto notes = std::make_shared<EventNotes>();
    Submission submission = withoutStreams();
    submission.runOptions.setCallbackImpl(
        [notes](const BaseEvent& event) { notes->add(textOf(dynamic_cast<const SinkTextEvent&>(event))); },
        u"ylutil::io::SinkTextEvent");
    auto host = submitEval("leave = False\nprint('host', flush=True)\nwhile not leave: pass", submission);
    transcript_->waitFor("host\n");
    submitEval("print('query'); leave = True",
               [] {
                   Submission query = withoutStreams();
                   query.runOptions = withMode(DequeueMode::DEQUEUE_AT_PPE);
                   return query;
               }())
        .get();
    host.get();
    EXPECT_EQ(transcript_->text(), "host\nquery\n");
    EXPECT_EQ(notes->all(), std::vector<std::string>{"host\n"});
}

TEST_F(SinkTextsTest, AHandlerMayReplaceTheSinks) {
    const auto other = std::make_shared<Transcript>();
    const EventRecorder<SinkTextEvent> texts([&](const SinkTextEvent& event) {
        auto [out, err] = makeSinks(other);
        engine()->replaceSinks(out, err);
        return textOf(event);
    });
    submitEval("print('first', flush=True)\nprint('second')", withoutStreams()).get();
    EXPECT_EQ(joined(texts), "first\nsecond\n");
    EXPECT_EQ(transcript_->text() + other->text(), "first\nsecond\n");
}

TEST_F(SinkTextsTest, TextThatLeavesAsItsSinkIsReplacedIsToldByTheEngine) {
    std::thread::id teller;
    const EventRecorder<SinkTextEvent> texts([&](const SinkTextEvent& event) {
        teller = std::this_thread::get_id();
        return textOf(event);
    });
    // Whichever thread brings the second text out, the engine's alone tells it.
    auto host =
        submitEval("print('first', flush=True)\nprint('second', end='')\nwhile True: pass", withoutStreams());
    transcript_->waitFor("first");
    for (int i = 0; i < 20; ++i) {
        auto [out, err] = makeSinks(transcript_);
        engine()->replaceSinks(out, err);
    }
    transcript_->waitFor("second");
    texts->waitFor("second");
    EXPECT_NE(teller, std::this_thread::get_id());
    cancel(host.id, true);
    host.error();
}

}  // namespace
}  // namespace yvm::engine::test
