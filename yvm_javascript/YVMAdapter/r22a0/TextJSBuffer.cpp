#include "r22a0/TextJSBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/makeTextMessage.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/exception/diagnostic_information.hpp>

#include <utility>

namespace yvm::JSClient::r22a0 {

namespace {

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::TextJSBuffer");
    return instance;
}

}  // namespace

TextJSBuffer::TextJSBuffer(ylutil::io::StreamTypeEnum streamType, SendFunction sendFunction)
    : streamType_(streamType),
      lastRequestId_(foundation::msg_svc::exchange::IDType::null()),
      sendFunction_(std::move(sendFunction)) {}

TextJSBuffer::int_type TextJSBuffer::overflow(int_type character) {
    if (const int_type unit = traits_type::not_eof(character); unit != 0) {
        const char16_t text = traits_type::to_char_type(unit);
        xsputn(&text, 1);
    }
    return character;
}

std::streamsize TextJSBuffer::xsputn(const char16_t* text, std::streamsize count) {
    const auto requestId = cmddistributor::RequestIdAdapter().getRequestId();
    if (requestId != lastRequestId_) {
        sync();
        lastRequestId_ = requestId;
    }
    text_.append(text, static_cast<std::size_t>(count));
    if (text_.size() > flushThreshold) {
        sync();
    }
    return count;
}

int TextJSBuffer::sync() {
    try {
        if (text_.empty()) {
            return 0;
        }
        JsonObject message = makeTextMessage(streamType_, text_);
        // Emptied first: text that cannot be sent is not tried again, which would hold up all that follows.
        text_.clear();
        sendFunction_(std::move(message));
        return 0;
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Exception caught: " << boost::current_exception_diagnostic_information(true);
        return -1;
    }
}

}  // namespace yvm::JSClient::r22a0
