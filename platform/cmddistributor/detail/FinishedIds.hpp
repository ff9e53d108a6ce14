#pragma once

#include "foundation/msg_svc/exchange/IDType.hpp"

#include <cstddef>
#include <deque>
#include <unordered_set>

namespace cmddistributor::detail {

/// The identities of the commands that ended last, at most `bound` of them: the oldest is forgotten first.
/// Not safe for use from several threads at once.
class FinishedIds {
  public:
    using IDType = foundation::msg_svc::exchange::IDType;

    explicit FinishedIds(std::size_t bound) : bound_(bound) {}

    void remember(const IDType& id);
    bool contains(const IDType& id) const { return known_.contains(id); }

  private:
    std::size_t bound_;
    std::deque<IDType> inOrder_;
    std::unordered_set<IDType> known_;
};

}  // namespace cmddistributor::detail
