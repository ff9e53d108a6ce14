#pragma once

#include "cppmicroservices/ServiceInterface.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstance.hpp"

#include <memory>
#include <tuple>

namespace cppmicroservices::service::component::detail {

template <typename Implementation, typename ServiceTuple>
class ComponentInstanceImpl;

/// The component of a class that is constructed without arguments and provides the `Interfaces`.
template <typename Implementation, typename... Interfaces>
class ComponentInstanceImpl<Implementation, std::tuple<Interfaces...>> final : public ComponentInstance {
  public:
    void CreateInstance() override { implementation_ = std::make_shared<Implementation>(); }

    InterfaceMap GetInterfaceMap() const override {
        InterfaceMap interfaces;
        (interfaces.emplace(us_service_interface_iid<Interfaces>(),
                            std::shared_ptr<Interfaces>(implementation_)),
         ...);
        return interfaces;
    }

  private:
    std::shared_ptr<Implementation> implementation_;
};

}  // namespace cppmicroservices::service::component::detail

/// Exports the two functions by which the framework makes and deletes a component. `name` is the class with
/// `_` for each `::`; the interfaces follow the class. Stands at global scope of one source of the plug-in:
///
///     CPPMICROSERVICES_EXPORT_COMPONENT(a_b_Greeter, a::b::Greeter, a::Greeting);
#define CPPMICROSERVICES_EXPORT_COMPONENT(name, Class, ...)                                                  \
    extern "C" [[gnu::visibility(                                                                            \
        "default")]] cppmicroservices::service::component::detail::ComponentInstance* NewInstance_##name() { \
        return new cppmicroservices::service::component::detail::ComponentInstanceImpl<                      \
            Class, std::tuple<__VA_ARGS__>>();                                                               \
    }                                                                                                        \
    extern "C" [[gnu::visibility("default")]] void DeleteInstance_##name(                                    \
        cppmicroservices::service::component::detail::ComponentInstance* instance) {                         \
        delete instance;                                                                                     \
    }                                                                                                        \
    static_assert(true, "takes the semicolon")
