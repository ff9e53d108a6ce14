#pragma once

#include "testing/FakeThreadPool.hpp"

#include <memory>

namespace cppmicroservices {
class Framework;
}  // namespace cppmicroservices

namespace platform_testing {

/// The service framework of this process for as long as it lives, with a fake thread pool as its only
/// service. One at a time.
class FrameworkWithFakePool {
  public:
    FrameworkWithFakePool();
    ~FrameworkWithFakePool();
    FrameworkWithFakePool(const FrameworkWithFakePool&) = delete;
    FrameworkWithFakePool& operator=(const FrameworkWithFakePool&) = delete;

    cppmicroservices::Framework& framework() { return *framework_; }
    FakeThreadPool& pool() { return *pool_; }

  private:
    const std::shared_ptr<cppmicroservices::Framework> framework_;
    const std::shared_ptr<FakeThreadPool> pool_ = std::make_shared<FakeThreadPool>();
};

}  // namespace platform_testing
