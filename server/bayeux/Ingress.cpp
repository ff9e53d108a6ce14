#include "server/bayeux/Ingress.hpp"

#include "foundation/json/Parser.hpp"
#include "foundation/json/Value.hpp"
#include "server/bayeux/JsonText.hpp"

#include <simdjson.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

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

constexpr const char* kTypeIsNoString = "every ywtype in the data must be a string";
constexpr const char* kNoIntegers = "the ywdata of an integer ywtype must be an array of plain integers";

bool namesIntegers(std::string_view type) {
    if (type.starts_with('u')) {
        type.remove_prefix(1);
    }
    return type == "int64" || type == "int32" || type == "int16" || type == "int8";
}

bool arePlainIntegers(const simdjson::dom::element& value) {
    simdjson::dom::array array;
    return !value.get(array) && std::all_of(array.begin(), array.end(), [](const simdjson::dom::element& e) {
        return e.is_int64() || e.is_uint64();
    });
}

const char* whyUnanswered(const simdjson::dom::element& value);

const char* whyUnansweredObject(const simdjson::dom::object& object) {
    std::optional<bool> isOfIntegers;
    for (const auto& [key, member] : object) {
        if (key == "ywtype") {
            std::string_view type;
            if (member.get(type)) {
                return kTypeIsNoString;
            }
            isOfIntegers = isOfIntegers.value_or(namesIntegers(type));
        } else if (const char* const why = whyUnanswered(member)) {
            return why;
        }
    }
    if (isOfIntegers.value_or(false)) {
        for (const auto& [key, member] : object) {
            if (key == "ywdata" && !arePlainIntegers(member)) {
                return kNoIntegers;
            }
        }
    }
    return nullptr;
}

/// What the value holds that the module's parser fails at, which would then give no answer at all: a "ywtype"
/// that is no string, or one that names integers beside a "ywdata" of something else. Null for nothing.
const char* whyUnanswered(const simdjson::dom::element& value) {
    if (simdjson::dom::object object; !value.get(object)) {
        return whyUnansweredObject(object);
    }
    if (simdjson::dom::array array; !value.get(array)) {
        for (const simdjson::dom::element element : array) {
            if (const char* const why = whyUnanswered(element)) {
                return why;
            }
        }
    }
    return nullptr;
}

/// The same of strict JSON that simdjson does not take, as the module's parser says itself.
const char* whyUnanswered(std::string_view text) {
    try {
        foundation::json::Value value;
        return foundation::json::parse(text.data(), text.data() + text.size(), value).ok() ? nullptr
                                                                                           : kNoIntegers;
    } catch (const std::runtime_error&) {
        return kTypeIsNoString;
    }
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
        if (member.depth == 1 && spells(member.spelledKey, "requestID")) {
            holdsId = holdsId || member.isString;
            holdsWrongId = holdsWrongId || !member.isString;
        }
    }

    bool hasRequestId() const { return holdsId && !holdsWrongId; }

    bool holdsId = false;
    bool holdsWrongId = false;
};

/// What is wrong with the traits in a request for the sinks of r22a0, or null. The module would not answer.
const char* whyNoTraits(const std::string& text) {
    const foundation::json::Value value = foundation::json::parseText(text);
    const auto& request = *value.getIf<foundation::json::Object>();
    for (const char* const side : {"outSinkTraits", "errSinkTraits"}) {
        const auto found = request.find(side);
        if (found == request.end()) {
            continue;
        }
        const auto* const traits = found->second.getIf<foundation::json::Object>();
        if (traits == nullptr) {
            return "outSinkTraits and errSinkTraits must be objects";
        }
        for (const char* const name : {"_supportsMore", "_supportsHotlinks", "_useDiary", "_useEcho",
                                       "_needsFormattingForDisplay", "_useLogging"}) {
            const auto trait = traits->find(name);
            if (trait != traits->end() && trait->second.getIf<bool>() == nullptr) {
                return "every trait of a sink must be true or false";
            }
        }
    }
    return nullptr;
}

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
    bool isIdentified = false;
    auto admitted = read(data, isIdentified);
    if (const auto* const text = std::get_if<std::string>(&admitted)) {
        if (isEmptyObject(*text)) {
            return badRequest("the data must not be an empty object");
        }
        if (!isIdentified) {
            return badRequest("the request needs a requestID - a string");
        }
    }
    return admitted;
}

std::variant<std::string, Refusal> Ingress::admitSinks(std::string_view data) const {
    bool isIdentified = false;
    auto admitted = read(data, isIdentified);
    if (const auto* const text = std::get_if<std::string>(&admitted)) {
        if (const char* const why = whyNoTraits(*text)) {
            return badRequest(why);
        }
    }
    return admitted;
}

std::variant<std::string, Refusal> Ingress::read(std::string_view data, bool& isIdentified) const {
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
    const char* fault = nullptr;
    switch (const auto error = parser.parse(text).get(parsed); error) {
        case simdjson::SUCCESS:
            fault = mayHoldTypes(text) ? whyUnanswered(parsed) : nullptr;
            isIdentified = hasRequestId(parsed);
            break;
        case simdjson::UTF8_ERROR:
            return badRequest("the data is not UTF-8");
        default: {
            // simdjson refuses numbers beyond the range of its types, which are JSON all the same; and
            // where it is right, the plain validator knows the place.
            PlainFindings findings;
            if (const auto damage = whyNotStrictJson(
                    text, maxDepth_, [&findings](const JsonMember& member) { findings.see(member); })) {
                if (damage->isDepth) {
                    return Refusal{
                        ErrorCode::TooLarge,
                        "the data is nested more than " + std::to_string(maxDepth_) + " levels deep",
                        metrics::RefusalReason::Depth};
                }
                return badRequest("the data is not JSON - " + damage->text);
            }
            if (!simdjson::validate_utf8(text)) {
                return badRequest("the data is not UTF-8");
            }
            fault = mayHoldTypes(text) ? whyUnanswered(std::string_view(text)) : nullptr;
            isIdentified = findings.hasRequestId();
        }
    }
    if (fault != nullptr) {
        return badRequest(fault);
    }
    return text;
}

}  // namespace server::bayeux
