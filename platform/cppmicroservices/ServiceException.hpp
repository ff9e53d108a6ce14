#pragma once

#include <stdexcept>
#include <string>

namespace cppmicroservices {

/// A service was asked for or registered in a way that the framework refuses.
class [[gnu::visibility("default")]] ServiceException : public std::runtime_error {
  public:
    explicit ServiceException(const std::string& message);
    ~ServiceException() override;
};

}  // namespace cppmicroservices
