#include "r22a0/deserializeRunOptions.hpp"

#include "common/makeTextMessage.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/json/toUnsigned64.hpp"
#include "r22a0/EventManagerConnection.hpp"
#include "r22a0/readSinkTraits.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"
#include "yvm/makeTextEventBuffer.hpp"

#include <boost/make_shared.hpp>

#include <typeinfo>
#include <utility>
#include <vector>

namespace yvm::JSClient::r22a0 {

namespace {

using foundation::json::Value;
using ylutil::io::SinkTraits;
using ylutil::io::StreamTypeEnum;

const std::u16string textEventName = u"ylutil::io::TextBaseEvent";

/// Publishes the text that one command wrote. Throws `std::bad_cast` into the dispatch for an event of
/// another kind.
class TextCallback {
  public:
    TextCallback(PublishTextCallback publish, std::string requestID)
        : publish_(std::move(publish)), requestID_(std::move(requestID)) {}

    void operator()(const foundation::msg_svc::eventmgr::BaseEvent& event) const {
        if (!event.isKindOf(textEventName)) {
            throw std::bad_cast();
        }
        const auto& textEvent = static_cast<const ylutil::io::TextBaseEvent&>(event);
        const char* const channel = channelOf(textEvent.stream());
        if (channel == nullptr) {
            return;
        }
        JsonObject message = makeTextMessage(textEvent.stream(), textEvent.text());
        message.emplace("requestID", requestID_);
        publish_(channel, std::move(message));
    }

  private:
    /// Null for a stream that has no channel, whose text is dropped.
    static const char* channelOf(StreamTypeEnum streamType) {
        switch (streamType) {
            case StreamTypeEnum::Output:
                return "/output";
            case StreamTypeEnum::Error:
                return "/error";
            case StreamTypeEnum::Generic:
                break;
        }
        return nullptr;
    }

    PublishTextCallback publish_;
    std::string requestID_;
};

const Value* find(const JsonObject& options, const std::string& key) {
    const auto member = options.find(key);
    return member == options.end() ? nullptr : &member->second;
}

/// A text that names no mode leaves the default in force and the request goes on: clients rely on it.
void applyDequeueMode(cmddistributor::RunOptions& runOptions, const std::string& text) {
    using ylutil::cmddistributor::WhenToDequeue;
    if (text == "DEQUEUE_AT_PPE") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_PPE);
    } else if (text == "DEQUEUE_AT_PAUSE") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_PAUSE);
    } else if (text == "DEQUEUE_AT_PROMPT") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_PROMPT);
    } else if (text == "DEQUEUE_AT_NON_DEBUG_PROMPT") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_NON_DEBUG_PROMPT);
    } else if (text == "DEQUEUE_AT_DEBUG_PROMPT") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_DEBUG_PROMPT);
    } else if (text == "DEQUEUE_AT_IDLE") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_IDLE);
    } else if (text == "DEQUEUE_AT_BOOTSTRAP") {
        runOptions.setDequeueMode(WhenToDequeue::DEQUEUE_AT_BOOTSTRAP);
    }
}

void applyScheduling(cmddistributor::RunOptions& runOptions, const JsonObject& options) {
    if (const auto* value = find(options, "dequeueMode")) {
        applyDequeueMode(runOptions, value->get<std::string>());
    }
    if (const auto* value = find(options, "queueName")) {
        runOptions.setQueueName(fl::i18n::to_ustring(value->get<std::string>()));
    }
    if (const auto* value = find(options, "capabilitiesList")) {
        std::vector<std::string> names;
        for (const auto& element : value->get<foundation::json::Array>()) {
            names.push_back(element.get<std::string>());
        }
        runOptions.setCapabilities(capabilities::CapabilityList::fromStringVector(names));
    }
    if (const auto* value = find(options, "groupNames")) {
        for (const auto& element : value->get<foundation::json::Array>()) {
            runOptions.addGroupName(element.get<std::string>());
        }
    }
    if (const auto* value = find(options, "suppressDebugControlOutput")) {
        runOptions.setSuppressDebugControlOutput(value->get<bool>());
    }
    // Width to rows and height to columns, as clients of this version mean it.
    if (const auto* value = find(options, "commandWindowWidth")) {
        runOptions.setCommandWindowRowSize(foundation::json::toUnsigned64(value->get<double>()));
    }
    if (const auto* value = find(options, "commandWindowHeight")) {
        runOptions.setCommandWindowColSize(foundation::json::toUnsigned64(value->get<double>()));
    }
}

void applyStreams(cmddistributor::RunOptions& runOptions, const JsonObject& options,
                  const std::string& requestID, PublishTextCallback publishTextCallback) {
    const auto [outTraits, errTraits] = readSinkTraitsPair(options);
    bool needsTextCallback = false;
    const auto makeBuffer = [&needsTextCallback](bool useNullSink,
                                                 StreamTypeEnum streamType) -> ylutil::io::YLSink::Buffer {
        if (useNullSink) {
            return boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>();
        }
        needsTextCallback = true;
        return makeTextEventBuffer(streamType);
    };
    if (const auto* value = find(options, "useNullOutSink")) {
        runOptions.setOutStream(makeBuffer(value->get<bool>(), StreamTypeEnum::Output), outTraits);
    }
    if (const auto* value = find(options, "useNullErrSink")) {
        runOptions.setErrStream(makeBuffer(value->get<bool>(), StreamTypeEnum::Error), errTraits);
    }
    if (needsTextCallback) {
        runOptions.setCallbackImpl(TextCallback(std::move(publishTextCallback), requestID), textEventName);
    }
}

/// The command's text leaves as events, whatever was chosen for its streams.
void sendTextAsEvents(cmddistributor::RunOptions& runOptions) {
    const SinkTraits traits = cmddistributor::RunOptions::getDefaultSinkTraits();
    runOptions.setOutStream(makeTextEventBuffer(StreamTypeEnum::Output), traits);
    runOptions.setErrStream(makeTextEventBuffer(StreamTypeEnum::Error), traits);
    runOptions.removeDefaultCallbacks();
}

void applyEventConnections(cmddistributor::RunOptions& runOptions, const JsonObject& options,
                           const std::shared_ptr<EventManagerConnection>& eventConnection) {
    const auto* value = find(options, "eventConnections");
    if (value == nullptr) {
        return;
    }
    for (const auto& [requestId, name] : value->get<JsonObject>()) {
        const auto& eventName = name.get<std::string>();
        auto handler = eventConnection->makeRunOptionsEventHandler(eventName, requestId);
        if (!handler) {
            continue;
        }
        std::u16string eventType = fl::i18n::to_ustring(eventName);
        if (eventType == textEventName) {
            sendTextAsEvents(runOptions);
        }
        runOptions.setCallbackImpl(std::move(handler), std::move(eventType));
    }
}

}  // namespace

cmddistributor::RunOptions deserializeRunOptions(
    const JsonObject& options, const std::shared_ptr<EventManagerConnection>& eventConnection,
    const std::string& requestID, PublishTextCallback publishTextCallback) {
    cmddistributor::RunOptions runOptions;
    applyScheduling(runOptions, options);
    applyStreams(runOptions, options, requestID, std::move(publishTextCallback));
    // Last, since a handler of the text events overrides the streams.
    applyEventConnections(runOptions, options, eventConnection);
    return runOptions;
}

}  // namespace yvm::JSClient::r22a0
