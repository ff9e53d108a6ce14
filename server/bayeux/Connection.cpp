#include "server/bayeux/Connection.hpp"

namespace server::bayeux {

Connection::~Connection() = default;

}  // namespace server::bayeux
