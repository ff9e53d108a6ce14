#pragma once

#include "connector/message_service/detail/Receiver.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace connector::message_service::detail {

/// Which receivers a channel reaches. A lookup costs a few hashes, however many patterns there are,
/// and allocates nothing where nobody is found. Not synchronised.
class RouteTable {
  public:
    using Receivers = std::vector<std::shared_ptr<Receiver>>;

    /// Those that a message reaches, parted by where they are called. Within one name or pattern they
    /// stand in the order in which they were added.
    struct Targets {
        Receivers inPublish;
        Receivers inLane;
    };

    void add(std::shared_ptr<Receiver> receiver);

    /// Removing what is not there does nothing.
    void remove(const std::shared_ptr<Receiver>& receiver);

    /// Those whose name or pattern matches `channel`.
    Targets collect(std::string_view channel) const;

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>{}(text);
        }
    };
    using Table = std::unordered_map<std::string, Receivers, Hash, std::equal_to<>>;

    Table& tableFor(std::string_view channelOrPattern);
    static void append(const Table& table, std::string_view key, Targets& targets);

    // By whole name, and by the prefix before "/*" and "/**".
    Table exact_;
    Table children_;
    Table descendants_;
};

}  // namespace connector::message_service::detail
