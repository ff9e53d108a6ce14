#include "engine/test/EventRecorder.hpp"

#include "ylutil/prompt/PromptEvent.hpp"

#include <algorithm>
#include <utility>

namespace yvm::engine::test {

void EventNotes::add(std::string note) {
    {
        const std::lock_guard lock(mutex_);
        notes_.push_back(std::move(note));
    }
    changed_.notify_all();
}

std::vector<std::string> EventNotes::all() const {
    const std::lock_guard lock(mutex_);
    return notes_;
}

std::string EventNotes::text() const {
    const std::lock_guard lock(mutex_);
    return textLocked();
}

std::size_t EventNotes::count(const std::string& note) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(notes_, note));
}

void EventNotes::waitForCount(std::size_t count) const {
    std::unique_lock lock(mutex_);
    const bool came = changed_.wait_for(lock, deadline, [&] { return notes_.size() >= count; });
    ASSERT_TRUE(came) << "only: " << textLocked();
}

void EventNotes::waitFor(const std::string& note, std::size_t times) const {
    std::unique_lock lock(mutex_);
    const bool found = changed_.wait_for(
        lock, deadline, [&] { return static_cast<std::size_t>(std::ranges::count(notes_, note)) >= times; });
    ASSERT_TRUE(found) << "no \"" << note << "\" in: " << textLocked();
}

void EventNotes::waitForText(const std::string& part) const {
    std::unique_lock lock(mutex_);
    const bool found =
        changed_.wait_for(lock, deadline, [&] { return textLocked().find(part) != std::string::npos; });
    ASSERT_TRUE(found) << "no \"" << part << "\" in: " << textLocked();
}

std::string EventNotes::textLocked() const {
    std::string text;
    for (const auto& note : notes_) {
        text += (text.empty() ? "" : " ") + note;
    }
    return text;
}

void waitUntilIdle() {
    using ylutil::prompt::PromptEvent;
    const EventRecorder<PromptEvent> prompts(
        [](const PromptEvent& event) { return std::string(toString(event.state())); });
    EngineTest::eval("1;");
    // An idle before it may be that of the command before.
    prompts->waitForText("busy idle");
}

}  // namespace yvm::engine::test
