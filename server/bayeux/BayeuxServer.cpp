#include "server/bayeux/BayeuxServer.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"
#include "server/bayeux/Channels.hpp"
#include "server/bayeux/JsonText.hpp"
#include "server/bayeux/Secrets.hpp"

#include <algorithm>
#include <charconv>

namespace server::bayeux {

namespace {

using metrics::Direction;
using metrics::SessionEnd;

constexpr std::string_view kHandshake = "/meta/handshake";
constexpr std::string_view kConnect = "/meta/connect";
constexpr std::string_view kDisconnect = "/meta/disconnect";
constexpr std::string_view kSubscribe = "/meta/subscribe";
constexpr std::string_view kUnsubscribe = "/meta/unsubscribe";

/// The channel of a reply to what has none, or to a frame that could not be read.
constexpr std::string_view kNowhere = "/meta/error";

/// Clients close their socket themselves when their session has ended; the server does it for those that
/// don't.
constexpr std::chrono::seconds kCloseAfterEnd{1};

/// What a client may take from the reply to one poll to the next.
constexpr std::chrono::seconds kPollPause{1};

foundation::log::diagnostic_logger& logger() {
    static auto& instance = *new foundation::log::diagnostic_logger("server::bayeux");
    return instance;
}

/// Whether version `wanted`, numbers joined by dots, is above 1.0. What is no number counts as 0.
bool isAboveOwnVersion(std::string_view wanted) {
    for (const int own : {1, 0}) {
        int number = 0;
        std::from_chars(wanted.data(), wanted.data() + wanted.size(), number);
        if (number != own) {
            return number > own;
        }
        const std::size_t dot = wanted.find('.');
        wanted = dot == std::string_view::npos ? std::string_view() : wanted.substr(dot + 1);
    }
    return false;
}

std::string adviceField(std::string_view advice) {
    return R"(,"advice":)" + std::string(advice);
}

std::string connectionTypesField(const std::vector<std::string>& types) {
    std::string text;
    for (const std::string& type : types) {
        text += (text.empty() ? "\"" : ",\"") + type + '"';
    }
    return R"(,"supportedConnectionTypes":[)" + text + ']';
}

/// Whether two pointers, either of which may be empty, mean one object.
template <typename T>
bool isSame(const std::weak_ptr<T>& a, const std::weak_ptr<T>& b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

/// Whether events may be sent only together with the reply to a connect.
bool travelWithReplies(Session& session, const Connection& connection) {
    return session.unacknowledged() != nullptr || !connection.isStreaming();
}

}  // namespace

/// The messages of one frame while they are carried out.
struct BayeuxServer::Batch {
    std::shared_ptr<Connection> from;
    bool holdsHandshake = false;
    /// Whether the one that it may hold has been looked at.
    bool hasHandshake = false;
    bool isSingle = false;
    /// Whether all that is replied are acknowledgements of requests, whose answers follow as events.
    bool isAcknowledgement = true;
    Frame frame;
    /// The sessions that connected, each once: what waits for them goes out behind the replies.
    std::vector<std::shared_ptr<Session>> connected;
};

BayeuxServer::BayeuxServer(std::shared_ptr<connector::message_service::Broker> broker, Options options)
    : broker_(std::move(broker)),
      options_(std::move(options)),
      ingress_(options_.limits),
      failedHandshakes_(options_.limits.maxFailedHandshakesPerMinute, options_.now),
      lifecycle_(broker_, options_.limits.maxClientsPerSession,
                 {.deliver =
                      [this](SessionNumber number, Event event) {
                          const auto session = find(number);
                          if (session && session->isSubscribedTo(event.channel)) {
                              session->queue().push(std::move(event));
                          }
                      },
                  .freed = [this](const std::string& identifier) { requestsInFlight_.forget(identifier); },
                  .rightsChanged =
                      [this](SessionNumber number) {
                          if (const auto session = find(number)) {
                              session->unsubscribeWhere([&](const std::string& pattern) {
                                  return policy_.maySubscribe(number, pattern).has_value();
                              });
                          }
                      },
                  .post = options_.post}),
      responses_(
          broker_->subscribeInline("/yvm/**", [this](const connector::message_service::JsonMessage& message) {
              if (isRequestChannel(message.channel())) {
                  return;
              }
              requestsInFlight_.observe(message.channel());
              // Also where no session has subscribed: who installed sinks need not listen.
              if (options_.textGate &&
                  wayOfText(message.channel()) == yvm::OutputGate::Way::ClientWideSinks) {
                  options_.textGate->published();
              }
          })) {}

BayeuxServer::~BayeuxServer() {
    // The gate may be about to give one up, which would wake a server that has gone.
    for (const auto& [clientId, session] : sessions_) {
        session->queue().close();
    }
}

void BayeuxServer::receive(const std::shared_ptr<Connection>& from, std::string& frame) {
    Batch batch;
    batch.from = from;
    options_.metrics->bytes.add(Direction::In, frame.size());
    const auto parsed = parseEnvelope(frame, options_.limits.maxBatchMessages);
    if (const auto* refusal = std::get_if<Refusal>(&parsed)) {
        refuse(batch, Message(), *refusal);
        from->refuseFrame(take(batch.frame), *refusal);
        return;
    }
    const auto& messages = std::get<std::vector<Message>>(parsed);
    options_.metrics->messages.add(Direction::In, messages.size());
    batch.isSingle = messages.size() == 1;
    batch.holdsHandshake = std::any_of(messages.begin(), messages.end(),
                                       [](const Message& message) { return message.channel == kHandshake; });
    for (const Message& message : messages) {
        handle(batch, message);
    }
    std::erase_if(batch.connected, [this](const auto& session) { return !find(session->number()); });
    for (const auto& session : batch.connected) {
        if (travelWithReplies(*session, *from) && !session->held) {
            addEvents(batch.frame, *session);
        }
    }
    if (!batch.frame.empty() && batch.isAcknowledgement) {
        from->sendSoon(take(batch.frame));
    } else if (!batch.frame.empty()) {
        send(*from, batch.frame);
    }
    for (const auto& session : batch.connected) {
        flush(session);
    }
}

void BayeuxServer::handle(Batch& batch, const Message& message) {
    if (message.malformed) {
        refuse(batch, message, *message.malformed);
        return;
    }
    batch.isAcknowledgement = batch.isAcknowledgement && !isMetaChannel(message.channel);
    if (message.channel == kHandshake && !std::exchange(batch.hasHandshake, true)) {
        handshake(batch, message);
        return;
    }
    const auto session = find(message.clientId);
    if (!session || batch.holdsHandshake) {
        refuse(batch, message, {ErrorCode::UnknownClient, "Unknown client"});
        return;
    }
    session->lastHeard = options_.now();
    batch.from->sessionHeard();
    if (message.channel == kConnect) {
        connect(batch, message, session);
    } else if (message.channel == kDisconnect) {
        disconnect(batch, message, session);
    } else if (message.channel == kSubscribe) {
        subscribe(batch, message, *session);
    } else if (message.channel == kUnsubscribe) {
        unsubscribe(batch, message, *session);
    } else if (isMetaChannel(message.channel)) {
        refuse(batch, message, {ErrorCode::UnknownChannel, "unknown channel " + printable(message.channel)});
    } else {
        publish(batch, message, *session);
    }
}

void BayeuxServer::refuse(Batch& batch, const Message& message, const Refusal& refusal,
                          std::string_view fields) {
    batch.isAcknowledgement = false;
    options_.metrics->refusals.add(refusal.reason);
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "refused a message on " << printable(message.channel) << ": " << errorField(refusal);
    std::string more(fields);
    // Clients are steered by the advice alone. Without it, or with a hot one, they try again hundreds of
    // times a second.
    if (message.channel == kConnect) {
        more += adviceField(refusal.code == ErrorCode::UnknownClient ? kHandshakeAdvice : kStopAdvice);
    } else if (message.channel == kHandshake && refusal.code != ErrorCode::Unavailable) {
        more += adviceField(kStopAdvice);
        failedHandshakes_.add(batch.from->peerAddress());
    } else if (!message.subscriptionText.empty()) {
        more += R"(,"subscription":)" + message.subscriptionText;
    }
    batch.frame.addFailure(message.channel.empty() ? kNowhere : message.channel, message.id, refusal, more);
}

std::optional<Refusal> BayeuxServer::refuseHandshake(const Connection& from, const Message& message) {
    using metrics::RefusalReason;
    if (!accepting_) {
        return Refusal{ErrorCode::Unavailable, "the server is shutting down"};
    }
    const Limits& limits = options_.limits;
    if (failedHandshakes_.isBlocked(from.peerAddress())) {
        return Refusal{ErrorCode::Unavailable,
                       "too many failed handshakes - one address may have " +
                           std::to_string(limits.maxFailedHandshakesPerMinute) + " a minute at most",
                       RefusalReason::FailedHandshakes};
    }
    if (!from.isAuthenticated() && !options_.acceptsToken(message.token)) {
        return Refusal{ErrorCode::Unauthorized, "the token is missing or wrong"};
    }
    if (isAboveOwnVersion(message.minimumVersion)) {
        return Refusal{ErrorCode::VersionTooLow, "the server speaks version 1.0"};
    }
    const auto& offered = message.supportedConnectionTypes;
    if (std::find_first_of(offered.begin(), offered.end(), options_.connectionTypes.begin(),
                           options_.connectionTypes.end()) == offered.end()) {
        return Refusal{ErrorCode::NoCommonTransport, "no common connection type"};
    }
    if (sessions_.size() >= limits.maxSessions) {
        return Refusal{
            ErrorCode::Unavailable,
            "the server is full - it may have " + std::to_string(limits.maxSessions) + " sessions at most",
            RefusalReason::Sessions};
    }
    const auto ofAddress = sessionsByAddress_.find(from.peerAddress());
    if (ofAddress != sessionsByAddress_.end() && ofAddress->second >= limits.maxSessionsPerAddress) {
        return Refusal{
            ErrorCode::Unavailable,
            "one address may have " + std::to_string(limits.maxSessionsPerAddress) + " sessions at most",
            RefusalReason::SessionsPerAddress};
    }
    return std::nullopt;
}

void BayeuxServer::handshake(Batch& batch, const Message& message) {
    const std::string types = connectionTypesField(options_.connectionTypes);
    if (const auto refusal = refuseHandshake(*batch.from, message)) {
        refuse(batch, message, *refusal, refusal->code == ErrorCode::NoCommonTransport ? types : "");
        return;
    }
    const SessionNumber number = ++lastSession_;
    auto wake = [this, number, post = options_.post, alive = std::weak_ptr(alive_)] {
        post([this, number, alive] {
            const auto session = alive.expired() ? nullptr : find(number);
            if (session) {
                flush(session);
            }
        });
    };
    const auto session = std::make_shared<Session>(
        number, randomHex(20), batch.from->peerAddress(),
        std::make_shared<DeliveryQueue>(options_.limits.maxQueueBytes, std::move(wake), options_.textGate));
    session->lastHeard = options_.now();
    batch.from->sessionHeard();
    std::string extensions;
    if (message.wantsAcknowledgement) {
        session->acknowledgeEvents();
        extensions = R"(,"ext":{"ack":true})";
    }
    sessions_.emplace(session->clientId(), session);
    sessionsByNumber_.emplace(number, session);
    ++sessionsByAddress_[session->address()];
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "session " << number << " begins";
    batch.frame.addReply(kHandshake, message.id,
                         R"(,"version":"1.0","minimumVersion":"1.0","clientId":")" + session->clientId() +
                             '"' + types + adviceField(retryAdvice(options_.connectTimeout)) + extensions);
}

void BayeuxServer::connect(Batch& batch, const Message& message, const std::shared_ptr<Session>& session) {
    if (UnacknowledgedEvents* unacknowledged = session->unacknowledged()) {
        if (message.acknowledged) {
            unacknowledged->acknowledge(*message.acknowledged);
        }
        if (unacknowledged->isUndeliverable()) {
            refuse(batch, message,
                   {ErrorCode::TooLarge,
                    "the same events were sent " + std::to_string(UnacknowledgedEvents::kMaxDeliveries) +
                        " times and never acknowledged",
                    metrics::RefusalReason::Unacknowledged});
            closeSoon(batch.from);
            end(session, SessionEnd::Unacknowledged);
            return;
        }
    }
    if (session->held) {
        const auto older = session->held->from.lock();
        if (older == batch.from) {
            Frame frame;
            frame.addReply(kConnect, session->held->id, connectFields(*session));
            answerHeld(*session, std::move(frame));
        } else if (older) {
            // Answered as a success, two pages that share one client id would drive each other in a
            // circle.
            session->held.reset();
            // Not under the feet of other sessions that use it.
            if (!older->isStreaming() || older->boundSessions.size() <= 1) {
                older->supersede();
            }
        }
    }
    bind(session, batch.from);
    if (std::find(batch.connected.begin(), batch.connected.end(), session) == batch.connected.end()) {
        batch.connected.push_back(session);
    }
    const auto hold = std::min(message.timeout.value_or(options_.connectTimeout), options_.connectTimeout);
    if (!batch.isSingle || hold.count() == 0) {
        batch.frame.addReply(kConnect, message.id, connectFields(*session));
    } else {
        session->held = HeldConnect{batch.from, message.id, options_.now() + hold};
    }
}

void BayeuxServer::disconnect(Batch& batch, const Message& message, const std::shared_ptr<Session>& session) {
    // The connect is answered first: the other way round a stock client leaves its socket open for good.
    if (session->held) {
        Frame frame;
        frame.addReply(kConnect, session->held->id, adviceField(kStopAdvice));
        answerHeld(*session, std::move(frame));
    }
    batch.frame.addReply(kDisconnect, message.id);
    closeSoon(batch.from);
    end(session, SessionEnd::Disconnect);
}

void BayeuxServer::subscribe(Batch& batch, const Message& message, Session& session) {
    if (message.subscriptions.empty()) {
        refuse(batch, message, {ErrorCode::BadRequest, "a subscribe needs a subscription"});
        return;
    }
    // All or none: a client that reads one error would not know what holds.
    for (const std::string& pattern : message.subscriptions) {
        if (const auto refusal = policy_.maySubscribe(session.number(), pattern)) {
            refuse(batch, message, *refusal);
            return;
        }
    }
    const std::size_t maxSubscriptions = options_.limits.maxSubscriptionsPerSession;
    if (session.subscriptionCountWith(message.subscriptions) > maxSubscriptions) {
        refuse(batch, message,
               {ErrorCode::TooLarge,
                "a session may have " + std::to_string(maxSubscriptions) + " subscriptions at most",
                metrics::RefusalReason::SubscriptionsPerSession});
        return;
    }
    for (const std::string& pattern : message.subscriptions) {
        session.subscribe(*broker_, pattern);
    }
    batch.frame.addReply(kSubscribe, message.id, R"(,"subscription":)" + message.subscriptionText);
}

void BayeuxServer::unsubscribe(Batch& batch, const Message& message, Session& session) {
    if (message.subscriptions.empty()) {
        refuse(batch, message, {ErrorCode::BadRequest, "an unsubscribe needs a subscription"});
        return;
    }
    for (const std::string& pattern : message.subscriptions) {
        session.unsubscribe(pattern);
    }
    batch.frame.addReply(kUnsubscribe, message.id, R"(,"subscription":)" + message.subscriptionText);
}

void BayeuxServer::publish(Batch& batch, const Message& message, Session& session) {
    if (!accepting_) {
        refuse(batch, message, {ErrorCode::Unavailable, "the server is shutting down"});
        return;
    }
    if (const auto refusal = policy_.mayPublish(session.number(), message.channel)) {
        refuse(batch, message, *refusal);
        return;
    }
    auto admitted =
        message.channel == kSinksSet ? ingress_.admitSinks(message.data) : ingress_.admit(message.data);
    if (const auto* refusal = std::get_if<Refusal>(&admitted)) {
        refuse(batch, message, *refusal);
        return;
    }
    std::string& text = std::get<std::string>(admitted);
    std::optional<Refusal> refusal;
    if (message.channel == kAttachRequest) {
        refusal = lifecycle_.attach(session.number(), session.lane(), std::move(text));
    } else if (message.channel == kDetachRequest) {
        refusal = lifecycle_.detach(session.number(), session.lane(), std::move(text));
    } else {
        requestsInFlight_.observe(message.channel);
        lifecycle_.observe(message.channel, text);
        broker_->publish(message.channel, connector::common::DataBuffer(std::move(text)), session.lane());
    }
    if (refusal) {
        refuse(batch, message, *refusal);
    } else {
        // Acknowledged when it has been handed on: clients stop or close on a late acknowledgement.
        batch.frame.addReply(message.channel, message.id);
    }
}

void BayeuxServer::writable(Connection& connection) {
    // From the end, since a session that ends here leaves the list.
    for (std::size_t i = connection.boundSessions.size(); i-- > 0;) {
        if (const auto session = connection.boundSessions[i].lock()) {
            flush(session);
        }
    }
}

void BayeuxServer::closed(Connection& connection) {
    for (const auto& weak : std::exchange(connection.boundSessions, {})) {
        const auto session = weak.lock();
        if (!session) {
            continue;
        }
        session->owner.reset();
        if (session->held) {
            session->held.reset();
            session->lastHeard = options_.now();
        }
    }
}

Clock::time_point BayeuxServer::advance() {
    const auto now = options_.now();
    auto next = Clock::time_point::max();
    std::vector<std::shared_ptr<Session>> expired;
    for (const auto& [clientId, session] : sessions_) {
        if (session->held && session->held->from.expired()) {
            session->held.reset();
            session->lastHeard = now;
        }
        if (session->held && session->held->due <= now) {
            Frame frame;
            frame.addReply(kConnect, session->held->id, connectFields(*session));
            answerHeld(*session, std::move(frame));
        } else if (session->held) {
            next = std::min(next, session->held->due);
        } else if (now - session->lastHeard > options_.graceTime) {
            expired.push_back(session);
        }
    }
    for (const auto& session : expired) {
        evict(session, {ErrorCode::UnknownClient, "the session has expired"}, SessionEnd::Expiry);
    }
    std::erase_if(closing_, [&](const Closing& closing) {
        const auto connection = closing.connection.lock();
        // It may have served another session at the same time, or a new one since.
        if (connection && closing.due <= now && connection->boundSessions.empty()) {
            connection->close(CloseCode::Normal, "disconnected");
        }
        return !connection || closing.due <= now;
    });
    return next;
}

bool BayeuxServer::hasUndelivered() const {
    const auto now = options_.now();
    return std::any_of(sessions_.begin(), sessions_.end(), [&](const auto& entry) {
        Session& session = *entry.second;
        return !session.queue().empty() && (!session.owner.expired() || now - session.lastHeard < kPollPause);
    });
}

metrics::Metrics::Gauges BayeuxServer::gauges() const {
    metrics::Metrics::Gauges gauges;
    gauges.sessions = sessions_.size();
    gauges.clients = lifecycle_.clients().size();
    for (const auto& [clientId, session] : sessions_) {
        gauges.subscriptions += session->subscriptionCount();
    }
    gauges.evalsInFlight = requestsInFlight_.count(cmddistributor::CommandKind::Eval);
    gauges.fevalsInFlight = requestsInFlight_.count(cmddistributor::CommandKind::FEval);
    gauges.residentBytes = metrics::residentBytes();
    gauges.outputWaits = options_.textGate != nullptr ? options_.textGate->waits() : 0;
    return gauges;
}

std::shared_ptr<Session> BayeuxServer::find(const std::string& clientId) const {
    const auto found = sessions_.find(clientId);
    return found == sessions_.end() ? nullptr : found->second;
}

std::shared_ptr<Session> BayeuxServer::find(SessionNumber number) const {
    const auto found = sessionsByNumber_.find(number);
    return found == sessionsByNumber_.end() ? nullptr : found->second.lock();
}

void BayeuxServer::bind(const std::shared_ptr<Session>& session,
                        const std::shared_ptr<Connection>& connection) {
    if (!isSame(session->owner, std::weak_ptr(connection))) {
        unbind(session);
        session->owner = connection;
        connection->boundSessions.push_back(session);
    }
}

void BayeuxServer::unbind(const std::shared_ptr<Session>& session) {
    if (const auto connection = session->owner.lock()) {
        std::erase_if(connection->boundSessions,
                      [&](const auto& bound) { return isSame(bound, std::weak_ptr(session)); });
    }
    session->owner.reset();
}

void BayeuxServer::flush(const std::shared_ptr<Session>& session) {
    if (session->queue().hasOverflowed()) {
        const Refusal why{
            ErrorCode::TooLarge,
            "more than " + std::to_string(options_.limits.maxQueueBytes) + " bytes wait for this session",
            metrics::RefusalReason::QueueBytes};
        options_.metrics->refusals.add(why.reason);
        evict(session, why, SessionEnd::Overflow);
        return;
    }
    if (session->queue().isGivenUp()) {
        const auto wait =
            std::chrono::duration_cast<std::chrono::seconds>(options_.textGate->options().maxWait);
        const Refusal why{
            ErrorCode::TooLarge,
            "the engine waited " + std::to_string(wait.count()) + " s for this session to read its text",
            metrics::RefusalReason::SlowReader};
        options_.metrics->refusals.add(why.reason);
        evict(session, why, SessionEnd::SlowReader);
        return;
    }
    const auto connection = session->owner.lock();
    if (!connection) {
        return;
    }
    if (travelWithReplies(*session, *connection)) {
        if (session->held && session->hasEvents()) {
            Frame frame;
            frame.addReply(kConnect, session->held->id, connectFields(*session));
            addEvents(frame, *session);
            answerHeld(*session, std::move(frame));
        }
        return;
    }
    while (connection->isWritable()) {
        Frame frame;
        addEvents(frame, *session);
        if (frame.empty()) {
            return;
        }
        send(*connection, frame);
    }
}

void BayeuxServer::answerHeld(Session& session, Frame&& frame) {
    const auto connection = session.held->from.lock();
    session.held.reset();
    session.lastHeard = options_.now();
    if (connection) {
        send(*connection, frame);
    }
}

void BayeuxServer::send(Connection& to, Frame& frame) {
    to.send(take(frame));
}

FrameText BayeuxServer::take(Frame& frame) {
    options_.metrics->messages.add(Direction::Out, frame.count());
    FrameText text = frame.take();
    options_.metrics->bytes.add(Direction::Out, text.size());
    return text;
}

void BayeuxServer::addEvents(Frame& frame, Session& session) const {
    for (const Event& event : session.nextEvents(options_.maxFrameBytes)) {
        frame.addEvent(event);
    }
}

std::string BayeuxServer::connectFields(Session& session) const {
    std::string fields = adviceField(retryAdvice(options_.connectTimeout));
    if (UnacknowledgedEvents* unacknowledged = session.unacknowledged()) {
        fields += R"(,"ext":{"ack":)" + std::to_string(unacknowledged->nextReply()) + "}";
    }
    return fields;
}

void BayeuxServer::closeSoon(const std::shared_ptr<Connection>& connection) {
    if (connection->isStreaming()) {
        closing_.push_back({connection, options_.now() + kCloseAfterEnd});
    }
}

void BayeuxServer::evict(const std::shared_ptr<Session>& session, const Refusal& why, SessionEnd cause) {
    FOUNDATION_LOG(logger(), foundation::log::Normal)
        << "session " << session->number() << " is ended: " << errorField(why);
    const auto connection = session->owner.lock();
    // A page that handshakes anew leaves its old session behind on the same connection.
    const bool servesOthers = connection && connection->boundSessions.size() > 1;
    if (session->held) {
        Frame frame;
        frame.addFailure(kConnect, session->held->id, why, adviceField(kStopAdvice));
        answerHeld(*session, std::move(frame));
    } else if (connection && connection->isStreaming() && !servesOthers) {
        Frame frame;
        frame.addReply(kDisconnect, {}, R"(,"error":")" + errorField(why) + '"');
        send(*connection, frame);
    }
    if (connection && !servesOthers) {
        connection->close(CloseCode::PolicyViolation, errorField(why));
    }
    end(session, cause);
}

void BayeuxServer::end(const std::shared_ptr<Session>& session, SessionEnd cause) {
    options_.metrics->sessionsEnded.add(cause);
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "session " << session->number() << " ends";
    lifecycle_.detachAll(session->number(), session->lane());
    unbind(session);
    session->close();
    sessionsByNumber_.erase(session->number());
    if (const auto ofAddress = sessionsByAddress_.find(session->address()); --ofAddress->second == 0) {
        sessionsByAddress_.erase(ofAddress);
    }
    sessions_.erase(session->clientId());
}

}  // namespace server::bayeux
