#pragma once

#include "cmddistributor/FEvalResult.hpp"
#include "cmddistributor/RuntimeException.hpp"

#include <boost/thread/future.hpp>

#include <exception>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

namespace cmddistributor {

/// Carries the outcome of one submission to its completion, exactly once.
///
/// The first of `succeed` and `fail` counts; later calls do nothing. A delegate that dies unsettled
/// fails its submission, so that no client waits for ever. The completion runs on the calling
/// thread, inside the call; what it throws is logged and goes no further. Call with no lock held.
/// Not for two threads at once.
class [[gnu::visibility("default")]] PromiseDelegate {
  public:
    virtual ~PromiseDelegate();
    PromiseDelegate(const PromiseDelegate&) = delete;
    PromiseDelegate& operator=(const PromiseDelegate&) = delete;

    void succeed(FEvalResult result);
    void fail(const RuntimeException& error);
    /// Keeps the dynamic type of a `RuntimeException`; of anything else the type may be lost on the
    /// way through the future, never the text.
    void fail(std::exception_ptr error);

    /// Forgets the completion: it never runs, not even when the delegate dies.
    void dismiss() noexcept;

    /// Fulfilled after the completion has run.
    boost::future<void> getDone() { return done_.get_future(); }

  protected:
    PromiseDelegate() = default;

    /// Fails the submission if it is unsettled. Must be called by the destructor of the most derived
    /// class, as the completion lives there.
    void abandon() noexcept;

  private:
    virtual void succeedImpl(FEvalResult& result) = 0;
    virtual void failImpl(const RuntimeException& error) = 0;
    virtual void failImpl(const std::exception_ptr& error) = 0;

    /// Runs `deliver` the first time, then fulfils `done_`.
    template <typename Deliver>
    void settle(Deliver deliver) noexcept;

    bool settled_ = false;
    boost::promise<void> done_;
};

/// Joins a completion that takes a `boost::future<T>` to the outcome. T is void (the outputs are
/// dropped) or a vector of arrays.
template <typename T>
class PromiseDelegateT final : public PromiseDelegate {
  public:
    using Completion = std::function<void(boost::future<T>)>;

    explicit PromiseDelegateT(Completion completion) : completion_(std::move(completion)) {}
    ~PromiseDelegateT() override { abandon(); }

  private:
    void succeedImpl(FEvalResult& result) override {
        boost::promise<T> promise;
        if constexpr (std::is_void_v<T>) {
            promise.set_value();
        } else {
            promise.set_value(result.take());
        }
        completion_(promise.get_future());
    }

    void failImpl(const RuntimeException& error) override {
        boost::promise<T> promise;
        // By its static type: this is the door through which nothing is sliced.
        promise.set_exception(error);
        completion_(promise.get_future());
    }

    void failImpl(const std::exception_ptr& error) override {
        boost::promise<T> promise;
        try {
            std::rethrow_exception(error);
        } catch (...) {
            promise.set_exception(boost::current_exception());
        }
        completion_(promise.get_future());
    }

    Completion completion_;
};

/// The identifier of the error that a delegate which dies unsettled delivers.
inline constexpr const char* abandonedIdentifier = "yvm:abandoned";

}  // namespace cmddistributor
