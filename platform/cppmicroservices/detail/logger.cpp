#include "cppmicroservices/detail/logger.hpp"

namespace cppmicroservices {

foundation::log::diagnostic_logger& logger() {
    static auto* const instance = new foundation::log::diagnostic_logger("cppmicroservices::Framework");
    return *instance;
}

}  // namespace cppmicroservices
