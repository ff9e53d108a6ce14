#include "connector/message_service/detail/logger.hpp"

namespace connector::message_service::detail {

const foundation::log::diagnostic_logger& logger() {
    static const auto* const instance = new foundation::log::diagnostic_logger("connector::message_service");
    return *instance;
}

}  // namespace connector::message_service::detail
