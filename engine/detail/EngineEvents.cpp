#include "engine/detail/EngineEvents.hpp"

#include "cmddistributor/RequestIdAdapter.hpp"
#include "engine/detail/ForkedChild.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace yvm::engine {

namespace {

using foundation::msg_svc::eventmgr::DeliveryMode;

/// A page puts these between the pieces of text, or asks a person who is to have read it.
constexpr std::array<std::u16string_view, 6> precededByText{u"services::io::CLCEvent",
                                                            u"services::io::HomeEvent",
                                                            u"services::prompt::InputRequestEvent",
                                                            u"ylutil::io::PrintableErrorEvent",
                                                            u"ylutil::io::StructuredOutputEvent",
                                                            u"ylutil::prompt::PromptEvent"};

}  // namespace

EngineEvents::EngineEvents(EngineOutput& output) : output_(output), manager_(EventMgr::create()) {}

std::optional<EngineEvents::IDType> EngineEvents::commandOfThisThread() {
    const auto id = cmddistributor::RequestIdAdapter().getRequestId();
    return id.isNull() ? std::nullopt : std::optional(id);
}

bool EngineEvents::isWanted(const TypeInformation& type) const {
    if (ForkedChild::isThis()) {
        return false;
    }
    const auto& command = CommandScope::current();
    // Text of one command may leave while another runs on the thread. What the first one wants is found out
    // when the event is delivered.
    if ((command != nullptr ? command->id() : IDType::null()) !=
        cmddistributor::RequestIdAdapter().getRequestId()) {
        return true;
    }
    return std::ranges::any_of(type.getStaticTags(), [&](const std::u16string& tag) {
        return manager_->subscriptionCount(tag) > 0 ||
               (command != nullptr && command->runOptions().getCallbacks().contains(tag));
    });
}

void EngineEvents::deliver(std::shared_ptr<const BaseEvent> event) {
    if (std::ranges::find(precededByText, event->getTypeInformation().name()) != precededByText.end()) {
        output_.synchroniseBeforeEvent();
    }
    manager_->deliver(std::move(event), DeliveryMode::synchronous);
}

}  // namespace yvm::engine
