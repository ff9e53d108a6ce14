#include "server/bayeux/Session.hpp"

#include "server/bayeux/Channels.hpp"

#include <set>
#include <string_view>

namespace server::bayeux {

void Session::subscribe(connector::message_service::Broker& broker, const std::string& pattern) {
    if (isServiceChannel(pattern) || isSubscribedTo(pattern)) {
        return;
    }
    if (pattern == kAttachResponse || pattern == kDetachResponse) {
        subscriptions_.emplace(pattern, nullptr);
        return;
    }
    queue_->addPattern(pattern);
    subscriptions_.emplace(
        pattern, broker.subscribeInline(pattern, [queue = queue_, pattern](
                                                     const connector::message_service::JsonMessage& message) {
            queue->offer(pattern, message);
        }));
}

std::size_t Session::subscriptionCountWith(const std::vector<std::string>& patterns) const {
    std::set<std::string_view> fresh;
    for (const std::string& pattern : patterns) {
        if (!isServiceChannel(pattern) && !isSubscribedTo(pattern)) {
            fresh.insert(pattern);
        }
    }
    return subscriptions_.size() + fresh.size();
}

void Session::unsubscribe(const std::string& pattern) {
    queue_->removePattern(pattern);
    subscriptions_.erase(pattern);
}

void Session::unsubscribeWhere(const std::function<bool(const std::string& pattern)>& ends) {
    for (auto it = subscriptions_.begin(); it != subscriptions_.end();) {
        if (ends(it->first)) {
            queue_->removePattern(it->first);
            it = subscriptions_.erase(it);
        } else {
            ++it;
        }
    }
}

bool Session::hasEvents() const {
    return unacknowledged_ ? unacknowledged_->hasEvents() : !queue_->empty();
}

std::vector<Event> Session::nextEvents(std::size_t maxBytes) {
    return unacknowledged_ ? unacknowledged_->deliver(maxBytes) : queue_->take(maxBytes);
}

void Session::close() {
    queue_->close();
    unacknowledged_.reset();
    subscriptions_.clear();
}

}  // namespace server::bayeux
