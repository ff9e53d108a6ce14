#include "connector/message_service/detail/RouteTable.hpp"

#include "connector/message_service/detail/channels.hpp"

#include <utility>

namespace connector::message_service::detail {

RouteTable::Table& RouteTable::tableFor(std::string_view channelOrPattern) {
    switch (parsePattern(channelOrPattern).kind) {
        case PatternKind::children:
            return children_;
        case PatternKind::descendants:
            return descendants_;
        case PatternKind::exact:
            break;
    }
    return exact_;
}

void RouteTable::add(std::shared_ptr<Receiver> receiver) {
    const std::string_view name = receiver->channelOrPattern();
    tableFor(name)[std::string(parsePattern(name).prefix)].push_back(std::move(receiver));
}

void RouteTable::remove(const std::shared_ptr<Receiver>& receiver) {
    const std::string_view name = receiver->channelOrPattern();
    Table& table = tableFor(name);
    const auto found = table.find(parsePattern(name).prefix);
    if (found == table.end()) {
        return;
    }
    std::erase(found->second, receiver);
    if (found->second.empty()) {
        table.erase(found);
    }
}

void RouteTable::append(const Table& table, std::string_view key, Targets& targets) {
    const auto found = table.find(key);
    if (found == table.end()) {
        return;
    }
    for (const auto& receiver : found->second) {
        const bool inPublish = receiver->place() == DeliveryPlace::publishingThread;
        (inPublish ? targets.inPublish : targets.inLane).push_back(receiver);
    }
}

RouteTable::Targets RouteTable::collect(std::string_view channel) const {
    Targets targets;
    append(exact_, channel, targets);
    // Every prefix before a slash may carry a pattern, if something follows the slash.
    const auto last = channel.rfind('/');
    for (auto slash = channel.find('/'); slash != std::string_view::npos && slash + 1 < channel.size();
         slash = channel.find('/', slash + 1)) {
        append(descendants_, channel.substr(0, slash), targets);
        if (slash == last) {
            append(children_, channel.substr(0, slash), targets);
        }
    }
    return targets;
}

}  // namespace connector::message_service::detail
