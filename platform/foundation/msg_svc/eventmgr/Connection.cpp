#include "foundation/msg_svc/eventmgr/Connection.hpp"

#include <utility>

namespace foundation::msg_svc::eventmgr {

Connection::~Connection() = default;

ScopedConnection::ScopedConnection(std::unique_ptr<Connection> connection) noexcept
    : connection_(std::move(connection)) {}

void ScopedConnection::assign(std::unique_ptr<Connection> connection) noexcept {
    connection_ = std::move(connection);
}

}  // namespace foundation::msg_svc::eventmgr
