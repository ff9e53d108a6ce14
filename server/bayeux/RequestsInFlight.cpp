#include "server/bayeux/RequestsInFlight.hpp"

#include "server/bayeux/Channels.hpp"

namespace server::bayeux {

void RequestsInFlight::observe(std::string_view channel) {
    const auto parts = asClientChannel(channel);
    std::string_view rest = parts ? parts->rest : std::string_view();
    const bool isEval = rest.starts_with("/eval/");
    const bool isFeval = rest.starts_with("/feval/");
    rest.remove_prefix(isEval ? 5 : isFeval ? 6 : 0);
    const bool isRequest = rest == "/request";
    if ((!isEval && !isFeval) || (!isRequest && rest != "/response")) {
        return;
    }
    const auto countOf = [&](Counts& counts) -> std::size_t& {
        return isEval ? counts.evals : counts.fevals;
    };
    const std::lock_guard lock(mutex_);
    const auto found = byClient_.find(parts->client);
    if (isRequest) {
        ++countOf(found == byClient_.end() ? byClient_[std::string(parts->client)] : found->second);
    } else if (found != byClient_.end() && countOf(found->second) > 0) {
        --countOf(found->second);
        if (found->second.evals + found->second.fevals == 0) {
            byClient_.erase(found);
            changed_.notify_all();
        }
    }
}

void RequestsInFlight::forget(const std::string& client) {
    const std::lock_guard lock(mutex_);
    byClient_.erase(client);
    changed_.notify_all();
}

std::size_t RequestsInFlight::count(cmddistributor::CommandKind kind) const {
    const std::lock_guard lock(mutex_);
    std::size_t sum = 0;
    for (const auto& [client, counts] : byClient_) {
        sum += kind == cmddistributor::CommandKind::Eval ? counts.evals : counts.fevals;
    }
    return sum;
}

std::size_t RequestsInFlight::count() const {
    return count(cmddistributor::CommandKind::Eval) + count(cmddistributor::CommandKind::FEval);
}

bool RequestsInFlight::waitForNone(std::chrono::milliseconds bound) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, bound, [this] { return byClient_.empty(); });
}

}  // namespace server::bayeux
