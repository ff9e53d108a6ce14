#pragma once

#include "connector/message_service/MessageService.hpp"
#include "foundation/json/Value.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform_testing {

/// A message service that the test steps by hand: nothing is delivered until the test says so, and
/// then on the test's own thread. It records what was published and who subscribed.
///
/// Channels are exact names; patterns are not matched. Like the real service it fulfils a
/// subscription at once, catches what a callback throws, starts no callback of an ended
/// subscription, and lets the end of a subscription wait for a callback on another thread.
/// `publish` only records. Safe for use from any thread.
class FakeMessageService final : public connector::message_service::MessageService,
                                 public std::enable_shared_from_this<FakeMessageService> {
  public:
    struct Publication {
        std::string channel;
        std::string text;

        /// The text as a JSON value; throws `std::runtime_error` where it is none.
        foundation::json::Value json() const;
    };

    /// What an operation that was told to fail does.
    enum class Failure {
        exceptionInFuture,  ///< the future holds `std::runtime_error("fake failure")`
        cancelled,          ///< the future was cancelled
        invalidFuture,      ///< the future has no state
        thrown,             ///< the call itself throws `std::runtime_error("fake failure")`
    };

    static std::shared_ptr<FakeMessageService> create();
    ~FakeMessageService() override;

    connector::Future<std::shared_ptr<connector::message_service::Subscription>> subscribe(
        const std::string& channel, MessageCallback callback) override;
    connector::Future<void> publish(const std::string& channel,
                                    connector::common::DataBuffer payload) override;
    connector::Future<std::shared_ptr<connector::message_service::Subscription>> onSubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::SubscribeEvent&)> callback) override;
    connector::Future<std::shared_ptr<connector::message_service::Subscription>> onUnsubscribe(
        const std::string& channel,
        std::function<void(const connector::message_service::UnsubscribeEvent&)> callback) override;

    /// Calls the subscribers of exactly `channel` with `text` on this thread, in the order in which
    /// they subscribed; an empty text arrives as a null data pointer. Returns how many were called.
    /// Their exceptions are caught, as by the real service, and kept in `callbackExceptions`.
    std::size_t deliver(const std::string& channel, std::string text);

    /// Acts as a subscriber of `channel` that comes, or goes: fires the event for the monitors of the
    /// channel, on this thread.
    void fireSubscribe(const std::string& channel);
    void fireUnsubscribe(const std::string& channel);

    std::vector<Publication> publications() const;
    std::vector<Publication> publicationsOn(std::string_view channel) const;
    void clearPublications();

    /// Waits until `count` publications on `channel` have been recorded and returns the last of
    /// these. Throws `std::runtime_error`, with what was published instead, when `deadline` passes.
    Publication waitForPublication(std::string_view channel, std::size_t count = 1,
                                   std::chrono::milliseconds deadline = std::chrono::seconds(60)) const;

    /// "subscribe CHANNEL", "unsubscribe CHANNEL", "onSubscribe CHANNEL", "endOnSubscribe CHANNEL",
    /// "onUnsubscribe CHANNEL" and "endOnUnsubscribe CHANNEL", in the order of events.
    std::vector<std::string> subscriptionLog() const;

    /// The live subscriptions of exactly `channel`, and of all channels.
    std::size_t subscriberCount(std::string_view channel) const;
    std::size_t subscriberCount() const;

    std::vector<std::exception_ptr> callbackExceptions() const;

    /// The next `subscribe`, `onSubscribe` or `onUnsubscribe` fails so, behind `after` successes.
    void failNextSubscribe(Failure failure, std::size_t after = 0);

    /// The next `publish` fails so, and records nothing.
    void failNextPublish(Failure failure);

  private:
    enum class Kind { message, subscribeEvent, unsubscribeEvent };
    struct Entry;
    class EntrySubscription;
    struct PlannedFailure {
        Failure failure;
        std::size_t after;
    };

    /// What the log says of a coming and of an ending subscription.
    static const char* beginWord(Kind kind) noexcept;
    static const char* endWord(Kind kind) noexcept;

    FakeMessageService() = default;

    std::optional<Failure> takeSubscribeFailure();
    std::shared_ptr<connector::message_service::Subscription> add(
        Kind kind, const std::string& channel,
        std::function<void(const connector::message_service::JsonMessage&)> callback);
    void end(const std::shared_ptr<Entry>& entry);
    std::size_t call(Kind kind, const connector::message_service::JsonMessage& message);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // All below is guarded by mutex_.
    std::vector<std::shared_ptr<Entry>> entries_;
    std::vector<Publication> publications_;
    std::vector<std::string> log_;
    std::vector<std::exception_ptr> exceptions_;
    std::optional<PlannedFailure> subscribeFailure_;
    std::optional<Failure> publishFailure_;
};

/// While it lives, `connector::message_service::createMessageService` answers with one fake, or
/// fails as told.
class FakeMessageServiceFactory {
  public:
    FakeMessageServiceFactory();
    ~FakeMessageServiceFactory();
    FakeMessageServiceFactory(const FakeMessageServiceFactory&) = delete;
    FakeMessageServiceFactory& operator=(const FakeMessageServiceFactory&) = delete;

    const std::shared_ptr<FakeMessageService>& service() const noexcept { return service_; }

    /// The next `createMessageService` fails so.
    void failNextCreate(FakeMessageService::Failure failure);

    /// The names for which doors were asked for, in order.
    std::vector<std::string> names() const;

  private:
    struct State;
    std::shared_ptr<FakeMessageService> service_;
    std::shared_ptr<State> state_;
};

}  // namespace platform_testing
