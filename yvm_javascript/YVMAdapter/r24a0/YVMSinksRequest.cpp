#include "r24a0/YVMSinksRequest.hpp"

#include "r24a0/readSinkTraits.hpp"

namespace yvm::JSClient::r24a0 {

namespace {

constexpr const char* outKey = "outSinkTraits";
constexpr const char* errKey = "errSinkTraits";

}  // namespace

YVMSinksRequest::YVMSinksRequest(const BaseRequest& request)
    : BaseRequest(request),
      outSinkTraits_(readTraits(outKey)),
      errSinkTraits_(readTraits(errKey)),
      useDefaultSinks_(readUseDefaultSinks()) {}

ylutil::io::SinkTraits YVMSinksRequest::readTraits(const std::string& key) const {
    try {
        return readSinkTraits(findOptionalValueWithDefault<JsonObject>(key, {}));
    } catch (...) {
        // A client that spells its traits badly still gets its text.
        return readSinkTraits({});
    }
}

bool YVMSinksRequest::readUseDefaultSinks() const {
    using foundation::json::Null;
    try {
        return findOptionalValue<Null>(outKey) && findOptionalValue<Null>(errKey);
    } catch (...) {
        // A side that is not null is there to be installed.
        return false;
    }
}

}  // namespace yvm::JSClient::r24a0
