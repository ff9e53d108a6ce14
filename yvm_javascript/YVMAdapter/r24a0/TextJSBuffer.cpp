#include "r24a0/TextJSBuffer.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "r24a0/isSmartBufEnabled.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/make_shared.hpp>

#include <cstddef>
#include <string>

namespace yvm::JSClient::r24a0 {

namespace {

using ylutil::io::StreamTypeEnum;

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance = *new foundation::log::diagnostic_logger("yvm::JSClient::TextJSBuffer");
    return instance;
}

}  // namespace

TextJSBuffer::TextJSBuffer(StreamTypeEnum streamType, std::weak_ptr<TextJSBufferPublisher> publisher)
    : streamType_(streamType),
      lastRequestId_(foundation::msg_svc::exchange::IDType::null()),
      publisher_(std::move(publisher)) {}

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
    if (const auto publisher = publisher_.lock()) {
        publisher->push(streamType_, std::u16string(text, static_cast<std::size_t>(count)));
    }
    return count;
}

int TextJSBuffer::sync() {
    if (isSmartBufEnabled()) {
        return 0;
    }
    try {
        if (const auto publisher = publisher_.lock()) {
            publisher->send();
        }
        return 0;
    } catch (...) {
        FOUNDATION_LOG(logger(), foundation::log::CaughtException)
            << "Exception caught: " << boost::current_exception_diagnostic_information(true);
        return -1;
    }
}

std::pair<ylutil::io::YLSink::Buffer, ylutil::io::YLSink::Buffer> makeTextJSBuffers(
    const std::weak_ptr<TextJSBufferPublisher>& publisher) {
    auto out = boost::make_shared<TextJSBuffer>(StreamTypeEnum::Output, publisher);
    auto err = boost::make_shared<TextJSBuffer>(StreamTypeEnum::Error, publisher);
    if (isSmartBufEnabled()) {
        if (const auto strong = publisher.lock()) {
            strong->startPublishTimer();
        }
    }
    return {std::move(out), std::move(err)};
}

}  // namespace yvm::JSClient::r24a0
