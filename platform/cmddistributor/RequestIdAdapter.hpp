#pragma once

#include "foundation/msg_svc/exchange/IDType.hpp"

namespace cmddistributor {

/// Tells which command the calling thread is working for.
class RequestIdAdapter {
  public:
    /// The innermost command of this thread; the null identifier (0, 0) on a thread that runs none.
    foundation::msg_svc::exchange::IDType getRequestId() const noexcept;
};

/// Marks the calling thread as working for a command while the scope lasts. Scopes nest: a command
/// that runs at a pre-emption point above another hides it until it ends. Must be destroyed on the
/// thread that made it, in reverse order.
class RequestIdScope {
  public:
    explicit RequestIdScope(const foundation::msg_svc::exchange::IDType& id) noexcept;
    ~RequestIdScope();
    RequestIdScope(const RequestIdScope&) = delete;
    RequestIdScope& operator=(const RequestIdScope&) = delete;

  private:
    foundation::msg_svc::exchange::IDType outer_;
};

}  // namespace cmddistributor
