// The execution service of a client, for both protocol versions: what is expected of each stands side by
// side.

#include "r22a0/EvalFevalCancel.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/setCurrentMockYvm.hpp"
#include "common/test/EvalFevalCancelFixture.hpp"
#include "common/test/versions.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace yvm::JSClient {
namespace {

using connector::message_service::JsonMessage;
using platform_testing::LogCapture;
using test::expectPlainError;
using test::memberOf;
using Status = RequestResponse::Status;

class EvalFevalCancelTest : public EvalFevalCancelFixture, public test::ForEachVersion {
  protected:
    EvalFevalCancelTest() : EvalFevalCancelFixture(GetParam()) {}

    /// The names of the channels, in the order of subscription.
    static std::vector<std::string> channels() {
        return perVersion<std::vector<std::string>>({"cancel", "feval", "eval"},
                                                    {"cancel", "cancelGroup", "feval", "eval", "interrupt"});
    }
};

INSTANTIATE_TEST_SUITE_P(Versions, EvalFevalCancelTest, test::bothVersions(), test::nameOfVersion);

TEST_P(EvalFevalCancelTest, SubscribesItsChannelsInOrderAndLeavesThemInReverse) {
    std::vector<std::string> expected;
    for (const auto& channel : channels()) {
        expected.push_back("subscribe /yvm/a/" + channel + "/request");
    }
    for (auto i = expected.size(); i-- > 0;) {
        expected.push_back("un" + expected[i]);
    }
    create();
    client.reset();
    EXPECT_EQ(service->subscriptionLog(), expected);
}

TEST_P(EvalFevalCancelTest, AChannelThatTheVersionHasNotFindsNoSubscriber) {
    create();
    const std::size_t subscribers = perVersion(0U, 1U);
    EXPECT_EQ(
        service->deliver("/yvm/a/cancelGroup/request", R"({"requestID":"1","requestGroupNametoCancel":"g"})"),
        subscribers);
    EXPECT_EQ(service->deliver("/yvm/a/interrupt/request", R"({"requestID":"2"})"), subscribers);
    EXPECT_EQ(service->publications().size(), perVersion(0U, 2U));
    EXPECT_EQ(distributor->groupCancels().size(), subscribers);
    EXPECT_EQ(engine->interruptCount(), perVersion(0, 1));
}

TEST_P(EvalFevalCancelTest, AFailedSubscriptionLeavesCreateAndNothingBehind) {
    for (std::size_t after = 0; after < channels().size(); ++after) {
        service->failNextSubscribe(FakeMessageService::Failure::invalidFuture, after);
        EXPECT_EQ(test::textThrownBy<std::runtime_error>([this] { create(); }), "Future state isn't valid!");
        EXPECT_EQ(service->subscriberCount(), 0U);
    }
}

TEST_P(EvalFevalCancelTest, KeepsTheEngineAliveWhileItsChannelsStand) {
    create();
    const std::weak_ptr<FakeYvm> weakEngine = engine;
    engine.reset();
    EXPECT_FALSE(weakEngine.expired());
    client.reset();
    EXPECT_TRUE(weakEngine.expired());
}

TEST_P(EvalFevalCancelTest, AnEvalIsSubmittedAsItWasAskedFor) {
    create();
    eval(R"({"requestID":"1","command":"1+\u00e4","isUserEval":true,"runOptions":)"
         R"({"dequeueMode":"DEQUEUE_AT_IDLE","useNullOutSink":true,"useNullErrSink":false}})");
    const auto command = distributor->lastCommand();
    EXPECT_EQ(command.eval().command, u"1+\u00e4");
    EXPECT_TRUE(command.eval().isUserEval);
    EXPECT_EQ(command.request->getSourceTag(), perVersion("r22a0/EvalFevalCancel", "r24a0/EvalFevalCancel"));
    EXPECT_EQ(command.request->getOutSink(), command.runOptions.getOutSink());
    EXPECT_EQ(command.request->getErrSink(), command.runOptions.getErrSink());
    EXPECT_NE(command.request->getOutSink(), nullptr);
    EXPECT_EQ(command.runOptions.getDequeueMode(), ylutil::cmddistributor::WhenToDequeue::DEQUEUE_AT_IDLE);
    EXPECT_FALSE(command.id.isNull());
    EXPECT_EQ(command.context, nullptr);
    EXPECT_TRUE(service->publications().empty()) << "nothing is answered when a command is queued";
}

TEST_P(EvalFevalCancelTest, TheGroupOfAUserSelectsItsStreamInR24a0AndIsComparedExactly) {
    create();
    const auto streamFor = [this](const std::string& runOptions) {
        eval(R"({"requestID":"1","command":"x","runOptions":)" + runOptions + "}");
        return distributor->lastCommand().request->getStreamID();
    };
    EXPECT_EQ(streamFor("{}"), -2);
    EXPECT_EQ(streamFor(R"({"groupNames":["plots","UserGroup","more"]})"), perVersion(-2, 0));
    EXPECT_EQ(streamFor(R"({"groupNames":["usergroup","UserGroups"]})"), -2);
}

TEST_P(EvalFevalCancelTest, AnEvalThatSucceedsIsAnsweredByItsRequestIDAlone) {
    create();
    eval(R"({"requestID":"1","command":"1+1"})");
    distributor->succeed(lastId());
    EXPECT_EQ(only("/yvm/a/eval/response"), Value(JsonObject{{"requestID", "1"}}));
}

TEST_P(EvalFevalCancelTest, AnErrorOfTheEngineIsAnsweredWhole) {
    create();
    const RuntimeException error(Status::CommandFailed, u"division by zero", "ZeroDivisionError", "f",
                                 {{"<command>", "<module>", 1, "1/0"}},
                                 {RuntimeException(Status::CommandFailed, std::u16string(u"cause"))}, false,
                                 {std::int64_t{1}});
    eval(R"({"requestID":"1","command":"1/0"})");
    distributor->fail(lastId(), error);
    EXPECT_EQ(onlyText("/yvm/a/eval/response"), errorResponse("1", error));
}

TEST_P(EvalFevalCancelTest, OtherFailuresOfAnEvalAreAnsweredByTheirText) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    distributor->fail(lastId(), std::make_exception_ptr(std::runtime_error("out of order")));
    expectPlainError(only("/yvm/a/eval/response"), 2, "out of order");
}

TEST_P(EvalFevalCancelTest, WhatIsNoExceptionIsAnsweredAsUnknown) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    distributor->fail(lastId(), std::make_exception_ptr(42));
    expectPlainError(only("/yvm/a/eval/response"), 2, "Unknown Exception");
    service->clearPublications();
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    distributor->fail(lastId(), std::make_exception_ptr(42));
    expectPlainError(only("/yvm/a/feval/response"), 2, "Unknown Exception");
}

TEST_P(EvalFevalCancelTest, AFaultOfTheMessageReachesNoEngine) {
    create();
    eval(R"({"requestID":"1"})");
    expectPlainError(only("/yvm/a/eval/response"), 2,
                     "key: command is missing from {\n  \"requestID\": \"1\"\n}");
    service->clearPublications();
    eval(R"({"requestID":"1","command":"x","runOptions":{"dequeueMode":3}})");
    expectPlainError(only("/yvm/a/eval/response"), 2, "boost::bad_get: failed value get using boost::get");
    service->clearPublications();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":5})");
    expectPlainError(only("/yvm/a/feval/response"), 2, "invalid conversion: double to array");
    EXPECT_TRUE(distributor->commands().empty());
    client.reset();
    EXPECT_TRUE(distributor->cancels().empty());
}

TEST_P(EvalFevalCancelTest, AnEvalWithoutADistributorIsAnsweredAndNotRegistered) {
    engine->setCmdDistributor(nullptr);
    create();
    eval(R"({"requestID":"1","command":"x"})");
    expectPlainError(only("/yvm/a/eval/response"), 5,
                     "Cannot find a distributor instance to submit this YVM request");
    EXPECT_EQ(memberOf(only("/yvm/a/eval/response"), "requestID").as<std::string>(), "1");
    const LogCapture log;
    client.reset();
    EXPECT_TRUE(log.texts(logChannel, 8).empty()) << "there is nothing to cancel";
}

TEST_P(EvalFevalCancelTest, AFevalIsSubmittedAsItWasAskedFor) {
    create();
    feval(R"({"requestID":"1","function":"numpy.add","numOutputsExpected":-1,"rhsArgs":)" +
          std::string(perVersion(R"([1.5,[1,2]])", R"(["1.5","[1,2]"])")) +
          R"(,"runOptions":{"useNullOutSink":true,"groupNames":["UserGroup"]}})");
    const auto command = distributor->lastCommand();
    EXPECT_EQ(command.feval().function, "numpy.add");
    ASSERT_EQ(command.feval().arguments.size(), 2U);
    EXPECT_EQ(command.feval().arguments[0], arrays.createScalar(1.5));
    EXPECT_EQ(command.feval().numOutputs, std::numeric_limits<std::uint64_t>::max());
    EXPECT_FALSE(command.feval().flag);
    EXPECT_EQ(command.request->getSourceTag(), perVersion("r22a0/EvalFevalCancel", "r24a0/EvalFevalCancel"));
    EXPECT_EQ(command.request->getOutSink(), command.runOptions.getOutSink());
    EXPECT_NE(command.request->getOutSink(), nullptr);
    EXPECT_TRUE(service->publications().empty());
}

TEST_P(EvalFevalCancelTest, AFevalIsAnsweredByOneValueForEachOutput) {
    create();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":2,"rhsArgs":[]})");
    distributor->succeed(lastId(), {arrays.createScalar(1.5), foundation::yorlabdata::Array(u"x")});
    EXPECT_EQ(only("/yvm/a/feval/response"), test::parseObject(R"({"requestID":"1","result":[1.5,"x"]})"));
}

TEST_P(EvalFevalCancelTest, TheLongFormCanBeAskedForInR24a0AloneAndChangesTheElementsAlone) {
    create();
    feval(
        R"({"requestID":"1","function":"f","numOutputsExpected":2,"rhsArgs":[],"ydaOutputFormat":"alwaysYDALong"})");
    distributor->succeed(lastId(), {arrays.createScalar(1.5), foundation::yorlabdata::Array(u"x")});
    EXPECT_EQ(only("/yvm/a/feval/response"),
              test::parseObject(
                  perVersion(R"({"requestID":"1","result":[1.5,"x"]})",
                             R"({"requestID":"1","result":[{"ywtype":"float64","ywsize":[],"ywdata":[1.5]},)"
                             R"({"ywtype":"text","ywsize":[],"ywdata":"x"}]})")));
}

TEST_P(EvalFevalCancelTest, AnUnknownOutputFormatIsRefusedInR24a0AndIgnoredInR22a0) {
    create();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[],"ydaOutputFormat":"x"})");
    EXPECT_EQ(distributor->commands().size(), perVersion(1U, 0U));
    if (isR22a0()) {
        distributor->succeed(lastId(), {arrays.createScalar(1.5)});
        EXPECT_EQ(onlyText("/yvm/a/feval/response"), R"({"requestID":"1","result":[1.5]})");
    } else {
        expectPlainError(only("/yvm/a/feval/response"), 2, "Invalid YDA output format");
    }
}

TEST_P(EvalFevalCancelTest, AStringAmongTheArgumentsIsATextInR22a0AndJsonTextInR24a0) {
    create();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":["[1,2]"]})");
    const auto argument = distributor->lastCommand().feval().arguments.at(0);
    EXPECT_EQ(argument, perVersion(foundation::yorlabdata::Array(u"[1,2]"),
                                   foundation::yorlabdata::json::string_to_yorlabdata("[1,2]", arrays)));
}

TEST_P(EvalFevalCancelTest, AFevalWithoutOutputsHasAnEmptyResult) {
    create();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":0,"rhsArgs":[]})");
    distributor->succeed(lastId());
    EXPECT_EQ(only("/yvm/a/feval/response"), test::parseObject(R"({"requestID":"1","result":[]})"));
}

TEST_P(EvalFevalCancelTest, AFevalThatFailsHasNoResult) {
    create();
    const RuntimeException error(Status::CommandFailed, std::u16string(u"no"), "ValueError");
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    distributor->fail(lastId(), error);
    EXPECT_EQ(onlyText("/yvm/a/feval/response"), errorResponse("1", error));
}

TEST_P(EvalFevalCancelTest, AFevalWithoutADistributorIsAnErrorAndItsEntryCannotBeCancelled) {
    engine->setCmdDistributor(nullptr);
    create();
    feval(R"({"requestID":"1","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    EXPECT_EQ(test::statusOf(only("/yvm/a/feval/response")), 2);
    const LogCapture log;
    client.reset();
    EXPECT_EQ(log.texts(logChannel, 8).size(), perVersion(0U, 1U)) << "only r24a0 logs its cancels";
    const auto caught = log.texts(logChannel, 16);
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("Cannot find a distributor instance to cancel this YVM request"),
              std::string::npos);
}

TEST_P(EvalFevalCancelTest, ASubmissionThatThrowsIsAnsweredOnceAndItsEntryStays) {
    create();
    distributor->failSubmissions(std::make_exception_ptr(std::runtime_error("the queue is full")));
    eval(R"({"requestID":"1","command":"x"})");
    expectPlainError(only("/yvm/a/eval/response"), 2, "the queue is full");
    service->clearPublications();
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    expectPlainError(only("/yvm/a/feval/response"), 2, "the queue is full");
    client.reset();
    EXPECT_EQ(distributor->cancels().size(), 2U) << "both entries have stayed";
}

TEST_P(EvalFevalCancelTest, ARequestThatEndsInsideItsSubmissionIsAnsweredAndForgotten) {
    create();
    distributor->succeedAtOnce();
    eval(R"({"requestID":"1","command":"x"})");
    EXPECT_EQ(only("/yvm/a/eval/response"), Value(JsonObject{{"requestID", "1"}}));
    client.reset();
    EXPECT_TRUE(distributor->cancels().empty());
}

TEST_P(EvalFevalCancelTest, RequestsThatShareAnIDAllRunAndTheFirstCanBeCancelled) {
    create();
    eval(R"({"requestID":"1","command":"first"})");
    const auto first = lastId();
    eval(R"({"requestID":"1","command":"second"})");
    const auto second = lastId();
    EXPECT_NE(first, second);
    client.reset();
    ASSERT_EQ(distributor->cancels().size(), 1U);
    EXPECT_EQ(distributor->cancels().front().id, first);
}

TEST_P(EvalFevalCancelTest, OfRequestsThatShareAnIDTheFirstToFinishTakesTheEntryAlong) {
    create();
    eval(R"({"requestID":"1","command":"first"})");
    const auto first = lastId();
    eval(R"({"requestID":"1","command":"second"})");
    const auto second = lastId();
    distributor->succeed(second);
    EXPECT_EQ(evalResponses().size(), 1U);
    distributor->succeed(first);
    EXPECT_EQ(evalResponses().size(), 2U);
    eval(R"({"requestID":"1","command":"third"})");
    client.reset();
    EXPECT_EQ(distributor->cancels().size(), 1U) << "of the third alone";
}

TEST_P(EvalFevalCancelTest, DestructionCancelsWhatIsInFlightWithInterrupt) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    const auto first = lastId();
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    const auto second = lastId();
    eval(R"({"requestID":"3","command":"x"})");
    distributor->succeed(lastId());
    const LogCapture log;
    client.reset();
    auto cancels = distributor->cancels();
    ASSERT_EQ(cancels.size(), 2U);
    std::ranges::sort(cancels, {}, &FakeCmdDistributor::Cancel::id);
    EXPECT_EQ(cancels[0].id, std::min(first, second));
    EXPECT_EQ(cancels[1].id, std::max(first, second));
    EXPECT_TRUE(cancels[0].interrupt && cancels[1].interrupt);
    EXPECT_EQ(log.count(logChannel, 8, "Cancelling " + textOf(first)), perVersion(0U, 1U));
    EXPECT_EQ(log.count(logChannel, 8, "Cancelling " + textOf(second)), perVersion(0U, 1U));
}

TEST_P(EvalFevalCancelTest, DestructionCancelsTheNewestFirst) {
    create();
    std::vector<CmdDistributor::IDType> ids;
    for (int number = 0; number < 50; ++number) {
        eval(R"({"requestID":")" + std::to_string(number) + R"(","command":"x"})");
        ids.insert(ids.begin(), lastId());
    }
    client.reset();
    std::vector<CmdDistributor::IDType> cancelled;
    for (const auto& cancel : distributor->cancels()) {
        cancelled.push_back(cancel.id);
    }
    EXPECT_EQ(cancelled, ids);
}

TEST_P(EvalFevalCancelTest, ACompletionThatComesAfterDestructionAnswersNothing) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    const auto evalId = lastId();
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    const auto fevalId = lastId();
    client.reset();
    const LogCapture log;
    distributor->succeed(evalId);
    distributor->succeed(fevalId, {arrays.createScalar(1.0)});
    EXPECT_TRUE(service->publications().empty());
    EXPECT_EQ(log.texts(logChannel, 8), (std::vector<std::string>{"Returning early due to null weakThis",
                                                                  "Returning early due to null weakThis"}));
}

TEST_P(EvalFevalCancelTest, ACancelThatThrowsInTheDestructorIsLoggedAndStopsNoOther) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    eval(R"({"requestID":"2","command":"x"})");
    distributor->failCancels(std::make_exception_ptr(std::runtime_error("no cancel")));
    const LogCapture log;
    client.reset();
    const auto caught = log.texts(logChannel, 16);
    ASSERT_EQ(caught.size(), 2U);
    EXPECT_TRUE(caught.front().starts_with("Exception caught: "));
    EXPECT_NE(caught.front().find("no cancel"), std::string::npos);
}

TEST_P(EvalFevalCancelTest, AnEntryWithoutADistributorKeepsTheDestructorFromNoOther) {
    create();
    eval(R"({"requestID":"1","command":"x"})");
    engine->setCmdDistributor(nullptr);
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    engine->setCmdDistributor(distributor);
    eval(R"({"requestID":"3","command":"x"})");
    const LogCapture log;
    client.reset();
    EXPECT_EQ(distributor->cancels().size(), 2U);
    const auto caught = log.texts(logChannel, 16);
    ASSERT_EQ(caught.size(), 1U);
    EXPECT_NE(caught.front().find("Cannot find a distributor instance to cancel this YVM request"),
              std::string::npos);
}

TEST_P(EvalFevalCancelTest, ACancelMayCompleteTheRequestOnTheSpot) {
    const auto hook = boost::make_shared<CancelHook>();
    engine->setCmdDistributor(hook);
    create();
    eval(R"({"requestID":"1","command":"x"})");
    hook->onCancel = [&hook](const CmdDistributor::IDType&) {
        hook->delegate->fail(RuntimeException(Status::Cancelled, std::u16string(u"cancelled")));
    };
    client.reset();
    EXPECT_TRUE(service->publications().empty());
}

TEST_P(EvalFevalCancelTest, AMessageThatArrivesDuringDestructionIsNotAnswered) {
    const auto hook = boost::make_shared<CancelHook>();
    engine->setCmdDistributor(hook);
    create();
    eval(R"({"requestID":"1","command":"x"})");
    hook->onCancel = [this](const CmdDistributor::IDType&) {
        eval(R"({"requestID":"2","command":"y"})");
        feval(R"({"requestID":"3","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
        request("cancel", R"({"requestID":"4","requestIDtoCancel":"1"})");
        service->deliver("/yvm/a/cancelGroup/request", R"({"requestID":"5","requestGroupNametoCancel":"g"})");
        service->deliver("/yvm/a/interrupt/request", R"({"requestID":"6"})");
    };
    const LogCapture log;
    client.reset();
    EXPECT_TRUE(service->publications().empty());
    EXPECT_EQ(log.count(logChannel, 8, "Returning early due to null weakThis"), channels().size());
    EXPECT_EQ(engine->interruptCount(), 0);
}

/// Delivers a request as soon as somebody subscribes, before the subscriber hears of it.
class HastyMessageService final : public ForwardingMessageService {
  public:
    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        callback(JsonMessage(channel,
                             connector::common::DataBuffer(
                                 R"({"requestID":"1","command":"x","function":"f","numOutputsExpected":1,)"
                                 R"("rhsArgs":[],"requestIDtoCancel":"1","requestGroupNametoCancel":"g"})")));
        return inner->subscribe(channel, std::move(callback));
    }
};

TEST_P(EvalFevalCancelTest, AMessageThatArrivesWhileItsConnectionIsBuiltIsNotAnswered) {
    const auto hasty = std::make_shared<HastyMessageService>();
    const LogCapture log;
    client = createEvalFevalCancel(version, "/yvm/a", engine, hasty);
    EXPECT_EQ(log.count(logChannel, 8, "Returning early due to null weakThis"), channels().size());
    EXPECT_TRUE(hasty->inner->publications().empty());
    EXPECT_TRUE(distributor->commands().empty());
    EXPECT_TRUE(distributor->groupCancels().empty());
    EXPECT_EQ(engine->interruptCount(), 0);
}

TEST_P(EvalFevalCancelTest, EachStepOfARequestIsLogged) {
    create();
    const LogCapture log;
    eval(R"({"requestID":"1","command":"1+1"})");
    const auto evalId = textOf(lastId());
    distributor->succeed(lastId());
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[],)"
          R"("runOptions":{"dequeueMode":"DEQUEUE_AT_PPE"}})");
    const auto fevalId = textOf(lastId());
    distributor->succeed(lastId());
    EXPECT_EQ(log.texts(logChannel, 8),
              perVersion<std::vector<std::string>>(
                  {"Enqueueing \"1+1\" to run at 3", "Responding to eval request 1",
                   "Responding to feval request 2"},
                  {"Enqueueing eval " + evalId + " \"1+1\" for request 1 to run at DEQUEUE_AT_PROMPT",
                   "Responding to eval request 1",
                   "Enqueueing feval " + fevalId + " \"f\" for request 2 to run at DEQUEUE_AT_PPE",
                   "Responding to feval request 2"}));
}

TEST_P(EvalFevalCancelTest, OperationsOpenAFunctionTrace) {
    const LogCapture log;
    create();
    eval(R"({"requestID":"1","command":"1+1","runOptions":{"useNullOutSink":false}})");
    distributor->lastCommand().runOptions.getCallbacks().begin()->second(
        ylutil::io::TextBaseEvent(lastId(), ylutil::io::StreamTypeEnum::Output, u"x"));
    distributor->succeed(lastId());
    feval(R"({"requestID":"2","function":"f","numOutputsExpected":1,"rhsArgs":[]})");
    request("cancel", R"({"requestID":"3","requestIDtoCancel":"2"})");
    // A continuation has left when its trace ends; it would otherwise share in the end of the service.
    const std::string cancelled = perVersion("::handleCancelRequest(", "::completeCancel(");
    ASSERT_TRUE(test::waitUntil([&] {
        return std::ranges::any_of(log.texts(logChannel, 64), [&cancelled](const std::string& text) {
            return text.find(cancelled) != std::string::npos;
        });
    }));
    distributor->succeed(lastId());
    service->deliver("/yvm/a/cancelGroup/request", R"({"requestID":"4","requestGroupNametoCancel":"g"})");
    service->deliver("/yvm/a/interrupt/request", R"({"requestID":"5"})");
    client.reset();
    const auto entries = log.texts(logChannel, 32);
    const auto countOf = [&entries](const std::string& function) {
        return std::ranges::count_if(
            entries, [&](const std::string& text) { return text.find(function) != std::string::npos; });
    };
    for (const std::string function :
         {"::create(", "::EvalFevalCancel(", "::~EvalFevalCancel(", "::createYVMConnections(",
          "::handleEvalRequest(", "::handleFevalRequest(", "::handleCancelRequest(", "::completeEval(",
          "::completeFeval(", "::publishTextCallback("}) {
        EXPECT_EQ(countOf(function), 1) << function << " among " << testing::PrintToString(entries);
    }
    for (const std::string function :
         {"::completeCancel(", "::handleCancelGroupRequest(", "::handleInterruptRequest("}) {
        EXPECT_EQ(countOf(function), perVersion(0, 1)) << function;
    }
    EXPECT_EQ(countOf("::insertNewIIP("), perVersion(0, 2)) << "once for each eval and feval";
    EXPECT_EQ(countOf("::makeHandler("), std::ssize(channels())) << "once for each message";
    EXPECT_EQ(log.texts(logChannel, 64).size(), entries.size());
}

TEST_P(EvalFevalCancelTest, TheTextOfACommandIsPublishedBelowThePrefixAndBeforeItsResponse) {
    const auto eventMgr = foundation::msg_svc::eventmgr::EventMgr::create();
    engine->setEventMgr(eventMgr);
    eventMgr->setCommandHandlerLookup(
        [this](const CmdDistributor::IDType& id, const std::u16string& eventName) {
            const auto command = distributor->lastCommand();
            const auto callback = command.runOptions.getCallbacks().find(eventName);
            return id == command.id && callback != command.runOptions.getCallbacks().end()
                       ? callback->second
                       : foundation::msg_svc::eventmgr::EventHandler();
        });
    // The streams of the older version know the engine of the process alone.
    yvm::unittest::setCurrentMockYvm(engine.get());
    Factory::setCurrentLocalYVM(engine);
    create();
    eval(R"({"requestID":"1","command":"hi","runOptions":{"useNullOutSink":false,"useNullErrSink":false}})");
    const LogCapture log;
    const auto command = distributor->lastCommand();
    {
        const cmddistributor::RequestIdScope running(command.id);
        command.request->getOutSink()->buffer().sputn(u"hi\n", 3);
        command.request->getOutSink()->buffer().pubsync();
        command.request->getErrSink()->buffer().sputn(u"oh", 2);
        command.request->getErrSink()->buffer().pubsync();
    }
    distributor->succeed(command.id);
    yvm::unittest::setCurrentMockYvm(nullptr);
    Factory::setCurrentLocalYVM(nullptr);

    const auto publications = service->publications();
    ASSERT_EQ(publications.size(), 3U);
    const std::string output = perVersion("/yvm/a/output", "/yvm/a/text/output");
    const std::string error = perVersion("/yvm/a/error", "/yvm/a/text/error");
    EXPECT_EQ(publications[0].channel, output);
    EXPECT_EQ(publications[0].text, R"({"requestID":"1","stream":0,"text":"hi\n"})");
    EXPECT_EQ(publications[1].channel, error);
    EXPECT_EQ(publications[1].text, R"({"requestID":"1","stream":1,"text":"oh"})");
    EXPECT_EQ(publications[2].channel, "/yvm/a/eval/response");
    EXPECT_TRUE(log.contains(logChannel, 8, "publishTextCallback to " + output));
    EXPECT_TRUE(log.contains(logChannel, 8, "publishTextCallback to " + error));
}

TEST_P(EvalFevalCancelTest, TextThatComesAfterTheServiceHasGoneIsDropped) {
    create();
    eval(R"({"requestID":"1","command":"x","runOptions":{"useNullOutSink":false}})");
    const auto command = distributor->lastCommand();
    client.reset();
    const LogCapture log;
    command.runOptions.getCallbacks().begin()->second(
        ylutil::io::TextBaseEvent(command.id, ylutil::io::StreamTypeEnum::Output, u"late"));
    EXPECT_TRUE(service->publications().empty());
    EXPECT_EQ(log.texts(logChannel, 8), std::vector<std::string>{"Returning early due to null weakThis"});
}

}  // namespace
}  // namespace yvm::JSClient
