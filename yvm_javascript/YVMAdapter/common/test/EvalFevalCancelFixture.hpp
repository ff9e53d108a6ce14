#pragma once

#include "common/ApiVersion.hpp"
#include "common/test/support.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"
#include "r22a0/EvalFevalCancel.hpp"
#include "r24a0/EvalFevalCancel.hpp"
#include "testing/FakeCmdDistributor.hpp"
#include "testing/FakeMessageService.hpp"
#include "testing/FakeYvm.hpp"
#include "testing/LogCapture.hpp"
#include "yvm/json_serializers/serialize.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace yvm::JSClient {

/// The execution service of a client of that version.
inline std::shared_ptr<void> createEvalFevalCancel(
    ApiVersion version, const std::string& prefix, const std::shared_ptr<yvm::YVM>& engine,
    const std::shared_ptr<connector::message_service::MessageService>& service) {
    if (version == ApiVersion::r22a0) {
        return r22a0::EvalFevalCancel::create(prefix, engine, service, nullptr);
    }
    return r24a0::EvalFevalCancel::create(prefix, engine, service, nullptr);
}

/// The service of the client "/yvm/a", once made by `create`, on a distributor without an engine.
class EvalFevalCancelFixture : public testing::Test {
  protected:
    using CmdDistributor = cmddistributor::CmdDistributor;
    using RuntimeException = cmddistributor::RuntimeException;
    using FakeCmdDistributor = platform_testing::FakeCmdDistributor;
    using FakeMessageService = platform_testing::FakeMessageService;
    using FakeYvm = platform_testing::FakeYvm;
    using Value = foundation::json::Value;

    static constexpr const char* logChannel = "yvm::JSClient::EvalFevalCancel";

    explicit EvalFevalCancelFixture(ApiVersion ownVersion) : version(ownVersion) {}

    void create() { client = createEvalFevalCancel(version, "/yvm/a", engine, service); }

    /// Delivers a request on the client's channel of this name.
    void request(const std::string& channel, const std::string& message) {
        EXPECT_EQ(service->deliver("/yvm/a/" + channel + "/request", message), 1U);
    }
    void eval(const std::string& message) { request("eval", message); }
    void feval(const std::string& message) { request("feval", message); }

    std::vector<FakeMessageService::Publication> evalResponses() const {
        return service->publicationsOn("/yvm/a/eval/response");
    }

    /// The text of the only publication so far, which is on `channel`.
    std::string onlyText(const std::string& channel) const {
        const auto publications = service->publications();
        EXPECT_EQ(publications.size(), 1U);
        if (publications.size() != 1) {
            return {};
        }
        EXPECT_EQ(publications.front().channel, channel);
        return publications.front().text;
    }
    Value only(const std::string& channel) const { return foundation::json::parseText(onlyText(channel)); }

    /// The text of a response that carries `error`.
    static std::string errorResponse(const std::string& requestID, const RuntimeException& error) {
        return foundation::json::Serializer::serialize(
            JsonObject{{"requestID", requestID}, {"error", json_serializers::serialize(error)}});
    }

    static std::string textOf(const CmdDistributor::IDType& id) {
        std::ostringstream text;
        text << id;
        return text.str();
    }

    CmdDistributor::IDType lastId() const { return distributor->lastCommand().id; }

    const ApiVersion version;
    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    const boost::shared_ptr<FakeCmdDistributor> distributor = FakeCmdDistributor::create();
    std::shared_ptr<FakeYvm> engine = FakeYvm::create(distributor);
    const foundation::yorlabdata::ArrayFactory arrays{};
    std::shared_ptr<void> client;
};

/// Runs a function of the test inside each cancel. For one command at a time.
class CancelHook final : public cmddistributor::CmdDistributor {
  public:
    boost::shared_future<CancelStatus> cancel(const IDType& id, bool) override {
        onCancel(id);
        boost::promise<CancelStatus> promise;
        promise.set_value(CANCEL_BEFORE_RUNNING);
        return promise.get_future().share();
    }
    void cancelGroup(const std::string&, bool) override {}

    std::function<void(const IDType&)> onCancel = [](const IDType&) {};
    std::unique_ptr<cmddistributor::PromiseDelegate> delegate;

  private:
    void enqueueImpl(Submission& submission) override { delegate = std::move(submission.delegate); }
};

/// Hands everything on to `inner`.
class ForwardingMessageService : public connector::message_service::MessageService {
  public:
    using Subscription = connector::message_service::Subscription;

    connector::Future<std::shared_ptr<Subscription>> subscribe(const std::string& channel,
                                                               MessageCallback callback) override {
        return inner->subscribe(channel, std::move(callback));
    }
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override {
        return inner->publish(channel, std::move(payload));
    }
    connector::Future<std::shared_ptr<Subscription>> onSubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::SubscribeEvent&)> callback) override {
        return inner->onSubscribe(channel, std::move(callback));
    }
    connector::Future<std::shared_ptr<Subscription>> onUnsubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::UnsubscribeEvent&)> callback) override {
        return inner->onUnsubscribe(channel, std::move(callback));
    }

    const std::shared_ptr<platform_testing::FakeMessageService> inner =
        platform_testing::FakeMessageService::create();
};

}  // namespace yvm::JSClient
