#pragma once

#include "cppmicroservices/BundleContext.hpp"

namespace cppmicroservices::service::component::detail {

/// How the framework handles a component whose class it does not know. The plug-in's `NewInstance_<class>`
/// makes one and its `DeleteInstance_<class>` deletes it, which drops the implementation.
class [[gnu::visibility("default")]] ComponentInstance {
  public:
    virtual ~ComponentInstance();

    /// Makes the implementation. Lets out what its constructor throws; then there is no implementation.
    virtual void CreateInstance() = 0;

    /// The interfaces that the component provides, each with the implementation seen as that interface.
    virtual InterfaceMap GetInterfaceMap() const = 0;

  protected:
    ComponentInstance() = default;
    ComponentInstance(const ComponentInstance&) = delete;
    ComponentInstance& operator=(const ComponentInstance&) = delete;
};

}  // namespace cppmicroservices::service::component::detail
