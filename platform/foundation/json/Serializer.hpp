#pragma once

#include "foundation/json/Value.hpp"

#include <string>

namespace foundation::json {

/// Writes values as compact JSON text, which is always valid: control characters are escaped, UTF-8 is passed
/// and what is no valid UTF-8 becomes U+FFFD, and Undefined and numbers that are not finite become `null`.
/// Integers are exact, and a double or float is written with the fewest digits that read back to its bits.
///
/// Takes no stack per level of nesting. Stateless, safe from any thread.
class Serializer {
  public:
    static std::string serialize(const Value& value);
    /// Spares the copy that a Value of it would take.
    static std::string serialize(const Object& object);

    /// Writes at the end of `text`.
    static void append(std::string& text, const Value& value);
};

/// Readable JSON for people and for the texts of errors: as the Serializer writes, with line breaks and an
/// indentation of two blanks a level, up to 16 levels, so that the text of a deep value grows with its depth
/// and not with the square of it. Empty containers stay on one line. Throws nothing but std::bad_alloc.
std::string pretty_print(const Value& value);

}  // namespace foundation::json
