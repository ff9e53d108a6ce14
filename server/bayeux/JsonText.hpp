#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace server::bayeux {

/// Appends `text` as a JSON string, quotes included. `text` is UTF-8; control characters, the quote
/// and the backslash are escaped, everything else is copied.
void appendJsonString(std::string& out, std::string_view text);

/// The same JSON text in pure ASCII: every other character as \uXXXX, in pairs above U+FFFF.
///
/// `json` is valid JSON in UTF-8, where other characters occur in strings only.
std::string toAsciiJson(std::string_view json);

/// What is wrong with a text.
struct JsonFault {
    /// "<what> at byte <offset>".
    std::string text;
    /// It may be JSON all the same, but is nested too deeply.
    bool isDepth = false;
};

/// A member of an object in a JSON text.
struct JsonMember {
    /// As it stands in the text, without the quotes.
    std::string_view spelledKey;
    /// Of how many arrays and objects it is part: 1 in the outermost object.
    std::size_t depth;
    bool isString;
    bool isNull;
};

/// Whether a string that is spelled so in JSON is `name`, which is printable ASCII without quotes,
/// slashes and backslashes.
bool spells(std::string_view spelled, std::string_view name);

/// Why `text` is not one strict JSON value (RFC 8259), or nothing when it is.
///
/// Knows no range of numbers, takes white space around the value, allows `maxDepth` nested arrays
/// and objects. Does not look at the UTF-8 of strings. Iterative: any depth is safe. `onMember`, when
/// there is one, is told the members of all objects up to the fault.
std::optional<JsonFault> whyNotStrictJson(std::string_view text, std::size_t maxDepth,
                                          std::function<void(const JsonMember&)> onMember = {});

}  // namespace server::bayeux
