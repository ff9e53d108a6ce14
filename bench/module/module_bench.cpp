// What the module itself costs: the text of a request is handed to the subscriber of its channel, and the
// published response is taken, all on one thread. The engine settles each command inside the submission; the
// message service calls nobody. `goal` is the ratio to 150,000 requests a second.

#include "cmddistributor/CmdDistributor.hpp"
#include "common/createAttachedClient.hpp"
#include "connector/message_service/MessageService.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "yvm/YVM.hpp"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace {

using connector::Future;
using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using connector::message_service::Subscription;

constexpr double goalPerSecond = 150'000;

class NoSubscription final : public Subscription {
  public:
    Future<void> unsubscribe() override { return connector::makeReadyFuture<void>(); }
};

/// Keeps the callbacks by channel and the last publication.
class DirectMessageService final : public connector::message_service::MessageService {
  public:
    Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                    MessageCallback callback) override {
        callbacks_[channel] = std::move(callback);
        return connector::makeReadyFuture<std::shared_ptr<Subscription>>(std::make_shared<NoSubscription>());
    }
    Future<void> publish(const std::string& channel, DataBuffer payload) override {
        lastChannel_ = channel;
        lastPayload_ = std::move(payload);
        return connector::makeReadyFuture<void>();
    }
    Future<std::shared_ptr<Subscription>> onSubscribe(
        const std::string&, std::function<void(const connector::message_service::SubscribeEvent&)>) override {
        return {};
    }
    Future<std::shared_ptr<Subscription>> onUnsubscribe(
        const std::string&,
        std::function<void(const connector::message_service::UnsubscribeEvent&)>) override {
        return {};
    }

    const MessageCallback& callbackOf(const std::string& channel) const { return callbacks_.at(channel); }
    const std::string& lastChannel() const { return lastChannel_; }
    std::string_view lastText() const { return lastPayload_.view(); }

  private:
    std::map<std::string, MessageCallback> callbacks_;
    std::string lastChannel_;
    DataBuffer lastPayload_;
};

/// Settles each command with one number while it is being submitted.
class ImmediateDistributor final : public cmddistributor::CmdDistributor {
  public:
    boost::shared_future<CancelStatus> cancel(const IDType&, bool) override {
        boost::promise<CancelStatus> promise;
        promise.set_value(UNABLE_TO_CANCEL_OTHER);
        return promise.get_future().share();
    }
    void cancelGroup(const std::string&, bool) override {}

  private:
    void enqueueImpl(Submission& submission) override {
        const auto delegate = std::move(submission.delegate);
        delegate->succeed(cmddistributor::FEvalResult({factory_.createScalar(42.0)}));
    }

    foundation::yorlabdata::ArrayFactory factory_;
};

class ImmediateEngine final : public yvm::YVM {
  public:
    std::uint64_t getIdentifier() const override { return 1; }
    boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return distributor_; }
    void replaceSinks(Sink /*outSink*/, Sink /*errSink*/) override {}
    foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<yvm::YVM> /*self*/) override {
        return {};
    }
    void interrupt() override {}
    std::shared_ptr<ylutil::debugger::Debugger> getDebugger() override { return {}; }
    void breakInDebugger() override {}
    boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() override { return nullptr; }

  private:
    boost::shared_ptr<cmddistributor::CmdDistributor> distributor_ =
        boost::make_shared<ImmediateDistributor>();
};

/// Sends `text` on "/yvm/bench" + `channel` once for each iteration; each must be answered by `expected`.
void roundTrip(benchmark::State& state, const std::string& channel, const std::string& text,
               std::string_view expected) {
    const auto service = std::make_shared<DirectMessageService>();
    const auto client = yvm::JSClient::createAttachedClient(yvm::JSClient::ApiVersion::r24a0, "/yvm/bench",
                                                            std::make_shared<ImmediateEngine>(), service, {});
    const auto& callback = service->callbackOf("/yvm/bench" + channel + "/request");
    const JsonMessage message("/yvm/bench" + channel + "/request", DataBuffer(text));
    for (auto _ : state) {
        callback(message);
    }
    if (service->lastChannel() != "/yvm/bench" + channel + "/response" || service->lastText() != expected) {
        state.SkipWithError(("wrong answer: " + std::string(service->lastText())).c_str());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["goal"] = benchmark::Counter(static_cast<double>(state.iterations()) / goalPerSecond,
                                                benchmark::Counter::kIsRate);
    state.counters["bytes"] = static_cast<double>(text.size());
}

/// As a console sends it: the command, and where its text goes. 200 bytes.
void evalRequest(benchmark::State& state) {
    roundTrip(
        state, "/eval",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77","command":"variance_of_x = sum(x * x for x in values) )~"
        R"~(/ len(values)","isUserEval":true,"runOptions":{"useNullOutSink":false,"useNullErrSink":false}})~",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77"})~");
}

/// About the same length without run options, the rest being source text.
void evalRequestWithoutRunOptions(benchmark::State& state) {
    roundTrip(
        state, "/eval",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77","command":"variance_of_x = sum(x * x for x in values) )~"
        R"~(/ len(values); mean = sum(values) / len(values); print(variance_of_x - mean * mean, log)\n"})~",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77"})~");
}

void fevalRequest(benchmark::State& state) {
    roundTrip(
        state, "/feval",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77","function":"numpy.add","numOutputsExpected":1,)~"
        R"~("rhsArgs":["[1,2,3,4]","{\"ywtype\":\"float64\",\"ywsize\":[4],\"ywdata\":[1,2,3,4]}"]})~",
        R"~({"requestID":"0b0e7c52-5f1c-4f0e-9d6e-3c1c1b1f2a77","result":[42]})~");
}

void measure(benchmark::internal::Benchmark* benchmark) {
    benchmark->Unit(benchmark::kMicrosecond)->Repetitions(7)->ReportAggregatesOnly(true);
}

BENCHMARK(evalRequest)->Apply(measure);
BENCHMARK(evalRequestWithoutRunOptions)->Apply(measure);
BENCHMARK(fevalRequest)->Apply(measure);

}  // namespace

BENCHMARK_MAIN();
