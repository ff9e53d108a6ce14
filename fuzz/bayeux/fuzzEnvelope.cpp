#include "foundation/json/Parser.hpp"
#include "foundation/json/ParserException.hpp"
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

/// The module leaves some damaged texts in its loop for ever, those that end too early and empty objects, and
/// tries to mend others. Only what makes it give up at once may pass besides what it can read: typed integer
/// arrays with other elements, which are JSON all the same.
void checkAdmitted(std::string_view admitted, std::string_view frame) {
    check(!whyNotStrictJson(admitted, Limits::kGreatestDepth), "what is admitted is strict JSON", frame);
    try {
        const foundation::json::Value value = foundation::json::parseText(admitted);
        const auto* object = value.getIf<foundation::json::Object>();
        check(object != nullptr && !object->empty(), "the module reads an object that is not empty", frame);
    } catch (const foundation::json::ParserException& error) {
        const int code = static_cast<int>(error.code());
        check(code != 5 && code != 8 && code != 18 && code != 19, "the module tries to mend nothing", frame);
    } catch (const std::runtime_error&) {
        // A ywtype that is no string.
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

    const auto admitted = Ingress(kLimits).admit(message.data);
    if (const auto* refusal = std::get_if<Refusal>(&admitted)) {
        check(!refusal->text.empty(), "a refusal says why", frame);
    } else {
        check(std::get<std::string>(admitted) == message.data, "the data is handed on as it stands", frame);
        checkAdmitted(message.data, frame);
    }
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
    // A whole frame as data: the fuzzer reaches more of the gate so.
    const auto admitted = Ingress(kLimits).admit(text);
    if (std::get_if<std::string>(&admitted) != nullptr) {
        checkAdmitted(text, text);
    }
}
