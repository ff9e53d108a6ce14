#pragma once

#include "yvm/YVM.hpp"

#include <memory>

namespace yvm {

/// Where code that runs inside an engine finds that engine.
class Factory {
  public:
    /// The engine of this process; empty when there is none.
    static std::shared_ptr<YVM> getCurrentLocalYVM();

    /// Called by the engine when it is up, and with an empty pointer when it goes. Only a weak
    /// reference is kept.
    static void setCurrentLocalYVM(const std::shared_ptr<YVM>& engine);
};

}  // namespace yvm
