#include "cppmicroservices/service/component/detail/ComponentInstance.hpp"

namespace cppmicroservices::service::component::detail {

ComponentInstance::~ComponentInstance() = default;

}  // namespace cppmicroservices::service::component::detail
