#pragma once

#include "cmddistributor/RunOptions.hpp"
#include "common/BaseRequest.hpp"
#include "foundation/yorlabdata/Array.hpp"
#include "r22a0/deserializeRunOptions.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace yvm::JSClient::r22a0 {

/// Calls a named function:
/// `{"requestID":"1","function":"numpy.add","numOutputsExpected":1,"rhsArgs":[[1,2],3],"runOptions":{}}`, of
/// which `runOptions` may be left out.
///
/// Differs from the class of r24a0: each element of `rhsArgs` is one array itself, so that a string is a text
/// argument, and the form of the outputs cannot be chosen.
class FevalRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest`, `json_to_yorlabdata` and `deserializeRunOptions` do. Of
    /// several faults the first in the order of the keys above is reported.
    FevalRequest(const BaseRequest& request,
                 const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                 PublishTextCallback publishTextCallback);

    const std::string& getFunction() const noexcept { return function_; }
    /// Truncated from a double and not checked: -1 has become the largest number.
    std::uint64_t getNumOutputsExpected() const noexcept { return numOutputsExpected_; }
    const std::vector<foundation::yorlabdata::Array>& getRhsArgs() const noexcept { return rhsArgs_; }
    const cmddistributor::RunOptions& getRunOptions() const noexcept { return runOptions_; }

  private:
    std::vector<foundation::yorlabdata::Array> readRhsArgs() const;

    // In the order in which the keys are read.
    std::string function_;
    std::uint64_t numOutputsExpected_;
    std::vector<foundation::yorlabdata::Array> rhsArgs_;
    cmddistributor::RunOptions runOptions_;
};

}  // namespace yvm::JSClient::r22a0
