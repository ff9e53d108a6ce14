#pragma once

#include "cmddistributor/RunOptions.hpp"
#include "common/BaseRequest.hpp"
#include "foundation/yorlabdata/Array.hpp"
#include "foundation/yorlabjson/ToJsonMode.hpp"
#include "r24a0/deserializeRunOptions.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace yvm::JSClient::r24a0 {

/// Calls a named function:
/// `{"requestID":"1","function":"numpy.add","numOutputsExpected":1,"rhsArgs":["[1,2]","3"],"runOptions":{},
/// "ydaOutputFormat":"preferYDAShort"}`, of which `runOptions` and `ydaOutputFormat` may be left out.
///
/// Each element of `rhsArgs` is a string that holds the JSON text of one array, and not that array itself.
/// `ydaOutputFormat` is "preferYDAShort" or "alwaysYDALong", compared exactly.
///
/// Differs from the class of r22a0 in both of these.
class FevalRequest : public BaseRequest {
  public:
    /// Throws as the lookups of `BaseRequest`, `string_to_yorlabdata` and `deserializeRunOptions` do, and
    /// `std::runtime_error` "Invalid YDA output format". Of several faults the first in the order of the keys
    /// above is reported.
    FevalRequest(const BaseRequest& request,
                 const std::shared_ptr<EventManagerConnection>& eventManagerConnection,
                 PublishTextCallback publishTextCallback);

    const std::string& getFunction() const noexcept { return function_; }
    /// Truncated from a double and not checked: -1 has become the largest number.
    std::uint64_t getNumOutputsExpected() const noexcept { return numOutputsExpected_; }
    const std::vector<foundation::yorlabdata::Array>& getRhsArgs() const noexcept { return rhsArgs_; }
    const cmddistributor::RunOptions& getRunOptions() const noexcept { return runOptions_; }
    foundation::yorlabjson::ToJsonMode getYdaOutputFormat() const noexcept { return ydaOutputFormat_; }

  private:
    std::vector<foundation::yorlabdata::Array> readRhsArgs() const;
    foundation::yorlabjson::ToJsonMode readYdaOutputFormat() const;

    // In the order in which the keys are read.
    std::string function_;
    std::uint64_t numOutputsExpected_;
    std::vector<foundation::yorlabdata::Array> rhsArgs_;
    cmddistributor::RunOptions runOptions_;
    foundation::yorlabjson::ToJsonMode ydaOutputFormat_;
};

}  // namespace yvm::JSClient::r24a0
