#include "fuzzRepair.hpp"

#include "cmddistributor/RuntimeException.hpp"
#include "common/YVMConnection.hpp"
#include "common/repairCommand.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/ParserException.hpp"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using connector::Future;
using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using connector::message_service::Subscription;
using foundation::json::ParseResult;
using foundation::json::ParserException;
using yvm::JSClient::JsonObject;

/// Ends the program, which is how a fuzzer reports, unless `holds`.
void check(bool holds, const char* claim, std::string_view text) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n%.*s\n", claim, static_cast<int>(text.size()), text.data());
        std::abort();
    }
}

/// Keeps the one callback, and what is published.
class OneChannelService final : public connector::message_service::MessageService {
  public:
    Future<std::shared_ptr<Subscription>> subscribe(const std::string&, MessageCallback callback) override {
        class OnlySubscription final : public Subscription {
          public:
            explicit OnlySubscription(MessageCallback& deliver) : deliver_(deliver) {}
            Future<void> unsubscribe() override {
                deliver_ = nullptr;
                return connector::makeReadyFuture<void>();
            }

          private:
            MessageCallback& deliver_;
        };
        deliver = std::move(callback);
        return connector::makeReadyFuture<std::shared_ptr<Subscription>>(
            std::make_shared<OnlySubscription>(deliver));
    }
    Future<void> publish(const std::string&, DataBuffer payload) override {
        published.emplace_back(payload.view());
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

    MessageCallback deliver;
    std::vector<std::string> published;
};

/// What is to become of a message.
struct Fate {
    bool isEndless = false;
    std::optional<std::string> handled;  ///< the `requestID` that the handler sees
    std::optional<std::string> failure;  ///< the text of the error response
};

/// One edit, with its invariants; empty when the failure is beyond repair.
std::optional<std::string> repairOnce(const ParserException& failure, const std::string& text) {
    check(failure.offset() <= text.size(), "a failure points into the text or to its end", text);
    std::string repaired;
    try {
        repaired = yvm::JSClient::repairCommand(failure, text);
    } catch (const cmddistributor::RuntimeException& exception) {
        check(std::string_view(exception.what()) == "Invalid Command. Unable to parse command.",
              "a refusal has its text", text);
        return std::nullopt;
    }
    const bool inserts =
        failure.code() == ParseResult::expectedString || failure.code() == ParseResult::expectedColon;
    const std::size_t deleted = failure.offset() < text.size() ? 1 : 0;
    check(repaired.size() == (inserts ? text.size() + 1 : text.size() - deleted), "an edit is one byte",
          text);
    check(repaired.compare(0, failure.offset(), text, 0, failure.offset()) == 0, "no edit before the failure",
          text);
    return repaired;
}

std::optional<std::string> requestIDOf(const JsonObject& object) {
    const auto member = object.find("requestID");
    const auto* requestID = member == object.end() ? nullptr : member->second.getIf<std::string>();
    return requestID == nullptr ? std::nullopt : std::optional(*requestID);
}

/// Follows the repair. Each insertion mends a place for good, so the bound is far from what a finite repair
/// takes.
Fate foretell(std::string text) {
    std::optional<std::string> lastFailure;
    for (std::size_t repairs = 0; repairs < 10'000; ++repairs) {
        try {
            const auto value = foundation::json::parseText(text);
            const auto* object = value.getIf<JsonObject>();
            if (object == nullptr) {
                return {};
            }
            if (object->empty()) {
                return {.isEndless = true, .handled = {}, .failure = {}};
            }
            const auto requestID = requestIDOf(*object);
            if (!requestID) {
                return {};
            }
            return lastFailure ? Fate{.isEndless = false, .handled = {}, .failure = lastFailure}
                               : Fate{.isEndless = false, .handled = requestID, .failure = {}};
        } catch (const ParserException& failure) {
            lastFailure = failure.what();
            const auto repaired = repairOnce(failure, text);
            if (!repaired) {
                return {};
            }
            if (*repaired == text) {
                // The same failure comes again, unless the empty text ends the matter.
                return {.isEndless = !text.empty(), .handled = {}, .failure = {}};
            }
            text = *repaired;
        } catch (const std::runtime_error&) {
            return {};  // a `ywtype` that is no string
        }
    }
    return {.isEndless = true, .handled = {}, .failure = {}};
}

}  // namespace

void fuzzRepair(std::string_view text) {
    const Fate fate = foretell(std::string(text));
    if (fate.isEndless) {
        return;
    }
    const auto service = std::make_shared<OneChannelService>();
    std::vector<std::string> handled;
    const yvm::JSClient::YVMConnection connection(
        service, "/base",
        [&handled](const yvm::JSClient::BaseRequest& request) { handled.push_back(request.getRequestID()); });
    service->deliver(JsonMessage("/base/request", DataBuffer(std::string(text))));

    check(handled.size() == (fate.handled ? 1U : 0U), "a valid request is run once, a damaged one never",
          text);
    check(!fate.handled || handled.front() == *fate.handled, "the handler sees the request", text);
    check(service->published.size() == (fate.failure ? 1U : 0U), "a repaired request is answered, others not",
          text);
    if (fate.failure) {
        const auto response = foundation::json::parseText(service->published.front());
        const auto& error = response.as<JsonObject>().at("error").as<JsonObject>();
        check(error.at("status").as<double>() == 5, "the status tells a bad request", text);
        check(
            error.at("message").as<std::string>() == fl::i18n::to_string(fl::i18n::to_ustring(*fate.failure)),
            "the answer tells the last failure", text);
    }
}
