#pragma once

#include "common/test/support.hpp"
#include "foundation/json/Serializer.hpp"
#include "ylutil/io/StreamTypeEnum.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

namespace yvm::JSClient::test {

/// A text message, as a client reads it.
struct Sent {
    ylutil::io::StreamTypeEnum stream{};
    std::string text;

    explicit Sent(const JsonObject& message) : Sent(foundation::json::Serializer::serialize(message)) {}
    explicit Sent(const std::string& json) {
        const auto message = parseObject(json);
        EXPECT_EQ(message.size(), 2U) << json;
        stream = static_cast<ylutil::io::StreamTypeEnum>(message.at("stream").as<double>());
        text = message.at("text").as<std::string>();
    }
    Sent(ylutil::io::StreamTypeEnum ownStream, std::string ownText)
        : stream(ownStream), text(std::move(ownText)) {}

    bool operator==(const Sent&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Sent& sent) {
        return out << sent.stream << ": " << sent.text;
    }
};

/// Opens what is protected of a stream buffer, and counts what is called through the table of virtual
/// operations.
template <typename Buffer>
class OpenBuffer final : public Buffer {
  public:
    using Buffer::Buffer;
    using Buffer::overflow;

    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        ++writes;
        return Buffer::xsputn(text, count);
    }
    int sync() override {
        ++syncs;
        return Buffer::sync();
    }
    std::streamsize write(const std::u16string& text) {
        return this->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    }

    int writes = 0;
    int syncs = 0;
};

}  // namespace yvm::JSClient::test
