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
/// says nothing at all to others. So only strict JSON in UTF-8 passes, an object that is not empty,
/// within the limits of bytes and depth, in which every "ywtype" is a string, and the "requestID" that the
/// answer needs.
class Ingress {
  public:
    explicit Ingress(const Limits& limits) : maxBytes_(limits.maxMessageBytes), maxDepth_(limits.maxDepth) {}

    /// The text to publish, a copy of `data`, or the reason why not.
    std::variant<std::string, Refusal> admit(std::string_view data) const;

  private:
    std::size_t maxBytes_;
    std::size_t maxDepth_;
};

}  // namespace server::bayeux
