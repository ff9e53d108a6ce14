#pragma once

#include "foundation/log/basic_diagnostic_logger.hpp"

namespace connector::message_service::detail {

/// The logger `connector::message_service`.
const foundation::log::diagnostic_logger& logger();

}  // namespace connector::message_service::detail
