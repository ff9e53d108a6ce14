#include "server/bayeux/RequestsInFlight.hpp"

#include "server/bayeux/Channels.hpp"

namespace server::bayeux {

void RequestsInFlight::observe(std::string_view channel) {
    const auto parts = asClientChannel(channel);
    const std::string_view rest = parts ? parts->rest : std::string_view();
    const bool isRequest = rest == "/eval/request" || rest == "/feval/request";
    if (!isRequest && rest != "/eval/response" && rest != "/feval/response") {
        return;
    }
    const std::lock_guard lock(mutex_);
    const auto found = byClient_.find(parts->client);
    if (isRequest) {
        ++(found == byClient_.end() ? byClient_[std::string(parts->client)] : found->second);
    } else if (found != byClient_.end() && --found->second == 0) {
        byClient_.erase(found);
        changed_.notify_all();
    }
}

void RequestsInFlight::forget(const std::string& client) {
    const std::lock_guard lock(mutex_);
    byClient_.erase(client);
    changed_.notify_all();
}

std::size_t RequestsInFlight::count() const {
    const std::lock_guard lock(mutex_);
    std::size_t sum = 0;
    for (const auto& [client, count] : byClient_) {
        sum += count;
    }
    return sum;
}

bool RequestsInFlight::waitForNone(std::chrono::milliseconds bound) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, bound, [this] { return byClient_.empty(); });
}

}  // namespace server::bayeux
