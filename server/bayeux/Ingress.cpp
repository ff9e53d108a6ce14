#include "server/bayeux/Ingress.hpp"

#include "server/bayeux/JsonText.hpp"

#include <simdjson.h>

#include <algorithm>

namespace server::bayeux {

namespace {

Refusal badRequest(std::string why) {
    return {ErrorCode::BadRequest, std::move(why)};
}

/// Whether a value that is known to be an object in strict JSON has no members.
bool isEmptyObject(std::string_view object) {
    const std::size_t first = object.find_first_not_of(" \t\r\n", 1);
    return first != std::string_view::npos && object[first] == '}';
}

/// Whether a key may be "ywtype", spelled with escapes or without.
bool mayHoldTypes(std::string_view text) {
    return text.find("ywtype") != std::string_view::npos || text.find("\\u006") != std::string_view::npos ||
           text.find("\\u007") != std::string_view::npos;
}

/// Whether some "ywtype" is no string: the module would then give no answer at all.
bool holdsWrongType(const simdjson::dom::element& value) {
    simdjson::dom::object object;
    if (!value.get(object)) {
        for (const auto& [key, member] : object) {
            if ((key == "ywtype" && !member.is_string()) || holdsWrongType(member)) {
                return true;
            }
        }
    }
    simdjson::dom::array array;
    if (!value.get(array)) {
        for (const simdjson::dom::element element : array) {
            if (holdsWrongType(element)) {
                return true;
            }
        }
    }
    return false;
}

/// Whether there is a "requestID", and each of them is a string: nobody can be answered otherwise, and
/// what is not answered counts as in flight.
bool hasRequestId(const simdjson::dom::element& value) {
    simdjson::dom::object object;
    bool isFound = false;
    if (!value.get(object)) {
        for (const auto& [key, member] : object) {
            if (key == "requestID") {
                if (!member.is_string()) {
                    return false;
                }
                isFound = true;
            }
        }
    }
    return isFound;
}

/// The same of a text that simdjson does not take, gathered member by member.
struct PlainFindings {
    void see(const JsonMember& member) {
        holdsWrongType = holdsWrongType || (!member.isString && spells(member.spelledKey, "ywtype"));
        if (member.depth == 1 && spells(member.spelledKey, "requestID")) {
            holdsId = holdsId || member.isString;
            holdsWrongId = holdsWrongId || !member.isString;
        }
    }

    bool hasRequestId() const { return holdsId && !holdsWrongId; }

    bool holdsWrongType = false;
    bool holdsId = false;
    bool holdsWrongId = false;
};

/// A parser that has room for `size` bytes, or nothing when there is no memory for it. That for usual texts
/// is kept: to make one costs more than to parse such a text.
class Parser {
  public:
    Parser(std::size_t size, std::size_t maxDepth) : parser_(size <= kUsualSize ? kept() : own_) {
        const std::size_t room = std::max(size, kUsualSize);
        if (parser_.capacity() < size || parser_.max_depth() != maxDepth) {
            hasRoom_ = parser_.allocate(room, maxDepth) == simdjson::SUCCESS;
        }
    }

    bool hasRoom() const { return hasRoom_; }

    auto parse(const std::string& text) { return parser_.parse(text.data(), text.size(), false); }

  private:
    static constexpr std::size_t kUsualSize = 16UL * 1024;

    static simdjson::dom::parser& kept() {
        thread_local simdjson::dom::parser parser;
        return parser;
    }

    simdjson::dom::parser own_;
    simdjson::dom::parser& parser_;
    bool hasRoom_ = true;
};

}  // namespace

std::variant<std::string, Refusal> Ingress::admit(std::string_view data) const {
    if (data.empty()) {
        return badRequest("a publish needs data");
    }
    if (data.size() > maxBytes_) {
        return Refusal{ErrorCode::TooLarge, "the data has " + std::to_string(data.size()) +
                                                " bytes - at most " + std::to_string(maxBytes_) +
                                                " are accepted"};
    }
    if (data.front() != '{') {
        return badRequest("the data must be an object");
    }
    std::string text;
    text.reserve(data.size() + simdjson::SIMDJSON_PADDING);
    text = data;
    // simdjson counts the innermost level only when it is not empty, so it may refuse one level too few.
    Parser parser(text.size(), maxDepth_);
    if (!parser.hasRoom()) {
        return Refusal{ErrorCode::Unavailable, "no memory for data of this size"};
    }
    simdjson::dom::element parsed;
    bool isWrongType = false;
    bool isIdentified = false;
    switch (const auto error = parser.parse(text).get(parsed); error) {
        case simdjson::SUCCESS:
            isWrongType = mayHoldTypes(text) && holdsWrongType(parsed);
            isIdentified = hasRequestId(parsed);
            break;
        case simdjson::UTF8_ERROR:
            return badRequest("the data is not UTF-8");
        default: {
            // simdjson refuses numbers beyond the range of its types, which are JSON all the same; and
            // where it is right, the plain validator knows the place.
            PlainFindings findings;
            if (const auto fault = whyNotStrictJson(
                    text, maxDepth_, [&findings](const JsonMember& member) { findings.see(member); })) {
                if (fault->isDepth) {
                    return Refusal{
                        ErrorCode::TooLarge,
                        "the data is nested more than " + std::to_string(maxDepth_) + " levels deep",
                        metrics::RefusalReason::Depth};
                }
                return badRequest("the data is not JSON - " + fault->text);
            }
            if (!simdjson::validate_utf8(text)) {
                return badRequest("the data is not UTF-8");
            }
            isWrongType = findings.holdsWrongType;
            isIdentified = findings.hasRequestId();
        }
    }
    if (isEmptyObject(text)) {
        return badRequest("the data must not be an empty object");
    }
    if (isWrongType) {
        return badRequest("every ywtype in the data must be a string");
    }
    if (!isIdentified) {
        return badRequest("the request needs a requestID - a string");
    }
    return text;
}

}  // namespace server::bayeux
