#include "foundation/json/Parser.hpp"
#include "foundation/json/Value.hpp"
#include "fuzzBayeux.hpp"
#include "server/bayeux/Envelope.hpp"
#include "server/bayeux/Ingress.hpp"
#include "server/bayeux/JsonText.hpp"
#include "server/bayeux/Reply.hpp"

#include <simdjson.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

using namespace server::bayeux;

constexpr Limits kLimits{.maxMessageBytes = 1UL << 20U};

void check(bool holds, const char* claim, std::string_view text) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n%.*s\n", claim, static_cast<int>(text.size()), text.data());
        std::abort();
    }
}

bool isJson(std::string_view text) {
    simdjson::dom::parser parser;
    return parser.parse(text.data(), text.size()).error() == simdjson::SUCCESS;
}

/// The module leaves some damaged texts in its loop for ever, those that end too early and empty objects,
/// tries to mend others, and gives no answer to yet others. Only what it can read may pass.
void checkAdmitted(std::string_view admitted, bool mayBeEmpty, std::string_view frame) {
    check(!whyNotStrictJson(admitted, Limits::kGreatestDepth), "what is admitted is strict JSON", frame);
    try {
        const foundation::json::Value value = foundation::json::parseText(admitted);
        const auto* object = value.getIf<foundation::json::Object>();
        check(object != nullptr, "the module reads an object", frame);
        check(mayBeEmpty || !object->empty(), "a request is not empty", frame);
    } catch (const std::runtime_error&) {
        check(false, "the module reads what is admitted", frame);
    }
}

void checkIngress(std::string_view data, std::string_view frame) {
    const Ingress ingress(kLimits);
    for (const bool isForSinks : {false, true}) {
        const auto admitted = isForSinks ? ingress.admitSinks(data) : ingress.admit(data);
        if (const auto* refusal = std::get_if<Refusal>(&admitted)) {
            check(!refusal->text.empty(), "a refusal says why", frame);
        } else {
            check(std::get<std::string>(admitted) == data, "the data is handed on as it stands", frame);
            checkAdmitted(data, isForSinks, frame);
        }
    }
}

void checkMessage(const Message& message, std::string_view frame) {
    Frame reply;
    reply.addReply(message.channel, message.id,
                   message.subscriptionText.empty() ? "" : ",\"subscription\":" + message.subscriptionText);
    if (message.malformed) {
        reply.addFailure(message.channel, message.id, *message.malformed);
    }
    check(isJson(reply.take().take()), "the replies are JSON", frame);

    checkIngress(message.data, frame);
}

}  // namespace

void fuzzEnvelope(std::string_view text) {
    std::string frame(text);
    const auto parsed = parseEnvelope(frame, kLimits.maxBatchMessages);
    check(frame == text, "the frame stays as it is", text);
    if (const auto* messages = std::get_if<std::vector<Message>>(&parsed)) {
        check(!messages->empty(), "there is a message", text);
        for (const Message& message : *messages) {
            checkMessage(message, text);
        }
    } else {
        check(!std::get<Refusal>(parsed).text.empty(), "a refusal says why", text);
    }
    // A whole frame as data, which has no blanks around it: the fuzzer reaches more of the gate so.
    checkIngress(text.substr(0, text.find_last_not_of(" \t\r\n") + 1), text);
}
