#pragma once

#include <functional>
#include <utility>

namespace foundation::core::util {

/// Runs a function once, at the latest when it is destroyed.
///
/// - Destruction runs the function if it is still held and swallows whatever it throws.
/// - `run()` runs it early and lets its exception out; the guard is empty afterwards, also when the
///   function throws.
/// - `dismiss()` drops the function unrun.
///
/// Move-only; a moved-from guard is empty. Not safe for use from two threads at once.
class scope_guard {
  public:
    scope_guard() noexcept = default;

    explicit scope_guard(std::function<void()> function) : function_(std::move(function)) {}

    scope_guard(scope_guard&& other) noexcept : function_(std::exchange(other.function_, nullptr)) {}

    /// Runs what this guard held before it takes over the other's function.
    scope_guard& operator=(scope_guard&& other) noexcept {
        if (this != &other) {
            runSwallowing();
            function_ = std::exchange(other.function_, nullptr);
        }
        return *this;
    }

    scope_guard(const scope_guard&) = delete;
    scope_guard& operator=(const scope_guard&) = delete;

    ~scope_guard() { runSwallowing(); }

    /// Runs the function now, if one is held.
    void run() {
        // Emptied before the call: a function that throws must not run a second time at destruction.
        if (const auto function = std::exchange(function_, nullptr)) {
            function();
        }
    }

    void dismiss() noexcept { function_ = nullptr; }

    /// Whether a function is still held.
    explicit operator bool() const noexcept { return static_cast<bool>(function_); }

  private:
    void runSwallowing() noexcept {
        try {
            run();
        } catch (...) {
            // A guard stands for clean-up that has nobody to report to.
        }
    }

    std::function<void()> function_;
};

}  // namespace foundation::core::util
