#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace connector {

namespace detail {

enum class FutureStatus { waiting = 0, value = 1, exception = 2, cancelled = 3 };

/// What a promise and its future share. All members are guarded by `mutex`.
template <typename T>
struct FutureState {
    std::mutex mutex;
    std::condition_variable changed;
    FutureStatus status = FutureStatus::waiting;
    std::optional<T> value;
    std::exception_ptr exception;
    bool taken = false;
};

/// Stands in for the value of a future of nothing.
struct Nothing {};

template <typename T>
using Stored = std::conditional_t<std::is_void_v<T>, Nothing, T>;

}  // namespace detail

/// The receiving end of one value that another thread delivers.
///
/// Move-only. `get()` blocks without a deadline and may be called once. Dropping a future neither
/// blocks nor cancels.
template <typename T>
class Future {
  public:
    Future() noexcept = default;
    explicit Future(std::shared_ptr<detail::FutureState<detail::Stored<T>>> state) noexcept
        : state_(std::move(state)) {}
    Future(Future&&) noexcept = default;
    Future& operator=(Future&&) noexcept = default;
    Future(const Future&) = delete;
    Future& operator=(const Future&) = delete;

    bool valid() const noexcept { return state_ != nullptr; }

    /// Waits and returns the value, or rethrows the exception that was delivered.
    ///
    /// Throws `std::runtime_error` when there is no shared state, when the value was taken before,
    /// when the future was cancelled, or when the state is unknown.
    T get() {
        if (!state_) {
            throw std::runtime_error("Future state isn't valid!");
        }
        std::unique_lock lock(state_->mutex);
        if (state_->taken) {
            throw std::runtime_error("Future already returned it's value or has an associated continuation.");
        }
        state_->changed.wait(lock, [this] { return state_->status != detail::FutureStatus::waiting; });
        state_->taken = true;
        switch (state_->status) {
            case detail::FutureStatus::cancelled:
                throw std::runtime_error("Future has been cancelled.");
            case detail::FutureStatus::exception:
                std::rethrow_exception(state_->exception);
            case detail::FutureStatus::value:
                if constexpr (std::is_void_v<T>) {
                    return;
                } else {
                    return std::move(*state_->value);
                }
            case detail::FutureStatus::waiting:
                break;
        }
        throw std::runtime_error("Invalid Future state reached.");
    }

  private:
    std::shared_ptr<detail::FutureState<detail::Stored<T>>> state_;
};

/// The delivering end. The first of `setValue`, `setException` and `cancel` counts; later ones do
/// nothing. A promise that dies without any of them cancels, so that no waiter waits for ever.
template <typename T>
class Promise {
  public:
    using Stored = detail::Stored<T>;

    Promise() : state_(std::make_shared<detail::FutureState<Stored>>()) {}
    Promise(Promise&&) noexcept = default;
    Promise& operator=(Promise&& other) noexcept {
        if (this != &other) {
            cancel();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;
    ~Promise() { cancel(); }

    /// All futures share one state, of which one `get()` takes the value.
    Future<T> getFuture() const { return Future<T>(state_); }

    void setValue(Stored value = Stored{}) {
        settle(detail::FutureStatus::value, [&](auto& state) { state.value.emplace(std::move(value)); });
    }

    void setException(std::exception_ptr exception) {
        settle(detail::FutureStatus::exception, [&](auto& state) { state.exception = std::move(exception); });
    }

    void cancel() {
        settle(detail::FutureStatus::cancelled, [](auto&) {});
    }

  private:
    template <typename Fill>
    void settle(detail::FutureStatus status, Fill fill) {
        // The copy keeps the state alive: the waiter may drop its own as soon as it is woken.
        const auto state = state_;
        if (!state) {
            return;
        }
        const std::lock_guard lock(state->mutex);
        if (state->status == detail::FutureStatus::waiting) {
            fill(*state);
            state->status = status;
            state->changed.notify_all();
        }
    }

    std::shared_ptr<detail::FutureState<Stored>> state_;
};

/// A future that is ready at once.
template <typename T>
Future<T> makeReadyFuture(detail::Stored<T> value = {}) {
    Promise<T> promise;
    promise.setValue(std::move(value));
    return promise.getFuture();
}

/// A future that holds an exception.
template <typename T>
Future<T> makeFailedFuture(std::exception_ptr exception) {
    Promise<T> promise;
    promise.setException(std::move(exception));
    return promise.getFuture();
}

}  // namespace connector
