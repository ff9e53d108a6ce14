#pragma once

#include "server/bayeux/Limits.hpp"
#include "server/bayeux/Refusal.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace server::bayeux {

/// The last gate before the module: what may become the payload of a request.
///
/// The module's parser keeps its thread for ever on some damaged texts and on empty objects, and
/// says nothing at all to others. So only strict JSON in UTF-8 passes, an object within the limits of bytes
/// and depth, in which every "ywtype" is a string, and the "ywdata" of one that names integers an array of
/// them.
class Ingress {
  public:
    explicit Ingress(const Limits& limits) : maxBytes_(limits.maxMessageBytes), maxDepth_(limits.maxDepth) {}

    /// The text to publish, a copy of `data`, or the reason why not. A request is not empty, and has the
    /// "requestID" that its answer needs.
    std::variant<std::string, Refusal> admit(std::string_view data) const;

    /// The same of a request for the sinks of r22a0, which is never answered and needs no key. So it is told
    /// here when its traits cannot be read.
    std::variant<std::string, Refusal> admitSinks(std::string_view data) const;

  private:
    /// What holds for both; `isIdentified` tells whether there is a "requestID".
    std::variant<std::string, Refusal> read(std::string_view data, bool& isIdentified) const;

    std::size_t maxBytes_;
    std::size_t maxDepth_;
};

}  // namespace server::bayeux
