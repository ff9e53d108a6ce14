#include "server/bayeux/Reply.hpp"

#include "server/bayeux/JsonText.hpp"

#include <utility>

namespace server::bayeux {

std::string retryAdvice(std::chrono::milliseconds timeout) {
    return R"({"reconnect":"retry","interval":0,"timeout":)" + std::to_string(timeout.count()) + "}";
}

void Frame::open(std::string_view channel, std::string_view id) {
    ++count_;
    std::string text(text_.empty() ? "[" : ",");
    text += R"({"channel":)";
    appendJsonString(text, channel);
    if (!id.empty()) {
        text += R"(,"id":)";
        text += id;
    }
    text_.append(text);
}

void Frame::addReply(std::string_view channel, std::string_view id, std::string_view fields) {
    open(channel, id);
    text_.append(R"(,"successful":true)");
    text_.append(fields);
    text_.append("}");
}

void Frame::addFailure(std::string_view channel, std::string_view id, const Refusal& refusal,
                       std::string_view fields) {
    open(channel, id);
    text_.append(R"(,"successful":false,"error":")" + errorField(refusal) + '"');
    text_.append(fields);
    text_.append("}");
}

void Frame::addEvent(const Event& event) {
    open(event.channel, {});
    text_.append(R"(,"data":)");
    if (event.payload.size() == 0) {
        text_.append("null");
    } else {
        text_.append(event.payload);
    }
    text_.append("}");
}

FrameText Frame::take() {
    text_.append("]");
    count_ = 0;
    return std::exchange(text_, {});
}

}  // namespace server::bayeux
