#include "cmddistributor/detail/FinishedIds.hpp"

namespace cmddistributor::detail {

void FinishedIds::remember(const IDType& id) {
    if (!known_.insert(id).second) {
        return;
    }
    inOrder_.push_back(id);
    if (inOrder_.size() > bound_) {
        known_.erase(inOrder_.front());
        inOrder_.pop_front();
    }
}

}  // namespace cmddistributor::detail
