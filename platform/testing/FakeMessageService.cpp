#include "testing/FakeMessageService.hpp"

#include "foundation/json/Parser.hpp"

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <utility>

namespace platform_testing {

namespace {

using connector::Future;
using connector::message_service::JsonMessage;
using connector::message_service::Subscription;

template <typename T>
Future<T> failedFuture(FakeMessageService::Failure failure) {
    const std::runtime_error error("fake failure");
    switch (failure) {
        case FakeMessageService::Failure::exceptionInFuture:
            return connector::makeFailedFuture<T>(std::make_exception_ptr(error));
        case FakeMessageService::Failure::cancelled:
            return connector::Promise<T>().getFuture();
        case FakeMessageService::Failure::invalidFuture:
            return Future<T>();
        case FakeMessageService::Failure::thrown:
            break;
    }
    throw error;
}

}  // namespace

foundation::json::Value FakeMessageService::Publication::json() const {
    return foundation::json::parseText(text);
}

/// One subscription. `live` and `runningOn` are guarded by the service's mutex.
struct FakeMessageService::Entry {
    Kind kind;
    std::string channel;
    std::function<void(const JsonMessage&)> callback;
    bool live = true;
    std::vector<std::thread::id> runningOn;
};

class FakeMessageService::EntrySubscription final : public Subscription {
  public:
    EntrySubscription(std::shared_ptr<FakeMessageService> service, std::shared_ptr<Entry> entry)
        : service_(std::move(service)), entry_(std::move(entry)) {}
    ~EntrySubscription() override { service_->end(entry_); }

    Future<void> unsubscribe() override {
        service_->end(entry_);
        return connector::makeReadyFuture<void>();
    }

  private:
    std::shared_ptr<FakeMessageService> service_;
    std::shared_ptr<Entry> entry_;
};

std::shared_ptr<FakeMessageService> FakeMessageService::create() {
    return std::shared_ptr<FakeMessageService>(new FakeMessageService);
}

FakeMessageService::~FakeMessageService() = default;

Future<std::shared_ptr<Subscription>> FakeMessageService::subscribe(const std::string& channel,
                                                                    MessageCallback callback) {
    if (const auto failure = takeSubscribeFailure()) {
        return failedFuture<std::shared_ptr<Subscription>>(*failure);
    }
    auto subscription = add(Kind::message, channel, std::move(callback));
    call(Kind::subscribeEvent, JsonMessage(channel, {}));
    return connector::makeReadyFuture<std::shared_ptr<Subscription>>(std::move(subscription));
}

Future<std::shared_ptr<Subscription>> FakeMessageService::onSubscribe(
    const std::string& channel,
    std::function<void(const connector::message_service::SubscribeEvent&)> callback) {
    if (const auto failure = takeSubscribeFailure()) {
        return failedFuture<std::shared_ptr<Subscription>>(*failure);
    }
    return connector::makeReadyFuture<std::shared_ptr<Subscription>>(
        add(Kind::subscribeEvent, channel,
            [callback = std::move(callback)](const JsonMessage& message) { callback({message.channel()}); }));
}

Future<std::shared_ptr<Subscription>> FakeMessageService::onUnsubscribe(
    const std::string& channel,
    std::function<void(const connector::message_service::UnsubscribeEvent&)> callback) {
    if (const auto failure = takeSubscribeFailure()) {
        return failedFuture<std::shared_ptr<Subscription>>(*failure);
    }
    return connector::makeReadyFuture<std::shared_ptr<Subscription>>(
        add(Kind::unsubscribeEvent, channel,
            [callback = std::move(callback)](const JsonMessage& message) { callback({message.channel()}); }));
}

Future<void> FakeMessageService::publish(const std::string& channel, connector::common::DataBuffer payload) {
    std::optional<Failure> failure;
    {
        const std::lock_guard lock(mutex_);
        failure = std::exchange(publishFailure_, std::nullopt);
        if (!failure) {
            publications_.push_back({channel, std::string(payload.view())});
            changed_.notify_all();
        }
    }
    return failure ? failedFuture<void>(*failure) : connector::makeReadyFuture<void>();
}

std::size_t FakeMessageService::deliver(const std::string& channel, std::string text) {
    return call(Kind::message, JsonMessage(channel, connector::common::DataBuffer(std::move(text))));
}

void FakeMessageService::fireSubscribe(const std::string& channel) {
    call(Kind::subscribeEvent, JsonMessage(channel, {}));
}

void FakeMessageService::fireUnsubscribe(const std::string& channel) {
    call(Kind::unsubscribeEvent, JsonMessage(channel, {}));
}

std::vector<FakeMessageService::Publication> FakeMessageService::publications() const {
    const std::lock_guard lock(mutex_);
    return publications_;
}

std::vector<FakeMessageService::Publication> FakeMessageService::publicationsOn(
    std::string_view channel) const {
    auto found = publications();
    std::erase_if(found,
                  [channel](const Publication& publication) { return publication.channel != channel; });
    return found;
}

void FakeMessageService::clearPublications() {
    const std::lock_guard lock(mutex_);
    publications_.clear();
}

FakeMessageService::Publication FakeMessageService::waitForPublication(
    std::string_view channel, std::size_t count, std::chrono::milliseconds deadline) const {
    const auto nth = [&] {
        std::size_t seen = 0;
        return std::ranges::find_if(publications_, [&](const Publication& publication) {
            return publication.channel == channel && ++seen == count;
        });
    };
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, deadline, [&] { return nth() != publications_.end(); })) {
        return *nth();
    }
    std::string text = "publication " + std::to_string(count) + " on " + std::string(channel) +
                       " did not come. Published was:";
    for (const auto& publication : publications_) {
        text += "\n  " + publication.channel + ' ' + publication.text;
    }
    throw std::runtime_error(text);
}

std::vector<std::string> FakeMessageService::subscriptionLog() const {
    const std::lock_guard lock(mutex_);
    return log_;
}

std::size_t FakeMessageService::subscriberCount(std::string_view channel) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count_if(entries_, [channel](const auto& entry) {
        return entry->kind == Kind::message && entry->channel == channel;
    }));
}

std::size_t FakeMessageService::subscriberCount() const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::ranges::count_if(entries_, [](const auto& entry) { return entry->kind == Kind::message; }));
}

std::vector<std::exception_ptr> FakeMessageService::callbackExceptions() const {
    const std::lock_guard lock(mutex_);
    return exceptions_;
}

void FakeMessageService::failNextSubscribe(Failure failure, std::size_t after) {
    const std::lock_guard lock(mutex_);
    subscribeFailure_ = PlannedFailure{failure, after};
}

void FakeMessageService::failNextPublish(Failure failure) {
    const std::lock_guard lock(mutex_);
    publishFailure_ = failure;
}

const char* FakeMessageService::beginWord(Kind kind) noexcept {
    switch (kind) {
        case Kind::subscribeEvent:
            return "onSubscribe ";
        case Kind::unsubscribeEvent:
            return "onUnsubscribe ";
        case Kind::message:
            break;
    }
    return "subscribe ";
}

const char* FakeMessageService::endWord(Kind kind) noexcept {
    switch (kind) {
        case Kind::subscribeEvent:
            return "endOnSubscribe ";
        case Kind::unsubscribeEvent:
            return "endOnUnsubscribe ";
        case Kind::message:
            break;
    }
    return "unsubscribe ";
}

std::optional<FakeMessageService::Failure> FakeMessageService::takeSubscribeFailure() {
    const std::lock_guard lock(mutex_);
    if (!subscribeFailure_) {
        return std::nullopt;
    }
    if (subscribeFailure_->after > 0) {
        --subscribeFailure_->after;
        return std::nullopt;
    }
    return std::exchange(subscribeFailure_, std::nullopt)->failure;
}

std::shared_ptr<Subscription> FakeMessageService::add(Kind kind, const std::string& channel,
                                                      std::function<void(const JsonMessage&)> callback) {
    auto entry = std::make_shared<Entry>();
    entry->kind = kind;
    entry->channel = channel;
    entry->callback = std::move(callback);
    auto subscription = std::make_shared<EntrySubscription>(shared_from_this(), entry);
    const std::lock_guard lock(mutex_);
    log_.push_back(beginWord(kind) + channel);
    entries_.push_back(std::move(entry));
    return subscription;
}

void FakeMessageService::end(const std::shared_ptr<Entry>& entry) {
    {
        std::unique_lock lock(mutex_);
        const bool ended = std::exchange(entry->live, false);
        if (ended) {
            std::erase(entries_, entry);
            log_.push_back(endWord(entry->kind) + entry->channel);
        }
        const auto runsHere = [&] {
            return std::ranges::find(entry->runningOn, std::this_thread::get_id()) != entry->runningOn.end();
        };
        changed_.wait(lock, [&] { return entry->runningOn.empty() || runsHere(); });
        if (!ended) {
            return;
        }
    }
    if (entry->kind == Kind::message) {
        call(Kind::unsubscribeEvent, JsonMessage(entry->channel, {}));
    }
}

std::size_t FakeMessageService::call(Kind kind, const JsonMessage& message) {
    std::vector<std::shared_ptr<Entry>> receivers;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::copy_if(entries_, std::back_inserter(receivers), [&](const auto& entry) {
            return entry->kind == kind && entry->channel == message.channel();
        });
    }
    std::size_t called = 0;
    for (const auto& entry : receivers) {
        {
            const std::lock_guard lock(mutex_);
            if (!entry->live) {
                continue;
            }
            entry->runningOn.push_back(std::this_thread::get_id());
        }
        ++called;
        std::exception_ptr exception;
        try {
            entry->callback(message);
        } catch (...) {
            exception = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        entry->runningOn.erase(std::ranges::find(entry->runningOn, std::this_thread::get_id()));
        if (exception) {
            exceptions_.push_back(exception);
        }
        changed_.notify_all();
    }
    return called;
}

/// Outlives the fixture where a door is asked for while it goes.
struct FakeMessageServiceFactory::State {
    std::mutex mutex;
    // All guarded by mutex.
    std::vector<std::string> names;
    std::optional<FakeMessageService::Failure> failure;
};

FakeMessageServiceFactory::FakeMessageServiceFactory()
    : service_(FakeMessageService::create()), state_(std::make_shared<State>()) {
    using connector::message_service::MessageService;
    connector::message_service::setMessageServiceFactory(
        [service = service_, state = state_](const std::string& name,
                                             const connector::message_service::MessageServiceOptions&) {
            std::optional<FakeMessageService::Failure> failure;
            {
                const std::lock_guard lock(state->mutex);
                state->names.push_back(name);
                failure = std::exchange(state->failure, std::nullopt);
            }
            return failure ? failedFuture<std::shared_ptr<MessageService>>(*failure)
                           : connector::makeReadyFuture<std::shared_ptr<MessageService>>(service);
        });
}

FakeMessageServiceFactory::~FakeMessageServiceFactory() {
    connector::message_service::setMessageServiceFactory({});
}

void FakeMessageServiceFactory::failNextCreate(FakeMessageService::Failure failure) {
    const std::lock_guard lock(state_->mutex);
    state_->failure = failure;
}

std::vector<std::string> FakeMessageServiceFactory::names() const {
    const std::lock_guard lock(state_->mutex);
    return state_->names;
}

}  // namespace platform_testing
