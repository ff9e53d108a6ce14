#include "engine/detail/InputRequests.hpp"

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace yvm::engine {

InputRequests::Wait::Wait(InputRequests& requests, std::u16string prompt, bool password)
    : requests_(requests),
      number_([&] {
          const std::lock_guard lock(requests.mutex_);
          requests.entries_.emplace(++requests.last_, Entry{std::move(prompt), password, std::nullopt});
          return requests.last_;
      }()),
      id_(std::to_string(number_)) {}

InputRequests::Wait::~Wait() {
    const std::lock_guard lock(requests_.mutex_);
    requests_.entries_.erase(number_);
}

std::optional<InputRequests::Answer> InputRequests::Wait::answer() const {
    const std::lock_guard lock(requests_.mutex_);
    return requests_.entries_.at(number_).answer;
}

std::optional<InputRequests::Answer> InputRequests::Wait::awaitAnswer() const {
    std::unique_lock lock(requests_.mutex_);
    const Entry& entry = requests_.entries_.at(number_);
    requests_.changed_.wait(lock, [&] { return entry.answer || requests_.closed_; });
    return entry.answer;
}

void InputRequests::answer(const std::string& id, Answer answer) {
    {
        const std::lock_guard lock(mutex_);
        const std::uint64_t number = std::strtoull(id.c_str(), nullptr, 10);
        if (number == 0 || number > last_ || std::to_string(number) != id) {
            throw std::invalid_argument("there is no request for input \"" + id + "\"");
        }
        const auto entry = entries_.find(number);
        if (entry == entries_.end() || entry->second.answer) {
            throw std::invalid_argument("the request for input \"" + id +
                                        "\" waits no more: it has been answered, or its command has ended");
        }
        entry->second.answer = std::move(answer);
    }
    changed_.notify_all();
    answered_();
}

void InputRequests::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

std::vector<InputRequests::Request> InputRequests::open() const {
    std::vector<Request> open;
    const std::lock_guard lock(mutex_);
    for (const auto& [number, entry] : entries_) {
        if (!entry.answer) {
            open.push_back({std::to_string(number), entry.prompt, entry.password});
        }
    }
    return open;
}

}  // namespace yvm::engine
