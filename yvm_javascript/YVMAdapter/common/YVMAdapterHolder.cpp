#include "common/YVMAdapterHolder.hpp"

#include "common/YVMAdapter.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

namespace yvm::JSClient {

YVMAdapterHolder::YVMAdapterHolder() : adapter_(std::make_shared<YVMAdapter>()) {
    adapter_->initializeMessageService();
}

YVMAdapterHolder::~YVMAdapterHolder() = default;

}  // namespace yvm::JSClient

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_YVMAdapter);
CPPMICROSERVICES_EXPORT_COMPONENT(yvm_JSClient_YVMAdapterHolder, yvm::JSClient::YVMAdapterHolder,
                                  connector::common::DeferredService);
