#pragma once

#include "connector/common/DeferredService.hpp"

#include <memory>

namespace yvm::JSClient {

class YVMAdapter;

/// The component that the framework creates when a client first touches a channel below `/yvm/`. Its
/// constructor is the module's start, its destructor the stop.
class YVMAdapterHolder final : public connector::common::DeferredService {
  public:
    /// Throws what the construction of the adapter and the opening of the message service throw.
    YVMAdapterHolder();
    ~YVMAdapterHolder() override;

  private:
    std::shared_ptr<YVMAdapter> adapter_;
};

}  // namespace yvm::JSClient
