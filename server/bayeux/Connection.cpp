#include "server/bayeux/Connection.hpp"

namespace server::bayeux {

Connection::~Connection() = default;

void Connection::refuseFrame(FrameText reply, const Refusal&) {
    send(std::move(reply));
}

}  // namespace server::bayeux
