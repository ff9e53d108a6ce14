#include "server/bayeux/FailedHandshakes.hpp"

namespace server::bayeux {

void FailedHandshakes::refresh() {
    if (now_() - windowStart_ >= kWindow) {
        windowStart_ = now_();
        byAddress_.clear();
        others_ = 0;
    }
}

bool FailedHandshakes::isBlocked(const std::string& address) {
    refresh();
    const auto found = byAddress_.find(address);
    if (found != byAddress_.end()) {
        return found->second >= maxPerMinute_;
    }
    return byAddress_.size() >= kMaxAddresses && others_ >= maxPerMinute_;
}

void FailedHandshakes::add(const std::string& address) {
    refresh();
    const auto found = byAddress_.find(address);
    if (found != byAddress_.end()) {
        ++found->second;
    } else if (byAddress_.size() < kMaxAddresses) {
        byAddress_.emplace(address, 1);
    } else {
        ++others_;
    }
}

}  // namespace server::bayeux
