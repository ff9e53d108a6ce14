#pragma once

#include <boost/thread/future.hpp>

#include <atomic>
#include <exception>
#include <functional>

namespace ylutil::debugger {

/// Carries the outcome of one operation on breakpoints to its callback, exactly once.
///
/// The first of `succeed` and `fail` counts; later calls do nothing. One that dies unsettled fails its
/// operation, so that no client waits for ever. The callback runs on the calling thread, inside the call, and
/// what it throws is dropped. Call with no lock held. Safe from any thread.
class [[gnu::visibility("default")]] OperationCompletion {
  public:
    /// Is called with a future that is ready.
    using Callback = std::function<void(boost::shared_future<void>)>;

    explicit OperationCompletion(Callback callback);
    ~OperationCompletion();
    OperationCompletion(const OperationCompletion&) = delete;
    OperationCompletion& operator=(const OperationCompletion&) = delete;

    void succeed() noexcept;
    /// A type that derives from `std::exception` directly reaches the callback as it is; of another the type
    /// may be lost on the way, never the text. `error` is not null.
    void fail(const std::exception_ptr& error) noexcept;

  private:
    /// Calls back, the first time, with the future of a promise that `fulfil` has fulfilled.
    template <typename Fulfil>
    void settle(Fulfil fulfil) noexcept;

    std::atomic<bool> settled_{false};
    const Callback callback_;
};

}  // namespace ylutil::debugger
