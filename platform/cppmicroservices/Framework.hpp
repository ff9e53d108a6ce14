#pragma once

#include "cppmicroservices/Bundle.hpp"

#include <string>
#include <vector>

namespace cppmicroservices {

/// A component that waits for its trigger.
struct DeferredComponent {
    Bundle bundle;
    std::string implementationClass;
    /// Channels whose first message is to activate the component. A trailing `/*` stands for everything
    /// below.
    std::vector<std::string> channelPatterns;
};

/// The service registry and the bundles of one process, and itself the bundle of the host's own services.
///
/// Life: constructed and started by the host; bundles are installed and started through its context; stopped
/// by the host or the destructor. Not to be destroyed from within a listener or a component.
class Framework : public Bundle {
  public:
    Framework();
    ~Framework();
    Framework(const Framework&) = delete;
    Framework& operator=(const Framework&) = delete;

    /// Makes the framework's own context valid. It starts no bundle.
    void Start();

    /// Stops the bundles, last installed first, then drops the host's own services, last registered first,
    /// and makes every context invalid. Nothing happens if it is not started.
    void Stop();

    /// The deferred components of the bundles that are started, activated or not.
    ///
    /// Deferred is a component whose manifest entry has `yw.embeddedConnector.startTriggers` among its
    /// properties; `channelPatterns` is `messageServiceChannels` in there.
    std::vector<DeferredComponent> deferredComponents() const;

    /// Loads the component's library if need be, makes the component and registers its services, all on the
    /// calling thread. Nothing happens if the component stands; a concurrent call waits for the one that
    /// makes it. What the component's constructor throws leaves, and a later call tries again. Throws
    /// `std::runtime_error` if the bundle is not started or has no such component, and as `Bundle::Start`.
    void activate(const DeferredComponent& component);

  private:
    std::shared_ptr<class FrameworkPrivate> framework_;
};

}  // namespace cppmicroservices
