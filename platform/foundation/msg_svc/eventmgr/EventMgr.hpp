#pragma once

#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "foundation/msg_svc/eventmgr/Connection.hpp"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace foundation::msg_svc::eventmgr {

using EventHandler = boost::function<void(const BaseEvent&)>;

enum class DeliveryMode {
    queued = 0,       ///< taken over now, dispatched later on the manager's own thread, in order
    synchronous = 1,  ///< dispatched on the calling thread; `deliver` returns after the last handler
};

/// Finds the handler that the command `command` has for events of the name `eventName`; an empty
/// function when it has none.
using CommandHandlerLookup =
    std::function<EventHandler(const exchange::IDType& command, const std::u16string& eventName)>;

/// Brings events to those who subscribed to one of their tags.
///
/// An event reaches a subscription if any tag of the subscription is among the event's static tags
/// (its class and bases) or its user tags; a subscription with several matching tags gets it once,
/// and subscriptions are served in the order in which they were made.
///
/// All operations are safe from any thread, also from inside a handler. A dispatch holds no lock
/// while handlers run, so handlers may subscribe, disconnect and deliver; handlers of one
/// subscription may run on several threads at once when events are delivered from several. A
/// handler's exception goes to `processExceptionFromEventHandler` and never reaches who delivers.
class [[gnu::visibility("default")]] EventMgr {
  public:
    /// A manager whose own thread starts with the first queued event. Its destructor dispatches what
    /// is queued and joins that thread; from a handler on that thread it does not wait for itself.
    static boost::shared_ptr<EventMgr> create();

    virtual ~EventMgr();

    /// Subscribes `handler` to the `std::u16string` tags in [firstTag, lastTag). The result may be
    /// null where an implementation refuses; the one of `create` never does.
    template <typename TagIterator>
    [[nodiscard]] std::unique_ptr<Connection> subscribe(EventHandler handler, TagIterator firstTag,
                                                        TagIterator lastTag) {
        return subscribeGuarded(guard(std::move(handler)), std::vector<std::u16string>(firstTag, lastTag));
    }

    /// Hands a shared, constant event to its subscribers. `event` must not be null.
    virtual void deliver(std::shared_ptr<const BaseEvent> event, DeliveryMode mode) = 0;

    /// How many live subscriptions name `tag`, so that an event nobody wants need not be made.
    virtual std::size_t subscriptionCount(const std::u16string& tag) const = 0;

    /// Installs the lookup that a dispatch asks first, for an event that belongs to a
    /// command: by the event's static tags, derived to base, until a handler is found. That handler
    /// is called, then the general subscribers as ever. An empty function removes the lookup.
    virtual void setCommandHandlerLookup(CommandHandlerLookup lookup) = 0;

    /// Called inside the catch block of a failed handler: logs the exception with the event's name. That must
    /// do to find the handler: no stack trace of its subscription is kept, which each would have to pay for.
    virtual void processExceptionFromEventHandler(const BaseEvent& event) noexcept;

  protected:
    EventMgr() = default;
    EventMgr(const EventMgr&) = delete;
    EventMgr& operator=(const EventMgr&) = delete;

    /// Wraps `handler` so that its exceptions end in `processExceptionFromEventHandler`, the error
    /// of an empty handler among them. The manager must outlive the calls of the result.
    EventHandler guard(EventHandler handler);

  private:
    /// `handler` never throws.
    virtual std::unique_ptr<Connection> subscribeGuarded(EventHandler handler,
                                                         std::vector<std::u16string> tags) = 0;
};

}  // namespace foundation::msg_svc::eventmgr
