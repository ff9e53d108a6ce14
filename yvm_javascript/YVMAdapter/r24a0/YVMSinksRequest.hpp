#pragma once

#include "common/BaseRequest.hpp"
#include "ylutil/io/SinkTraits.hpp"

#include <string>

namespace yvm::JSClient::r24a0 {

/// Takes over the engine's sinks, or puts back what was there before:
///
/// - `{"requestID":"1","outSinkTraits":{"useDiary":true},"errSinkTraits":{}}` installs sinks with these
///   traits; see readSinkTraits.hpp. An absent side has default traits.
/// - `{"requestID":"2","outSinkTraits":null,"errSinkTraits":null}` goes back to the previous sinks.
///
/// Forgiving, unlike the run options of a command: what cannot be read of one side gives that whole side
/// default traits.
class YVMSinksRequest : public BaseRequest {
  public:
    /// Throws nothing on account of the traits.
    explicit YVMSinksRequest(const BaseRequest& request);

    const ylutil::io::SinkTraits& getOutSinkTraits() const noexcept { return outSinkTraits_; }
    const ylutil::io::SinkTraits& getErrSinkTraits() const noexcept { return errSinkTraits_; }
    /// Whether both sides are null.
    bool getUseDefaultSinks() const noexcept { return useDefaultSinks_; }

  private:
    ylutil::io::SinkTraits readTraits(const std::string& key) const;
    bool readUseDefaultSinks() const;

    // In the order in which the keys are read.
    ylutil::io::SinkTraits outSinkTraits_;
    ylutil::io::SinkTraits errSinkTraits_;
    bool useDefaultSinks_;
};

}  // namespace yvm::JSClient::r24a0
