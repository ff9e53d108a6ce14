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
    active_[session].emplace(identifier);
    return true;
}

bool ClientTable::attachAnswered(std::string_view identifier, bool successful, std::string_view apiVersion) {
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
    if (successful && !client.attached) {
        client.attached = true;
        client.apiVersion = apiVersion;
    }
    if (client.attached || client.attachesInFlight > 0 || client.detach) {
        return false;
    }
    deactivate(identifier, client.owner);
    clients_.erase(found);
    return true;
}

ClientTable::DetachNumber ClientTable::startDetach(std::string_view identifier, SessionNumber session) {
    Client& client = clients_.try_emplace(std::string(identifier), session).first->second;
    client.detach = ++lastDetach_;
    deactivate(identifier, client.owner);
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
    const auto found = active_.find(session);
    return found == active_.end() ? std::vector<std::string>()
                                  : std::vector<std::string>(found->second.begin(), found->second.end());
}

bool ClientTable::isAttached(std::string_view identifier, std::string_view apiVersion) const {
    const auto found = clients_.find(identifier);
    return found != clients_.end() && found->second.attached && !found->second.detach &&
           found->second.apiVersion == apiVersion;
}

bool ClientTable::hasAttached(SessionNumber session, std::string_view apiVersion) const {
    const auto found = active_.find(session);
    return found != active_.end() &&
           std::any_of(found->second.begin(), found->second.end(),
                       [&](const std::string& identifier) { return isAttached(identifier, apiVersion); });
}

std::size_t ClientTable::countOf(SessionNumber session) const {
    const auto found = active_.find(session);
    return found == active_.end() ? 0 : found->second.size();
}

void ClientTable::deactivate(std::string_view identifier, SessionNumber session) {
    const auto found = active_.find(session);
    if (found == active_.end()) {
        return;
    }
    if (const auto own = found->second.find(identifier); own != found->second.end()) {
        found->second.erase(own);
    }
    if (found->second.empty()) {
        active_.erase(found);
    }
}

}  // namespace server::bayeux
