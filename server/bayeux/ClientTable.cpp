#include "server/bayeux/ClientTable.hpp"

#include <algorithm>
#include <utility>

namespace server::bayeux {

bool ClientTable::reserve(std::string_view identifier, SessionNumber session) {
    auto found = clients_.find(identifier);
    if (found == clients_.end()) {
        found = clients_.emplace(std::string(identifier), Client(session)).first;
    }
    Client& client = found->second;
    if (client.owner != session) {
        return false;
    }
    if (client.detach) {
        // The detach is on its way in the same lane and will be over before this attach is looked at.
        client.staleAttachesInFlight += std::exchange(client.attachesInFlight, 0);
        client.staleUntil = *client.detach;
        client.attached = false;
        client.detach.reset();
    }
    ++client.attachesInFlight;
    return true;
}

bool ClientTable::attachAnswered(std::string_view identifier, bool successful) {
    const auto found = clients_.find(identifier);
    if (found == clients_.end()) {
        return false;
    }
    Client& client = found->second;
    if (client.staleAttachesInFlight > 0) {
        --client.staleAttachesInFlight;
        return false;
    }
    client.attachesInFlight -= client.attachesInFlight > 0 ? 1 : 0;
    client.attached = client.attached || successful;
    if (client.attached || client.attachesInFlight > 0 || client.detach) {
        return false;
    }
    clients_.erase(found);
    return true;
}

ClientTable::DetachNumber ClientTable::startDetach(std::string_view identifier, SessionNumber session) {
    Client& client = clients_.try_emplace(std::string(identifier), session).first->second;
    client.detach = ++lastDetach_;
    return lastDetach_;
}

bool ClientTable::finishDetach(std::string_view identifier, DetachNumber detach) {
    const auto found = clients_.find(identifier);
    if (found == clients_.end()) {
        return false;
    }
    if (found->second.staleUntil == detach) {
        found->second.staleAttachesInFlight = 0;
    }
    if (found->second.detach != detach) {
        return false;
    }
    clients_.erase(found);
    return true;
}

std::optional<SessionNumber> ClientTable::ownerOf(std::string_view identifier) const {
    const auto found = clients_.find(identifier);
    return found == clients_.end() ? std::nullopt : std::optional(found->second.owner);
}

bool ClientTable::isDetaching(std::string_view identifier) const {
    const auto found = clients_.find(identifier);
    return found != clients_.end() && found->second.detach;
}

std::vector<std::string> ClientTable::clientsOf(SessionNumber session) const {
    std::vector<std::string> identifiers;
    for (const auto& [identifier, client] : clients_) {
        if (client.owner == session && !client.detach) {
            identifiers.push_back(identifier);
        }
    }
    return identifiers;
}

std::size_t ClientTable::countOf(SessionNumber session) const {
    return static_cast<std::size_t>(std::count_if(
        clients_.begin(), clients_.end(),
        [session](const auto& entry) { return entry.second.owner == session && !entry.second.detach; }));
}

}  // namespace server::bayeux
