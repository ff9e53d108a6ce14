#include "server/bayeux/Envelope.hpp"

#include "server/bayeux/JsonText.hpp"

#include <simdjson.h>

namespace server::bayeux {

namespace {

namespace dom = simdjson::dom;
namespace ondemand = simdjson::ondemand;

/// The text of a token or container without the white space in front of the next token, which
/// simdjson includes.
std::string_view trimmed(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// The text of any value. Throws `simdjson_error` where the value has no end.
std::string_view rawText(ondemand::value value) {
    switch (value.type()) {
        case ondemand::json_type::object:
            return trimmed(ondemand::object(value.get_object()).raw_json());
        case ondemand::json_type::array:
            return trimmed(ondemand::array(value.get_array()).raw_json());
        default:
            return trimmed(value.raw_json_token());
    }
}

/// One message cut in two: its `data`, which is large and stays where it is, and a smaller object with
/// all the rest, which is then parsed in full. On-demand parsing does not look into what it skips.
struct SplitMessage {
    std::string header;
    std::string_view data;
    std::string_view id;
    std::string_view subscription;
};

/// What most headers take, with the room behind that the parser reads ahead in.
constexpr std::size_t kUsualHeader = 256 + simdjson::SIMDJSON_PADDING;

SplitMessage split(ondemand::object object) {
    SplitMessage parts;
    parts.header.reserve(kUsualHeader);
    parts.header = "{";
    for (auto field : object) {
        const std::string key(std::string_view(field.unescaped_key()));
        const std::string_view text = rawText(field.value());
        if (key == "data") {
            parts.data = parts.data.empty() ? text : parts.data;
            continue;
        }
        if (key == "id" && parts.id.empty()) {
            parts.id = text;
        } else if (key == "subscription" && parts.subscription.empty()) {
            parts.subscription = text;
        }
        if (parts.header.size() > 1) {
            parts.header += ',';
        }
        appendJsonString(parts.header, key);
        parts.header += ':';
        parts.header += text;
    }
    parts.header += '}';
    return parts;
}

/// As JavaScript sees it.
bool isTrue(dom::element value) {
    switch (value.type()) {
        case dom::element_type::BOOL:
            return bool(value);
        case dom::element_type::NULL_VALUE:
            return false;
        case dom::element_type::STRING:
            return value.get_string_length().value_unsafe() != 0;
        case dom::element_type::INT64:
        case dom::element_type::UINT64:
        case dom::element_type::DOUBLE:
            return double(value) != 0;
        default:
            return true;
    }
}

/// Copies the fields of one header, and remembers the first that is of a wrong type.
class HeaderReader {
  public:
    HeaderReader(dom::object header, Message& message) : header_(header), message_(message) {}

    void read(const SplitMessage& parts) {
        message_.data = parts.data;
        message_.channel = text("channel");
        if (message_.channel.empty()) {
            refuse("a message needs a channel");
        }
        readId(parts.id);
        message_.clientId = text("clientId");
        message_.minimumVersion = text("minimumVersion");
        message_.supportedConnectionTypes = texts("supportedConnectionTypes");
        if (dom::element subscription; !header_["subscription"].get(subscription)) {
            message_.subscriptionText = parts.subscription;
            message_.subscriptions = subscription.is_string()
                                         ? std::vector{text("subscription")}
                                         : texts("subscription", "a string or an array of strings");
        }
        readTimeout();
        readExtensions();
    }

  private:
    void readId(std::string_view idText) {
        dom::element id;
        if (header_["id"].get(id)) {
            return;
        }
        if (id.is_string() || id.is_number()) {
            message_.id = idText;
        } else {
            refuse("id must be a string or a number");
        }
    }

    void readTimeout() {
        dom::element timeout;
        if (header_["advice"]["timeout"].get(timeout)) {
            return;
        }
        // Bounded on both sides, so that no arithmetic on it can overflow.
        constexpr double kLongest = 24.0 * 3600.0 * 1000.0;
        double milliseconds = 0;
        if (timeout.get(milliseconds) || milliseconds < 0) {
            refuse("advice.timeout must be a number of milliseconds");
            return;
        }
        message_.timeout =
            std::chrono::milliseconds(static_cast<std::int64_t>(std::min(milliseconds, kLongest)));
    }

    /// `ext` is open to anybody's extensions: a token or number of another type is none of ours.
    void readExtensions() {
        if (std::string_view token; !header_["ext"]["token"].get(token)) {
            message_.token = token;
        }
        dom::element ack;
        if (header_["ext"]["ack"].get(ack)) {
            return;
        }
        dom::element enabled;
        message_.wantsAcknowledgement =
            ack["enabled"].get(enabled) ? ack.is_bool() && isTrue(ack) : isTrue(enabled);
        if (std::uint64_t number = 0; !ack.get(number)) {
            message_.acknowledged = number;
        }
    }

    std::string text(const char* key) {
        dom::element value;
        if (header_[key].get(value) || value.is_null()) {
            return {};
        }
        std::string_view characters;
        if (value.get(characters)) {
            refuse(std::string(key) + " must be a string");
        }
        return std::string(characters);
    }

    std::vector<std::string> texts(const char* key, const char* accepted = "an array of strings") {
        dom::element value;
        if (header_[key].get(value) || value.is_null()) {
            return {};
        }
        std::vector<std::string> result;
        dom::array array;
        if (value.get(array)) {
            refuse(std::string(key) + " must be " + accepted);
            return {};
        }
        for (const dom::element element : array) {
            std::string_view characters;
            if (element.get(characters)) {
                refuse(std::string(key) + " must hold strings only");
                return {};
            }
            result.emplace_back(characters);
        }
        return result;
    }

    void refuse(std::string why) {
        if (!message_.malformed) {
            message_.malformed = Refusal{ErrorCode::BadRequest, std::move(why)};
        }
    }

    dom::object header_;
    Message& message_;
};

struct Parsers {
    ondemand::parser frames;
    dom::parser headers;
};

/// Parsers whose memory is kept from one short frame to the next: to make them costs more than to parse it.
Parsers& keptParsers() {
    thread_local Parsers parsers;
    return parsers;
}
constexpr std::size_t kShortFrame = 16UL * 1024;

Message readMessage(ondemand::value value, dom::parser& headerParser) {
    Message message;
    if (value.type() != ondemand::json_type::object) {
        message.malformed = Refusal{ErrorCode::BadRequest, "a message must be an object"};
        return message;
    }
    const SplitMessage parts = split(value.get_object());
    const dom::object header = headerParser.parse(parts.header);
    HeaderReader(header, message).read(parts);
    return message;
}

}  // namespace

std::variant<std::vector<Message>, Refusal> parseEnvelope(std::string& frame, std::size_t maxMessages) {
    frame.reserve(frame.size() + simdjson::SIMDJSON_PADDING);
    try {
        Parsers own;
        Parsers& parsers = frame.size() <= kShortFrame ? keptParsers() : own;
        ondemand::document document = parsers.frames.iterate(
            simdjson::padded_string_view(frame.data(), frame.size(), frame.capacity()));
        std::vector<Message> messages;
        switch (document.type()) {
            case ondemand::json_type::array:
                for (auto element : document.get_array()) {
                    if (messages.size() == maxMessages) {
                        return Refusal{ErrorCode::TooLarge,
                                       "more than " + std::to_string(maxMessages) + " messages in one frame",
                                       metrics::RefusalReason::BatchMessages};
                    }
                    messages.push_back(readMessage(element.value(), parsers.headers));
                }
                break;
            case ondemand::json_type::object:
                messages.push_back(readMessage(document.get_value(), parsers.headers));
                break;
            default:
                return Refusal{ErrorCode::BadRequest, "an array of messages is expected"};
        }
        if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) {
            return Refusal{ErrorCode::BadRequest, "more text behind the messages"};
        }
        if (messages.empty()) {
            return Refusal{ErrorCode::BadRequest, "the array holds no message"};
        }
        return messages;
    } catch (const simdjson::simdjson_error& error) {
        return Refusal{ErrorCode::BadRequest, std::string("not JSON - ") + error.what()};
    }
}

}  // namespace server::bayeux
