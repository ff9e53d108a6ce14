#pragma once

#include "cppmicroservices/ServiceProperties.hpp"

#include <memory>
#include <string>

namespace cppmicroservices {

/// A filter over service properties, in the text form of RFC 4515 with these rules:
///
///     filter  = "(" ( "&" filter+ | "|" filter+ | "!" filter | name op value ) ")"
///     op      = "=" | "~=" | ">=" | "<="
///
/// - Blanks are allowed around filters and names. A name is looked up without regard to case.
/// - In a value, a backslash makes the next character literal; `(` must be escaped, as must `)`. With `=`, a
///   bare `*` stands for any text, and `name=*` asks only whether the property is there.
/// - An array matches if any of its elements does.
/// - `>=` and `<=` apply to texts and numbers only.
/// - Texts compare bytewise; `~=` ignores letter case and blanks. A boolean equals the text "true" or
///   "false". A number is compared as a number with a value that reads as one, otherwise it does not match.
///   Null, and objects, match presence only.
///
/// A default-constructed filter is empty and matches everything. Copies share the parsed form; safe to use
/// from any thread.
class LDAPFilter {
  public:
    LDAPFilter() = default;

    /// An empty text gives the empty filter. Throws `std::invalid_argument` that tells what is wrong at which
    /// offset of the text.
    LDAPFilter(const std::string& text);

    /// Whether the properties satisfy the filter.
    bool Match(const ServiceProperties& properties) const;

    /// The text as it was given.
    const std::string& ToString() const noexcept { return text_; }

    explicit operator bool() const noexcept { return root_ != nullptr; }

  private:
    struct Node;
    friend class LDAPParser;

    std::string text_;
    std::shared_ptr<const Node> root_;
};

}  // namespace cppmicroservices
