#include "Greeting.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_IncompleteTest);

namespace plugintest {

class Half final : public Greeting {
  public:
    std::string greet() const override { return "go"; }
};

}  // namespace plugintest

CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_Half, plugintest::Half, plugintest::Greeting);
