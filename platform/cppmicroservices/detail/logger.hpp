#pragma once

#include "foundation/log/basic_diagnostic_logger.hpp"

namespace cppmicroservices {

/// The logger `cppmicroservices::Framework` of this library.
foundation::log::diagnostic_logger& logger();

}  // namespace cppmicroservices
