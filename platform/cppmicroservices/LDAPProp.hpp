#pragma once

#include <string>
#include <utility>

namespace cppmicroservices {

/// The text of a filter, as `LDAPProp` builds it.
class LDAPPropExpr {
  public:
    explicit LDAPPropExpr(std::string text) : text_(std::move(text)) {}
    operator std::string() const { return text_; }

  private:
    std::string text_;
};

/// A property's name, from which a filter is built: `LDAPFilter(LDAPProp("eventTag") == tag)`.
class LDAPProp {
  public:
    explicit LDAPProp(std::string name) : name_(std::move(name)) {}

    /// `(name=value)`, with each of `( ) * \` in the value escaped by a backslash: the value is compared as
    /// it stands, whoever chose it.
    LDAPPropExpr operator==(const std::string& value) const;

  private:
    std::string name_;
};

}  // namespace cppmicroservices
