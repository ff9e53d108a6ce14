#include "cppmicroservices/detail/Component.hpp"

#include <stdexcept>
#include <string>

namespace cppmicroservices::detail {
namespace {

/// `a::b::C` as it stands in the names of a plug-in's exports: `a_b_C`.
std::string mangled(std::string name) {
    for (auto at = name.find("::"); at != std::string::npos; at = name.find("::", at)) {
        name.replace(at, 2, 1, '_');
    }
    return name;
}

}  // namespace

void Component::activate(const SharedLibrary& library, BundleContext context) {
    const std::string name = mangled(description_.implementationClass);
    auto* const create = library.function<Instance*()>("NewInstance_" + name);
    auto* const destroy = library.function<void(Instance*)>("DeleteInstance_" + name);
    std::unique_ptr<Instance, std::function<void(Instance*)>> instance(create(), destroy);
    instance->CreateInstance();
    if (!description_.interfaces.empty()) {
        InterfaceMap provided = instance->GetInterfaceMap();
        InterfaceMap services;
        for (const auto& interfaceId : description_.interfaces) {
            auto service = provided.extract(interfaceId);
            if (service.empty()) {
                throw std::runtime_error("the component '" + description_.implementationClass +
                                         "' does not provide the interface '" + interfaceId +
                                         "' that its manifest names");
            }
            services.insert(std::move(service));
        }
        registration_ = context.RegisterService(std::move(services), description_.properties);
    }
    instance_ = std::move(instance);
}

void Component::deactivate() {
    if (registration_) {
        registration_->Unregister();
        registration_.reset();
    }
    instance_.reset();
}

}  // namespace cppmicroservices::detail
