#include "check.hpp"
#include "foundation/json/Parser.hpp"
#include "foundation/json/ParserException.hpp"
#include "foundation/json/Serializer.hpp"
#include "fuzzJson.hpp"

#include <simdjson.h>

#include <stdexcept>
#include <string>

namespace {

using foundation::json::Array;
using foundation::json::Null;
using foundation::json::Object;
using foundation::json::ParseResult;
using foundation::json::ParserException;
using foundation::json::Serializer;
using foundation::json::Value;

/// The same as our parser makes of the same text, but for typed integers. simdjson limits the depth, so
/// recursion is safe.
Value toValue(simdjson::dom::element element) {
    switch (element.type()) {
        case simdjson::dom::element_type::ARRAY: {
            Array array;
            for (const auto child : simdjson::dom::array(element)) {
                array.push_back(toValue(child));
            }
            return array;
        }
        case simdjson::dom::element_type::OBJECT: {
            Object object;
            for (const auto member : simdjson::dom::object(element)) {
                object.try_emplace(std::string(member.key), toValue(member.value));
            }
            return object;
        }
        case simdjson::dom::element_type::STRING:
            return std::string_view(element);
        case simdjson::dom::element_type::BOOL:
            return bool(element);
        case simdjson::dom::element_type::NULL_VALUE:
            return Null();
        default:
            return double(element);
    }
}

bool isWhiteSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

void checkFailure(const ParserException& error, std::string_view text) {
    check(error.offset() <= text.size(), "the offset lies in the text", text);
    check(error.column() <= error.offset(), "the column lies before the offset", text);
    check(error.context().size() <= 160, "the context is short", text);
    if (error.code() == ParseResult::unexpectedEnd) {
        check(error.offset() == text.size(), "an early end is reported at the end", text);
    }
}

void checkPrinting(const Value& value, std::string_view text) {
    const std::string printed = Serializer::serialize(value);
    simdjson::dom::parser strict;
    const simdjson::error_code error = strict.parse(printed).error();
    // The depth is limited there; and it refuses integers beyond 64 bits, which are valid JSON.
    check(error == simdjson::SUCCESS || error == simdjson::DEPTH_ERROR || error == simdjson::NUMBER_ERROR,
          "the Serializer writes strict JSON", text);
    const Value again = foundation::json::parseText(printed);
    // Not text against text: keys that are no valid UTF-8 sort elsewhere once they are mended.
    check(foundation::json::parseText(Serializer::serialize(again)) == again,
          "printed text prints to the same value", text);
    check(foundation::json::parseText(foundation::json::pretty_print(value)) == again,
          "both printers print the same value", text);
    const Value copy =
        value;  // NOLINT(performance-unnecessary-copy-initialization): it is the copy that is tried
    check(copy == value, "a copy is equal", text);
}

void compareWithSimdjson(const Value* ours, std::string_view text) {
    // White space around the value is ours alone to refuse, and typed integers are ours alone.
    if (text.empty() || isWhiteSpace(text.front()) || isWhiteSpace(text.back()) ||
        text.find("type") != std::string_view::npos || text.find("\\u00") != std::string_view::npos) {
        return;
    }
    simdjson::dom::parser parser;
    const auto theirs = parser.parse(simdjson::padded_string(text));
    if (theirs.error() == simdjson::SUCCESS) {
        check(ours != nullptr, "what simdjson accepts is accepted", text);
        check(*ours == toValue(theirs.value_unsafe()), "the value is that of simdjson", text);
    }
}

}  // namespace

void fuzzParser(std::string_view text) {
    try {
        const Value value = foundation::json::parseText(text);
        checkPrinting(value, text);
        compareWithSimdjson(&value, text);
    } catch (const ParserException& error) {
        checkFailure(error, text);
        compareWithSimdjson(nullptr, text);
    } catch (const std::runtime_error& error) {
        check(std::string_view(error.what()).ends_with(" to string"),
              "only a ywtype that is no string throws", text);
    }
}
