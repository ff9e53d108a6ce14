#pragma once

#include "engine/test/EngineFixture.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace yvm::engine::test {

/// What a handler has noted of its events, in order. Safe from any thread.
class EventNotes {
  public:
    void add(std::string note);
    std::vector<std::string> all() const;
    /// All so far, separated by blanks.
    std::string text() const;
    std::size_t count(const std::string& note) const;
    /// Waits until so many have come. Fails the test at the deadline.
    void waitForCount(std::size_t count) const;
    /// Waits until `note` has come as often as said. Fails the test at the deadline.
    void waitFor(const std::string& note, std::size_t times = 1) const;
    /// Waits until `text()` contains `part`. Fails the test at the deadline.
    void waitForText(const std::string& part) const;

  private:
    std::string textLocked() const;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> notes_;  // guarded by mutex_
};

/// Subscribed while it lives to the engine's events of the class `Event`, of which it notes what `describe`
/// makes of them, on the thread that fires them.
template <typename Event>
class EventRecorder {
  public:
    using Describe = std::function<std::string(const Event&)>;

    explicit EventRecorder(Describe describe) {
        const auto& tag = foundation::msg_svc::eventmgr::DerivedTypeInformation<Event>::shared().name();
        connection_ =
            EngineTest::engine()->getEventMgr()->subscribe(handler(std::move(describe)), &tag, &tag + 1);
    }

    const EventNotes& operator*() const { return *notes_; }
    const EventNotes* operator->() const { return notes_.get(); }

  private:
    foundation::msg_svc::eventmgr::EventHandler handler(Describe describe) const {
        return [notes = notes_,
                describe = std::move(describe)](const foundation::msg_svc::eventmgr::BaseEvent& event) {
            notes->add(describe(dynamic_cast<const Event&>(event)));
        };
    }

    // Shared with the handler, which may be running when the connection ends.
    const std::shared_ptr<EventNotes> notes_ = std::make_shared<EventNotes>();
    std::unique_ptr<foundation::msg_svc::eventmgr::Connection> connection_;
};

/// Waits until the engine rests: a command is answered before the event that tells of the idle prompt.
void waitUntilIdle();

}  // namespace yvm::engine::test
