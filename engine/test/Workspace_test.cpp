#include "engine/test/EventRecorder.hpp"
#include "yvm/WorkspaceEvent.hpp"

#include <sstream>

namespace yvm::engine::test {
namespace {

void addNames(std::string& text, char mark, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ",") + std::string(1, mark) + name;
    }
}

/// As "+appeared,~changed,-gone".
std::string namesOf(const WorkspaceEvent& event) {
    std::string text;
    addNames(text, '+', event.appeared());
    addNames(text, '~', event.changed());
    addNames(text, '-', event.gone());
    return text;
}

class WorkspaceTest : public EngineTest {
  public:
    void SetUp() override {
        EngineTest::SetUp();
        feval("yvm.reset");
    }
};

TEST_F(WorkspaceTest, ACommandTellsWhatItChanged) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    eval("b = 1; a = [1]; import os; _hidden = 2");
    eval("print(a, b)\na");
    eval("a = [1]; del b; c = None");
    eval("def f():\n    global d\n    d = 1");
    submitFeval("f", {}, 0).get();
    EXPECT_EQ(changes->text(), "+a,+b +c,~a,-b +f +d");
}

TEST_F(WorkspaceTest, TheEventNamesItsCommandAndComesBeforeItsCompletion) {
    EventNotes order;
    Submission submission;
    submission.inCompletion = [&] { order.add("completion"); };
    const EventRecorder<WorkspaceEvent> changes([&](const WorkspaceEvent& event) {
        std::ostringstream text;
        text << *event.commandId();
        order.add(text.str());
        return "";
    });
    auto command = submitEval("x = 1", std::move(submission));
    command.get();
    std::ostringstream id;
    id << command.id;
    EXPECT_EQ(order.text(), id.str() + " completion");
}

TEST_F(WorkspaceTest, AFailedCommandTellsWhatItHasChanged) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    evalError("x = 1\ny = 1 / 0");
    EXPECT_EQ(changes->text(), "+x");
}

TEST_F(WorkspaceTest, ACommandWithAHandlerOfItsOwnIsToldOfItsOwnChanges) {
    eval("before = 1");
    const auto notes = std::make_shared<EventNotes>();
    Submission submission;
    submission.runOptions.setCallbackImpl(
        [notes](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            notes->add(namesOf(dynamic_cast<const WorkspaceEvent&>(event)));
        },
        u"yvm::WorkspaceEvent");
    submitEval("x = 1", submission).get();
    eval("y = 1");
    submitEval("x = 2", submission).get();
    EXPECT_EQ(notes->text(), "+x ~x");
}

TEST_F(WorkspaceTest, WhoSubscribesDuringACommandIsToldOfAllNamesAtItsEnd) {
    eval("before = 1");
    auto command = occupy();
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    release();
    command.get();
    eval("x = 1");
    EXPECT_EQ(changes->text(), "+before +x");
}

TEST_F(WorkspaceTest, WhatAQueryChangedIsToldAtTheEndOfTheNextCommand) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    auto host = submitEval("leave = False\nprint('on', flush=True)\nwhile not leave: pass");
    host.transcript->waitFor("on");
    submitEval("leave = True; q = 1", inMode(DequeueMode::DEQUEUE_AT_PPE)).get();
    host.get();
    EXPECT_EQ(changes->text(), "+leave,+q");
}

TEST_F(WorkspaceTest, WhatAssignmentsLeaveTheSameIsTold) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    eval("x = [1]; y = [2]; n = 5");
    eval("x += [2]");
    eval("y.append(3); n = 5");
    EXPECT_EQ(changes->text(), "+n,+x,+y ~x");
}

TEST_F(WorkspaceTest, NoValueIsKeptAliveByTheWatch) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    eval("class Loud:\n    def __del__(self): print('gone')\nx = Loud()");
    EXPECT_EQ(eval("x = 1\nprint('after')"), "gone\nafter\n");
}

TEST_F(WorkspaceTest, NamesThatAreNoTextAndNamesWithLoneSurrogatesDoNoHarm) {
    const EventRecorder<WorkspaceEvent> changes(namesOf);
    eval(R"(globals()[1] = 2; globals()['\ud800'] = 3; x = 1)");
    eval(R"(del globals()[1], globals()['\ud800'])");
    EXPECT_EQ(changes->text(), "+x,+\uFFFD -\uFFFD");
}

}  // namespace
}  // namespace yvm::engine::test
