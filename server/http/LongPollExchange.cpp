#include "server/http/LongPollExchange.hpp"

#include "server/bayeux/JsonText.hpp"

namespace server::http {

void LongPollExchange::send(bayeux::FrameText frame) {
    // A stock client breaks other characters where TCP cuts them.
    answer(200, bayeux::toAsciiJson(frame.take()));
}

void LongPollExchange::refuseFrame(bayeux::FrameText, const bayeux::Refusal& why) {
    answer(why.code == bayeux::ErrorCode::TooLarge ? 413 : 400, why.text);
}

void LongPollExchange::close(bayeux::CloseCode, std::string reason) {
    answer(503, std::move(reason));
}

void LongPollExchange::supersede() {
    // With a Bayeux reply two pages that share one client id would drive each other in a circle.
    answer(408, "another request has taken over");
}

void LongPollExchange::answer(unsigned status, std::string body) {
    if (!isAnswered_) {
        isAnswered_ = true;
        answer_(status, std::move(body));
    }
}

}  // namespace server::http
