#include "server/bayeux/Reply.hpp"

#include "server/bayeux/JsonText.hpp"

namespace server::bayeux {

std::string retryAdvice(std::chrono::milliseconds timeout) {
    return R"({"reconnect":"retry","interval":0,"timeout":)" + std::to_string(timeout.count()) + "}";
}

void Frame::open(std::string_view channel, std::string_view id) {
    text_ += text_.empty() ? '[' : ',';
    text_ += R"({"channel":)";
    appendJsonString(text_, channel);
    if (!id.empty()) {
        text_ += R"(,"id":)";
        text_ += id;
    }
}

void Frame::addReply(std::string_view channel, std::string_view id, std::string_view fields) {
    open(channel, id);
    text_ += R"(,"successful":true)";
    text_ += fields;
    text_ += '}';
}

void Frame::addFailure(std::string_view channel, std::string_view id, const Refusal& refusal,
                       std::string_view fields) {
    open(channel, id);
    text_ += R"(,"successful":false,"error":")" + errorField(refusal) + '"';
    text_ += fields;
    text_ += '}';
}

void Frame::addEvent(const Event& event) {
    // Grown once: the payload may be most of the frame.
    text_.reserve(text_.size() + event.channel.size() + event.payload.size() + 32);
    open(event.channel, {});
    text_ += R"(,"data":)";
    text_ += event.payload.size() == 0 ? std::string_view("null") : event.payload.view();
    text_ += '}';
}

std::string Frame::take() {
    text_ += ']';
    return std::exchange(text_, {});
}

}  // namespace server::bayeux
