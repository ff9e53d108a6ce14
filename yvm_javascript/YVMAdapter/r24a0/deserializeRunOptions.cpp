#include "r24a0/deserializeRunOptions.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "common/makeTextMessage.hpp"
#include "common/setCurrentMockYvm.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/json/toUnsigned64.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "r24a0/EventManagerConnection.hpp"
#include "r24a0/readSinkTraits.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "ylutil/io/YLNoOutputStreamBuffer.hpp"
#include "yvm/Factory.hpp"
#include "yvm/YVM.hpp"
#include "yvm/makeTextEventBuffer.hpp"

#include <boost/make_shared.hpp>

#include <cstddef>
#include <stdexcept>
#include <streambuf>
#include <typeinfo>
#include <utility>
#include <vector>

namespace yvm::JSClient::r24a0 {

namespace {

using foundation::json::Value;
using ylutil::io::SinkTraits;
using ylutil::io::StreamTypeEnum;

const std::u16string textEventName = u"ylutil::io::TextBaseEvent";

/// The stream buffer of one command's own text. Collects what is written and fires it as `TextBaseEvent`s on
/// the engine's event manager, synchronously, so that the text has been published before the command
/// completes. Text of two commands is never mixed in one event, nor is text held back: it is flushed when the
/// writing command changes, beyond the threshold, and by `pubsync`. What is still collected at destruction is
/// lost.
///
/// What the platform's own text event buffer does not do: it copies the text to the engine's log and diary,
/// as the traits ask for, when it is written.
///
/// Used by the engine thread that writes; not for two threads at once.
class TextEventBufferHack final : public std::basic_streambuf<char16_t> {
  public:
    TextEventBufferHack(StreamTypeEnum streamType, const SinkTraits& traits)
        : streamType_(streamType), traits_(traits) {}

  protected:
    /// The end-of-file value and NUL are dropped. libstdc++ announces U+FFFF as U+FFFD here, which is left
    /// so.
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()) && character != 0) {
            const char16_t unit = traits_type::to_char_type(character);
            write(&unit, 1);
        }
        return character;
    }

    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        write(text, count);
        return count;
    }

    /// -1, with the text kept, while there is no engine or it has no event manager.
    int sync() override {
        try {
            if (text_.empty()) {
                return 0;
            }
            const std::shared_ptr<YVM> engine = findEngine();
            if (!engine) {
                return -1;
            }
            const auto eventMgr = engine->getEventMgr();
            if (!eventMgr) {
                return -1;
            }
            // Emptied first: a handler that prints writes into this buffer.
            std::u16string text = std::exchange(text_, {});
            eventMgr->deliver(
                std::make_shared<ylutil::io::TextBaseEvent>(lastRequestId_, streamType_, std::move(text)),
                foundation::msg_svc::eventmgr::DeliveryMode::synchronous);
            return 0;
        } catch (...) {
            // A stream buffer reports by its result; the text that was on its way is lost.
            return -1;
        }
    }

  private:
    /// In 16-bit units; bounds the size of one event and its message.
    static constexpr std::size_t flushThreshold = 8192;

    static std::shared_ptr<YVM> findEngine() {
        if (YVM* mock = currentMockYvm()) {
            return {mock, [](YVM*) {}};
        }
        return Factory::getCurrentLocalYVM();
    }

    void write(const char16_t* text, std::streamsize count) {
        const auto requestId = cmddistributor::RequestIdAdapter().getRequestId();
        if (requestId != lastRequestId_) {
            sync();
            lastRequestId_ = requestId;
        }
        text_.append(text, static_cast<std::size_t>(count));
        if (traits_.useLogging()) {
            ylutil::io::ActiveCmdWinSinkBufferProxy::logLog(text, count, false);
        }
        if (traits_.useDiary()) {
            ylutil::io::ActiveCmdWinSinkBufferProxy::logDiary(text, count, false);
        }
        if (text_.size() > flushThreshold) {
            sync();
        }
    }

    const StreamTypeEnum streamType_;
    std::u16string text_;
    foundation::msg_svc::exchange::IDType lastRequestId_ = foundation::msg_svc::exchange::IDType::null();
    const SinkTraits traits_;
};

boost::shared_ptr<std::basic_streambuf<char16_t>> makeTextEventBufferHack(StreamTypeEnum streamType,
                                                                          const SinkTraits& traits) {
    return boost::make_shared<TextEventBufferHack>(streamType, traits);
}

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
                return "/text/output";
            case StreamTypeEnum::Error:
                return "/text/error";
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

void applyDequeueMode(cmddistributor::RunOptions& runOptions, const std::string& text) {
    using ylutil::cmddistributor::WhenToDequeue;
    try {
        const auto mode = WhenToDequeue::toWhenToDequeue(text);
        if (mode == WhenToDequeue::DEQUEUE_UNKNOWN) {
            throw std::invalid_argument("Does not support DEQUEUE_UNKNOWN");
        }
        runOptions.setDequeueMode(mode);
    } catch (const std::invalid_argument&) {
        // An unknown mode leaves the default in force and the request goes on: clients rely on it.
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
    if (const auto* value = find(options, "commandWindowRowSize")) {
        runOptions.setCommandWindowRowSize(foundation::json::toUnsigned64(value->get<double>()));
    }
    if (const auto* value = find(options, "commandWindowColSize")) {
        runOptions.setCommandWindowColSize(foundation::json::toUnsigned64(value->get<double>()));
    }
}

void applyStreams(cmddistributor::RunOptions& runOptions, const JsonObject& options,
                  const std::string& requestID, PublishTextCallback publishTextCallback) {
    const auto [outTraits, errTraits] = readSinkTraitsPair(options);
    bool needsTextCallback = false;
    const auto makeBuffer = [&needsTextCallback](bool useNullSink, StreamTypeEnum streamType,
                                                 const SinkTraits& traits) -> ylutil::io::YLSink::Buffer {
        if (useNullSink) {
            return boost::make_shared<ylutil::io::YLNoOutputStreamBuffer>();
        }
        needsTextCallback = true;
        return makeTextEventBufferHack(streamType, traits);
    };
    if (const auto* value = find(options, "useNullOutSink")) {
        runOptions.setOutStream(makeBuffer(value->get<bool>(), StreamTypeEnum::Output, outTraits), outTraits);
    }
    if (const auto* value = find(options, "useNullErrSink")) {
        runOptions.setErrStream(makeBuffer(value->get<bool>(), StreamTypeEnum::Error, errTraits), errTraits);
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

}  // namespace yvm::JSClient::r24a0
