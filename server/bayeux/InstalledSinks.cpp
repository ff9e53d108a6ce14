#include "server/bayeux/InstalledSinks.hpp"

#include "server/bayeux/JsonText.hpp"

#include <limits>

namespace server::bayeux {

namespace {

/// Whether both traits are null. Of a key that repeats the first counts, as it does for the module.
bool asksToRevert(std::string_view request) {
    std::optional<bool> isOutNull;
    std::optional<bool> isErrNull;
    whyNotStrictJson(request, std::numeric_limits<std::size_t>::max(), [&](const JsonMember& member) {
        if (member.depth != 1) {
            return;
        }
        if (!isOutNull && spells(member.spelledKey, "outSinkTraits")) {
            isOutNull = member.isNull;
        } else if (!isErrNull && spells(member.spelledKey, "errSinkTraits")) {
            isErrNull = member.isNull;
        }
    });
    return isOutNull.value_or(false) && isErrNull.value_or(false);
}

}  // namespace

std::string InstalledSinks::revertRequest(std::string_view requestID) {
    std::string request = R"({"requestID":)";
    appendJsonString(request, requestID);
    request += R"(,"outSinkTraits":null,"errSinkTraits":null})";
    return request;
}

void InstalledSinks::requested(const std::string& client, std::string_view request) {
    const auto installed = before_.find(client);
    if (installed != before_.end() && asksToRevert(request)) {
        inForce_ = std::move(installed->second);
        before_.erase(installed);
        return;
    }
    before_.try_emplace(client, inForce_);
    inForce_ = client;
}

void InstalledSinks::requestedShared() {
    inForce_.reset();
}

std::optional<std::string> InstalledSinks::inForce() const {
    return inForce_ && before_.contains(*inForce_) ? inForce_ : std::nullopt;
}

void InstalledSinks::forget(const std::string& client) {
    const auto installed = before_.find(client);
    const Owner earlier = installed == before_.end() ? std::nullopt : std::move(installed->second);
    if (installed != before_.end()) {
        before_.erase(installed);
    }
    if (inForce_ == client) {
        inForce_ = earlier;
    }
    for (auto& [other, before] : before_) {
        if (before == client) {
            before = earlier;
        }
    }
}

}  // namespace server::bayeux
