#include "cppmicroservices/ServiceException.hpp"

namespace cppmicroservices {

ServiceException::ServiceException(const std::string& message) : std::runtime_error(message) {}

ServiceException::~ServiceException() = default;

}  // namespace cppmicroservices
