#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace yvm::engine {

/// The lines that commands wait for. The first answer to a request counts.
///
/// Safe from any thread. The mutex is a leaf, and may be taken with the GIL held.
class InputRequests {
  public:
    /// Empty: the end of the input.
    using Answer = std::optional<std::u16string>;

    struct Request {
        std::string id;
        std::u16string prompt;
        bool password = false;
    };

    /// `answered` is called after each answer, on the thread that gives it.
    explicit InputRequests(std::function<void()> answered) : answered_(std::move(answered)) {}

    /// A request that can be answered while this object lives.
    class Wait {
      public:
        Wait(InputRequests& requests, std::u16string prompt, bool password);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

        const std::string& id() const noexcept { return id_; }
        /// Empty while there is none.
        std::optional<Answer> answer() const;
        /// Blocks until there is one. Empty when none will come, since `close` was called.
        std::optional<Answer> awaitAnswer() const;

      private:
        InputRequests& requests_;
        const std::uint64_t number_;
        const std::string id_;
    };

    /// Throws `std::invalid_argument` when no such request waits for an answer.
    void answer(const std::string& id, Answer answer);

    /// Nobody will answer any more: ends all waits, also those that begin later.
    void close();

    /// Those that wait for an answer, the oldest first.
    std::vector<Request> open() const;

  private:
    struct Entry {
        std::u16string prompt;
        bool password = false;
        std::optional<Answer> answer;
    };

    const std::function<void()> answered_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool closed_ = false;
    std::uint64_t last_ = 0;
    std::map<std::uint64_t, Entry> entries_;
};

}  // namespace yvm::engine
