#include "r24a0/TextJSBufferPublisher.hpp"

#include "common/makeTextMessage.hpp"
#include "cppmicroservices/Framework.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/concurrent/threadpool/ResubmittingWork.hpp"
#include "foundation/concurrent/threadpool/ThreadPool.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <unordered_set>

namespace yvm::JSClient::r24a0 {

namespace {

using foundation::concurrent::threadpool::ThreadPool;

constexpr std::chrono::duration<long long, std::milli> publishPeriod(150);

const foundation::log::diagnostic_logger& logger() {
    static const auto& instance =
        *new foundation::log::diagnostic_logger("yvm::JSClient::TextJSBufferPublisher");
    return instance;
}

std::shared_ptr<ThreadPool> findThreadPool() {
    const auto framework = foundation::cppmicroservices::getFramework();
    // A context that belongs to no framework, or to one that has stopped, says so itself.
    const auto context = framework ? framework->GetBundleContext() : cppmicroservices::BundleContext();
    auto pool = context.GetService(context.GetServiceReference<ThreadPool>(cppmicroservices::LDAPFilter()));
    if (!pool) {
        throw std::runtime_error("There is no thread pool to publish text on time");
    }
    return pool;
}

bool isFlushEventType(const std::u16string& name) {
    static const auto& flushEventTypes = *new std::unordered_set<std::u16string>{
        u"iqm::IqmInputRequestEvent",
        u"yorlab::lang::correction::SuggestionEvent",
        u"ylutil::io::PrintableErrorEvent",
        u"ylutil::io::SinkTextEvent",
        u"ylutil::io::StructuredOutputEvent",
        u"ylutil::prompt::PromptEvent",
        u"services::io::CLCEvent",
        u"services::io::HomeEvent",
        u"services::prompt::InputRequestEvent",
    };
    return flushEventTypes.contains(name);
}

}  // namespace

TextJSBufferPublisher::TextJSBufferPublisher(SendFunction sendFunction)
    : sendFunction_(std::move(sendFunction)),
      taskSubmitter_(
          std::make_shared<foundation::concurrent::threadpool::ScheduledTaskSubmitter>(findThreadPool())) {}

TextJSBufferPublisher::~TextJSBufferPublisher() {
    timerStop_.request_stop();
    const Lock lock(mutex_);
    FOUNDATION_LOG(logger(), foundation::log::LookupDetail)
        << " numBuffered_=" << numBuffered_ << " this=" << this;
}

void TextJSBufferPublisher::push(StreamTypeEnum stream, std::u16string text) {
    const Lock lock(mutex_);
    pushImpl(stream, std::move(text), lock);
}

void TextJSBufferPublisher::send() {
    const Lock lock(mutex_);
    sendImpl(lock);
}

void TextJSBufferPublisher::flushForEvent(const foundation::msg_svc::eventmgr::BaseEvent& event) {
    if (std::ranges::none_of(event.getStaticTags(), isFlushEventType)) {
        return;
    }
    FOUNDATION_LOG(logger(), foundation::log::Normal) << "forcing flush before sending event";
    send();
}

void TextJSBufferPublisher::startPublishTimer() {
    timerStop_ = taskSubmitter_->submit(foundation::concurrent::threadpool::ResubmittingWork(
        [weakThis = weak_from_this()] {
            if (const auto self = weakThis.lock()) {
                // Let go before the reference, which may be the last one.
                const Lock lock(self->mutex_);
                self->sendImpl(lock);
            }
        },
        publishPeriod, false));
}

void TextJSBufferPublisher::pushImpl(StreamTypeEnum stream, std::u16string text, const Lock& /*lock*/) {
    FOUNDATION_LOG(logger(), foundation::log::Normal) << " pushing \"" << fl::i18n::to_string(text) << '"';
    const std::size_t length = text.size();
    if (!queue_.empty() && queue_.back().first == stream) {
        queue_.back().second += text;
    } else {
        queue_.emplace_back(stream, std::move(text));
    }
    numBuffered_ += length;
}

void TextJSBufferPublisher::clearImpl(const Lock& /*lock*/) {
    queue_.clear();
    numBuffered_ = 0;
}

void TextJSBufferPublisher::sendImpl(const Lock& /*lock*/) {
    while (!queue_.empty()) {
        // Off the queue first: a message that fails is lost, and stands in the way of no other.
        const auto [stream, text] = std::move(queue_.front());
        queue_.pop_front();
        numBuffered_ -= text.size();
        FOUNDATION_LOG(logger(), foundation::log::Normal)
            << "sending message containing " << text.size() << " uchars";
        JsonObject message = makeTextMessage(stream, text);
        if (sendFunction_) {
            sendFunction_(std::move(message));
        }
    }
}

}  // namespace yvm::JSClient::r24a0
