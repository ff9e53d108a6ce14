#include "server/bayeux/AccessPolicy.hpp"

#include "server/bayeux/Channels.hpp"

namespace server::bayeux {

namespace {

Refusal forbidden(std::string why) {
    return {ErrorCode::Forbidden, std::move(why)};
}

Refusal invalidChannel(std::string_view channel) {
    return {ErrorCode::InvalidChannel, "no valid channel name - " + printable(channel)};
}

}  // namespace

std::optional<Refusal> AccessPolicy::mayPublish(SessionNumber session, std::string_view channel) const {
    if (!isChannelName(channel)) {
        return invalidChannel(channel);
    }
    if (channel == kAttachRequest || channel == kDetachRequest) {
        return std::nullopt;
    }
    if (channel == kSinksSet) {
        return refuseSinks(session);
    }
    if (!isRequestChannel(channel)) {
        return forbidden("clients publish on request channels only");
    }
    const auto parts = asClientChannel(channel);
    if (!parts || parts->rest == "/request" || !isOwn(session, parts->client)) {
        return forbidden("the channel belongs to no client of this session");
    }
    if (clients_.isDetaching(parts->client)) {
        return forbidden("the client is being detached");
    }
    return std::nullopt;
}

std::optional<Refusal> AccessPolicy::maySubscribe(SessionNumber session,
                                                  std::string_view channelOrPattern) const {
    if (!isSubscribable(channelOrPattern)) {
        return invalidChannel(channelOrPattern);
    }
    if (channelOrPattern == kAttachResponse || channelOrPattern == kDetachResponse ||
        isServiceChannel(channelOrPattern)) {
        return std::nullopt;
    }
    if (channelOrPattern == kSinksResponse) {
        return refuseSinks(session);
    }
    const auto parts = asClientChannel(channelOrPattern);
    if (!parts || !isOwn(session, parts->client)) {
        return forbidden("the channel belongs to no client of this session");
    }
    return std::nullopt;
}

std::optional<Refusal> AccessPolicy::mayAttach(SessionNumber session, std::string_view identifier) const {
    if (!isClientIdentifier(identifier)) {
        return Refusal{ErrorCode::BadRequest,
                       "the requestID of an attach needs 1 to 64 letters and digits and - or _ and is not "
                       "attach or detach or sinks"};
    }
    const auto owner = clients_.ownerOf(identifier);
    if (owner && *owner != session) {
        return forbidden("the requestID is in use by another session");
    }
    return std::nullopt;
}

std::optional<Refusal> AccessPolicy::mayDetach(SessionNumber session, std::string_view identifier) const {
    const auto owner = clients_.ownerOf(identifier);
    if (owner && *owner != session) {
        return forbidden("the client belongs to another session");
    }
    return std::nullopt;
}

std::optional<Refusal> AccessPolicy::refuseSinks(SessionNumber session) const {
    if (!clients_.hasAttached(session, kSharedSinksVersion)) {
        return forbidden("the channel takes a client of this session that is attached with r22a0");
    }
    return std::nullopt;
}

bool AccessPolicy::isOwn(SessionNumber session, std::string_view identifier) const {
    return clients_.ownerOf(identifier) == session;
}

}  // namespace server::bayeux
