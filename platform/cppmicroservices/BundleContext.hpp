#pragma once

#include "cppmicroservices/LDAPFilter.hpp"
#include "cppmicroservices/ListenerToken.hpp"
#include "cppmicroservices/ServiceEvent.hpp"
#include "cppmicroservices/ServiceReference.hpp"
#include "cppmicroservices/ServiceRegistration.hpp"

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;
class BundleContextPrivate;

/// The implementation of a service by interface id. Each pointer must point to the interface named by its
/// key.
using InterfaceMap = std::map<std::string, std::shared_ptr<void>>;

/// A bundle's door to the framework.
///
/// Valid from the start of its bundle until the bundle has stopped. Every operation of an invalid context,
/// and of a default-constructed one, throws `std::runtime_error` "The bundle context is no longer valid".
/// Safe for use from any thread; no operation calls back with a lock held.
class BundleContext {
  public:
    BundleContext() = default;
    /// The framework makes these.
    explicit BundleContext(std::shared_ptr<BundleContextPrivate> d) : d_(std::move(d)) {}

    explicit operator bool() const noexcept;

    /// The bundle whose context this is.
    Bundle GetBundle() const;

    /// Makes the bundle of a plug-in known, by its manifest alone: nothing is loaded. `file` is the plug-in,
    /// or its path without the ending ".so". A file that is installed already gives its bundle again. Throws
    /// `std::runtime_error` that names the file and tells what is wrong with it.
    std::vector<Bundle> InstallBundles(const std::filesystem::path& file);

    /// The bundles that were installed, in the order of their installation.
    std::vector<Bundle> GetBundles() const;

    /// Registers a listener for the events of the services that match the filter; an empty one matches all.
    ///
    /// Listeners are called one after the other on the thread that registers, modifies or unregisters a
    /// service, with no lock held. What a listener throws is logged and stops neither the other listeners
    /// nor the registrar. Throws `std::invalid_argument` for a bad filter.
    [[nodiscard]] ListenerToken AddServiceListener(ServiceListener listener, const std::string& filter = {});

    /// Removes the listener; nothing happens for a token that names none. Once it has returned, no call of
    /// the listener starts, and none runs on another thread: it waits for these, except when it is called
    /// from within a service listener, which could never end if two of them waited for each other.
    void RemoveListener(ListenerToken&& token);

    /// The services with that interface that match the filter, in the order of their registration. An empty
    /// `interfaceId` asks for all services. Throws `std::invalid_argument` for a bad filter.
    std::vector<ServiceReferenceU> GetServiceReferences(const std::string& interfaceId,
                                                        const std::string& filter = {}) const;

    /// The same with the interface's type. Throws `ServiceException` if the type has no interface id.
    template <typename Interface>
    std::vector<ServiceReference<Interface>> GetServiceReferences(const std::string& filter = {}) const {
        const std::string& id = us_service_interface_iid<Interface>();
        detail::requireInterfaceId(id);
        const auto found = GetServiceReferences(id, filter);
        return {found.begin(), found.end()};
    }

    template <typename Interface>
    std::vector<ServiceReference<Interface>> GetServiceReferences(const LDAPFilter& filter) const {
        return GetServiceReferences<Interface>(filter.ToString());
    }

    /// The first of `GetServiceReferences`, or an invalid reference.
    template <typename Interface>
    ServiceReference<Interface> GetServiceReference(const LDAPFilter& filter = {}) const {
        const auto found = GetServiceReferences<Interface>(filter);
        return found.empty() ? ServiceReference<Interface>() : found.front();
    }

    /// The service, or an empty pointer if it is gone; see `ServiceObjectsBase::GetService`.
    std::shared_ptr<void> GetService(const ServiceReferenceBase& reference) const;

    template <typename Interface>
    std::shared_ptr<Interface> GetService(const ServiceReference<Interface>& reference) const {
        return std::static_pointer_cast<Interface>(
            GetService(static_cast<const ServiceReferenceBase&>(reference)));
    }

    /// Makes a service visible to lookups, then tells listeners REGISTERED, then returns. Throws
    /// `ServiceException` if there is no implementation, or an empty one.
    ServiceRegistration RegisterService(InterfaceMap implementation, ServiceProperties properties = {});

    template <typename Interface>
    ServiceRegistration RegisterService(std::shared_ptr<Interface> implementation,
                                        ServiceProperties properties = {}) {
        InterfaceMap interfaces;
        interfaces.emplace(us_service_interface_iid<Interface>(), std::move(implementation));
        return RegisterService(std::move(interfaces), std::move(properties));
    }

    bool operator==(const BundleContext& other) const noexcept { return d_ == other.d_; }

  private:
    friend class ServiceObjectsBase;
    friend BundleContextPrivate* shareBundleContext(const BundleContext& context);

    std::shared_ptr<BundleContextPrivate> d_;
};

/// The pointer that a bundle's `_us_set_bundle_context_instance_...` function takes. What it points to stays
/// for the life of the process, since a plug-in is never unloaded and may ask at any time. A test that links
/// a module's sources without loading the module hands it over in the framework's stead.
BundleContextPrivate* shareBundleContext(const BundleContext& context);

/// The context behind such a pointer; an invalid one for null.
BundleContext bundleContextOf(BundleContextPrivate* shared);

}  // namespace cppmicroservices
