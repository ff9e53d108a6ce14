#include "Greeting.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

namespace plugintest {

class Lonely final : public Greeting {
  public:
    std::string greet() const override { return "anybody there?"; }
};

}  // namespace plugintest

CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_Lonely, plugintest::Lonely, plugintest::Greeting);
