#pragma once

#include "foundation/yorlabdata/Array.hpp"

#include <vector>

namespace cmddistributor {

/// The outputs of one command; an eval has none. Taken once.
class FEvalResult {
  public:
    FEvalResult() = default;
    explicit FEvalResult(std::vector<foundation::yorlabdata::Array> outputs);

    /// Moves the outputs out. Throws `std::runtime_error` "Cannot use FEvalResult results after
    /// move." the second time.
    std::vector<foundation::yorlabdata::Array> take();

  private:
    std::vector<foundation::yorlabdata::Array> outputs_;
    bool taken_ = false;
};

}  // namespace cmddistributor
