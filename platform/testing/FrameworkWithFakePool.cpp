#include "testing/FrameworkWithFakePool.hpp"

#include "cppmicroservices/BundleContext.hpp"
#include "cppmicroservices/Framework.hpp"
#include "foundation/cppmicroservices/framework.hpp"

namespace platform_testing {

using foundation::concurrent::threadpool::ThreadPool;

FrameworkWithFakePool::FrameworkWithFakePool() : framework_(std::make_shared<cppmicroservices::Framework>()) {
    framework_->Start();
    framework_->GetBundleContext().RegisterService<ThreadPool>(pool_);
    foundation::cppmicroservices::setFramework(framework_);
}

FrameworkWithFakePool::~FrameworkWithFakePool() {
    foundation::cppmicroservices::setFramework(nullptr);
    framework_->Stop();
}

}  // namespace platform_testing
