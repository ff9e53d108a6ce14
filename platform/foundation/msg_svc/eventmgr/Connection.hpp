#pragma once

#include <memory>

namespace foundation::msg_svc::eventmgr {

/// One subscription to an event manager. Destroying it ends it; it may outlive the manager.
///
/// Ending never waits for a handler that is running: callers do it with locks held that the handler
/// may want. No handler call begins after it has ended, save one that was about to begin on another
/// thread.
class [[gnu::visibility("default")]] Connection {
  public:
    virtual ~Connection();

    /// Ends the subscription. Harmless when repeated.
    virtual void disconnect() noexcept = 0;

  protected:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
};

/// Holds a connection, or none, and ends it when destroyed.
class ScopedConnection {
  public:
    ScopedConnection() noexcept = default;
    explicit ScopedConnection(std::unique_ptr<Connection> connection) noexcept;
    ScopedConnection(ScopedConnection&&) noexcept = default;
    ScopedConnection& operator=(ScopedConnection&&) noexcept = default;

    /// Holds `connection` (null for none) from now on; the one held before ends.
    void assign(std::unique_ptr<Connection> connection) noexcept;

    bool isConnected() const noexcept { return connection_ != nullptr; }

  private:
    std::unique_ptr<Connection> connection_;
};

}  // namespace foundation::msg_svc::eventmgr
