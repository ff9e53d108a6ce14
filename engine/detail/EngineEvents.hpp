#pragma once

#include "engine/detail/Command.hpp"
#include "engine/detail/EngineOutput.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"

#include <boost/shared_ptr.hpp>

#include <memory>
#include <optional>
#include <utility>

namespace yvm::engine {

/// Brings events to the command that they belong to, if its run options have a handler for them, and then to
/// all who subscribed.
///
/// The handlers run inside `fire`, on its thread: to be called without the GIL and with no lock held. What
/// they throw stays with the event manager. In a forked child nobody hears anything.
///
/// Safe from any thread.
class EngineEvents {
  public:
    using BaseEvent = foundation::msg_svc::eventmgr::BaseEvent;
    using EventMgr = foundation::msg_svc::eventmgr::EventMgr;
    using TypeInformation = foundation::msg_svc::eventmgr::TypeInformation;
    using IDType = Command::IDType;

    explicit EngineEvents(EngineOutput& output);

    const boost::shared_ptr<EventMgr>& manager() const noexcept { return manager_; }

    /// Whether anybody may take such an event of the command that the calling thread works for. Cheap, so
    /// that an event which nobody wants need not be made, and may be asked with the GIL held.
    template <typename Event>
    bool isWanted() const {
        return isWanted(foundation::msg_svc::eventmgr::DerivedTypeInformation<Event>::shared());
    }

    /// Fires an `Event` of the command that the calling thread works for, if anybody wants it; `arguments`
    /// are those of its constructor behind the command's identity. Text that was written before leaves before
    /// it, where the event is one that must not overtake text.
    template <typename Event, typename... Arguments>
    void fire(Arguments&&... arguments) {
        if (isWanted<Event>()) {
            deliver(
                std::make_shared<const Event>(commandOfThisThread(), std::forward<Arguments>(arguments)...));
        }
    }

  private:
    static std::optional<IDType> commandOfThisThread();
    bool isWanted(const TypeInformation& type) const;
    void deliver(std::shared_ptr<const BaseEvent> event);

    EngineOutput& output_;
    const boost::shared_ptr<EventMgr> manager_;
};

}  // namespace yvm::engine
