#include "engine/test/EventRecorder.hpp"
#include "fl/i18n/ustring.hpp"
#include "services/prompt/InputRequestEvent.hpp"
#include "ylutil/prompt/PromptEvent.hpp"

#include <sstream>

namespace yvm::engine::test {
namespace {

using services::prompt::InputRequestEvent;

/// Answers every request that it is told of, by what `reply` makes of the prompt.
class Answerer {
  public:
    explicit Answerer(std::function<std::string(const std::string& prompt)> reply)
        : requests_([reply = std::move(reply)](const InputRequestEvent& event) {
              const std::string prompt = fl::i18n::to_string(event.prompt());
              EngineTest::submitFeval("yvm.answer", {text(event.id()), text(reply(prompt))}, 0,
                                      EngineTest::inMode(DequeueMode::DEQUEUE_AT_PAUSE));
              return prompt;
          }) {}

    const EventNotes* operator->() const { return requests_.operator->(); }

  private:
    const EventRecorder<InputRequestEvent> requests_;
};

/// Notes the identity of each request.
EventRecorder<InputRequestEvent> recordIds() {
    return EventRecorder<InputRequestEvent>([](const InputRequestEvent& event) { return event.id(); });
}

std::string firstId(const EventRecorder<InputRequestEvent>& requests) {
    requests->waitForCount(1);
    return requests->all().at(0);
}

Submitted submitAnswer(const std::string& id, const std::string& line) {
    return EngineTest::submitFeval("yvm.answer", {text(id), text(line)}, 0,
                                   EngineTest::inMode(DequeueMode::DEQUEUE_AT_PAUSE));
}

class InputTest : public EngineTest {};

TEST_F(InputTest, InputReturnsTheAnswer) {
    const Answerer answerer([](const std::string& prompt) { return "answer to " + prompt; });
    EXPECT_EQ(eval("print('>', input('name? '))"), "name? > answer to name? \n");
    EXPECT_EQ(eval("import yvm; print('>', yvm.input('again? '))"), "again? > answer to again? \n");
    EXPECT_EQ(answerer->all(), (std::vector<std::string>{"name? ", "again? "}));
}

TEST_F(InputTest, AnswersKeepEveryCharacter) {
    const Answerer answerer([](const std::string&) { return "  \xC3\xA4 \xF0\x9F\x98\x80 \\n "; });
    EXPECT_EQ(eval("print(ascii(input()))"), "'  \\xe4 \\U0001f600 \\\\n '\n");
}

TEST_F(InputTest, ThePromptIsWithTheClientBeforeTheRequest) {
    auto host = std::make_shared<std::promise<Submitted>>();
    auto submitted = host->get_future().share();
    const EventRecorder<InputRequestEvent> requests([submitted](const InputRequestEvent& event) {
        submitAnswer(event.id(), "x");
        return submitted.get().transcript->synchronisedText();
    });
    host->set_value(
        submitEval("import sys\nprint('out')\nprint('err', end='', file=sys.stderr)\n_ = input('prompt')"));
    submitted.get().outcome.wait();
    EXPECT_EQ(requests->all(), std::vector<std::string>{"out\n[err]errprompt"});
}

TEST_F(InputTest, ARequestTellsItsCommandAndWhetherItIsForAPassword) {
    const EventRecorder<InputRequestEvent> requests([](const InputRequestEvent& event) {
        submitAnswer(event.id(), "secret");
        std::ostringstream note;
        note << *event.commandId() << (event.password() ? " password" : " plain");
        return note.str();
    });
    auto command = submitEval(
        "import getpass, yvm\ninput(); yvm.input(password=True); print(getpass.getpass('Word: '))");
    command.get();
    EXPECT_EQ(command.transcript->text(), "Word: secret\n");
    std::ostringstream id;
    id << command.id;
    EXPECT_EQ(requests->all(), (std::vector<std::string>{id.str() + " plain", id.str() + " password",
                                                         id.str() + " password"}));
}

TEST_F(InputTest, AHandlerOfTheCommandAloneSuffices) {
    Submission submission;
    submission.runOptions.setCallbackImpl(
        [](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            submitAnswer(dynamic_cast<const InputRequestEvent&>(event).id(), "mine");
        },
        u"services::prompt::InputRequestEvent");
    auto command = submitEval("print(input())", submission);
    command.get();
    EXPECT_EQ(command.transcript->text(), "mine\n");
}

TEST_F(InputTest, WithoutASubscriberInputRaisesEOFError) {
    const auto error = evalError("input('? ')");
    EXPECT_EQ(error.GetID(), "EOFError");
    EXPECT_STREQ(error.what(), "the engine has no input to read: nobody answers requests for a line");
    EXPECT_EQ(evalError("import getpass; getpass.getpass()").GetID(), "EOFError");
}

TEST_F(InputTest, ACommandWithoutTheCapabilityGetsAnError) {
    const auto requests = recordIds();
    Submission submission;
    submission.runOptions.setCapabilities(capabilities::CapabilityList::fromStringVector({"figures"}));
    const auto error = submitEval("input('? ')", submission).error();
    EXPECT_EQ(error.GetID(), "RuntimeError");
    EXPECT_STREQ(error.what(), "the command may not ask for input: its run options give it no \"input\"");
    EXPECT_EQ(requests->all().size(), 0U);
}

TEST_F(InputTest, TheFirstAnswerCountsAndLaterOnesAreRefused) {
    const auto requests = recordIds();
    auto host = submitEval("print(input())");
    const std::string id = firstId(requests);
    // One query, so that both come while the request waits.
    auto both = submitEval("import yvm\nyvm.answer(" + id + ", 'first')\nyvm.answer('" + id + "', 'second')",
                           inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    const std::string refusal =
        "the request for input \"" + id + "\" waits no more: it has been answered, or its command has ended";
    EXPECT_EQ(both.error().what(), refusal);
    host.get();
    EXPECT_EQ(host.transcript->text(), "first\n");
    const auto late = submitAnswer(id, "third").error();
    EXPECT_EQ(late.GetID(), "ValueError");
    EXPECT_EQ(late.what(), refusal);
}

TEST_F(InputTest, AnswersToNoRequestAreRefused) {
    for (const std::string id : {"0", "1000000", "-1", "01", " 1", "x", ""}) {
        const auto error = submitAnswer(id, "line").error();
        EXPECT_EQ(error.GetID(), "ValueError");
        EXPECT_EQ(error.what(), "there is no request for input \"" + id + "\"");
    }
}

TEST_F(InputTest, AnswersThatAreNoLineAreRefusedAndTheRequestWaits) {
    const auto requests = recordIds();
    auto host = submitEval("print(input())");
    const std::string id = firstId(requests);
    EXPECT_STREQ(submitAnswer(id, "two\nlines").error().what(),
                 "an answer of several lines: one is accepted");
    EXPECT_STREQ(submitFeval("yvm.answer", {text(id), scalar(1.0)}, 0, inMode(DequeueMode::DEQUEUE_AT_PAUSE))
                     .error()
                     .what(),
                 "an answer of type float: a text or None is accepted");
    EXPECT_FALSE(host.isDone());
    submitAnswer(id, "one line\r\n").get();
    host.get();
    EXPECT_EQ(host.transcript->text(), "one line\n");
}

TEST_F(InputTest, AnAnswerOfNoneIsTheEndOfTheInput) {
    const auto requests = recordIds();
    auto host = submitEval("input()");
    submitEval("import yvm; yvm.answer('" + firstId(requests) + "', None)",
               inMode(DequeueMode::DEQUEUE_AT_PAUSE))
        .get();
    const auto error = host.error();
    EXPECT_EQ(error.GetID(), "EOFError");
    EXPECT_STREQ(error.what(), "the answer was the end of the input");
}

TEST_F(InputTest, QueriesRunWhileACommandWaitsForInputAndCommandsForThePromptDoNot) {
    const auto requests = recordIds();
    auto host = submitEval("print(input('line? '))");
    const std::string id = firstId(requests);
    auto later = submitEval("1;");
    submitEval("1;", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    const auto state = submitFeval("yvm.state", {}, 1, inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    const auto& record = state.at(0).record();
    EXPECT_EQ(record[2].first, "prompt");
    EXPECT_EQ(utf8(record[2].second), "paused");
    EXPECT_EQ(record[3].first, "inputs");
    const auto& request = record[3].second.list()[0].record();
    EXPECT_EQ(utf8(request[0].second), id);
    EXPECT_EQ(utf8(request[1].second), "line? ");
    EXPECT_FALSE(host.isDone());
    EXPECT_FALSE(later.isDone());
    submitAnswer(id, "on").get();
    host.get();
    later.get();
    EXPECT_EQ(host.transcript->text(), "line? on\n");
    EXPECT_EQ(feval("yvm.state").record()[3].second.size(), 0U);
}

TEST_F(InputTest, ThePromptIsPausedWhileACommandWaitsForInput) {
    using ylutil::prompt::PromptEvent;
    waitUntilIdle();
    const EventRecorder<PromptEvent> prompts(
        [](const PromptEvent& event) { return std::string(toString(event.state())); });
    const Answerer answerer([](const std::string&) { return "x"; });
    eval("input()");
    prompts->waitFor("idle");
    EXPECT_EQ(prompts->text(), "busy paused busy idle");
}

TEST_F(InputTest, AQueryMayItselfAskAndEachGetsItsOwnAnswer) {
    const EventRecorder<InputRequestEvent> requests(
        [](const InputRequestEvent& event) { return fl::i18n::to_string(event.prompt()) + event.id(); });
    const auto idOf = [&](std::size_t index) { return requests->all().at(index).substr(1); };
    auto outer = submitEval("print(input('o'))");
    requests->waitForCount(1);
    auto inner = submitEval("print(input('i'))", inMode(DequeueMode::DEQUEUE_AT_PAUSE));
    requests->waitForCount(2);
    // The outer one goes on when the inner one has ended.
    submitAnswer(idOf(0), "outer").get();
    EXPECT_FALSE(outer.isDone());
    submitAnswer(idOf(1), "inner").get();
    inner.get();
    outer.get();
    EXPECT_EQ(inner.transcript->text(), "iinner\n");
    EXPECT_EQ(outer.transcript->text(), "oouter\n");
}

TEST_F(InputTest, ACancelAndAnInterruptEndTheWaitAndTheRequest) {
    const auto requests = recordIds();
    auto cancelled = submitEval("input()");
    EXPECT_EQ((requests->waitForCount(1), cancel(cancelled.id, true)), CancelStatus::CANCEL_WHILE_RUNNING);
    cancelled.error();
    auto interrupted = submitEval("try: input()\nexcept KeyboardInterrupt: print('stopped')");
    requests->waitForCount(2);
    engine()->interrupt();
    interrupted.get();
    EXPECT_EQ(interrupted.transcript->text(), "stopped\n");
    for (const std::string& id : requests->all()) {
        EXPECT_EQ(submitAnswer(id, "late").error().GetID(), "ValueError");
    }
}

TEST_F(InputTest, AWaitGoesOnWhenItsSubscriberLeavesAndAnotherMayAnswer) {
    std::string id;
    auto host = [&] {
        const auto requests = recordIds();
        auto command = submitEval("print(input())");
        id = firstId(requests);
        return command;
    }();
    EXPECT_FALSE(host.isDone());
    submitAnswer(id, "from another").get();
    host.get();
    EXPECT_EQ(host.transcript->text(), "from another\n");
}

TEST_F(InputTest, StandardInputIsReadByLinesUntilItsEnd) {
    const EventRecorder<InputRequestEvent> requests([count = 0](const InputRequestEvent& event) mutable {
        const std::string line = ++count % 3 == 0 ? "None" : "'line " + std::to_string(count) + "'";
        EngineTest::submitEval("import yvm; yvm.answer(" + event.id() + ", " + line + ")",
                               EngineTest::inMode(DequeueMode::DEQUEUE_AT_PAUSE));
        return line;
    });
    EXPECT_EQ(eval("import sys\nfor line in sys.stdin: print(repr(line))"), "'line 1\\n'\n'line 2\\n'\n");
    EXPECT_EQ(eval("sys.stdin.read()"), "'line 4\\nline 5\\n'\n");
    EXPECT_EQ(eval("print(repr(sys.stdin.read(3)), repr(sys.stdin.readline()), repr(sys.stdin.readline(2)))"),
              "'lin' 'e 7\\n' 'li'\n");
    // What a command has left of a line is not for the next one.
    EXPECT_EQ(eval("sys.stdin.readline()"), "''\n");
}

TEST_F(InputTest, InputReadsWhatStandardInputWasReplacedBy) {
    const auto requests = recordIds();
    EXPECT_EQ(eval("import contextlib, io, sys\nplain = sys.stdin\nsys.stdin = io.StringIO('kept\\n')\n"
                   "try: print(input('? '))\nfinally: sys.stdin = plain"),
              "? kept\n");
    EXPECT_EQ(requests->all().size(), 0U);
}

TEST_F(InputTest, AThreadMayAskWhileItsCommandGoesOn) {
    const auto requests = recordIds();
    auto host = submitEval(
        "import threading\nt = threading.Thread(target=lambda: print(input()))\nt.start()\nt.join()");
    const std::string id = firstId(requests);
    // The engine's thread waits within `join`, where only these queries run.
    submitFeval("yvm.answer", {text(id), text("threaded")}, 0, inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    host.get();
    EXPECT_EQ(host.transcript->text(), "threaded\n");
}

TEST_F(InputTest, AForkedProcessHasNoInput) {
    const auto requests = recordIds();
    EXPECT_EQ(eval("import os\npid = os.fork()\nif pid == 0:\n    try: input()\n"
                   "    except EOFError: os._exit(7)\n    os._exit(1)\n"
                   "os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])"),
              "7\n");
    EXPECT_EQ(requests->all().size(), 0U);
}

}  // namespace
}  // namespace yvm::engine::test
