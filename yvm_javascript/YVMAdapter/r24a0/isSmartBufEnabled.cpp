#include "r24a0/isSmartBufEnabled.hpp"

#include "foundation/feature/Feature.hpp"

namespace yvm::JSClient::r24a0 {

bool isSmartBufEnabled() noexcept {
    static constexpr foundation::feature::Feature<0> smartBuf("YVMJS_SmartBuf");
    static constexpr foundation::feature::Feature<0> webui("webui");
    return smartBuf.isEnabled() && webui.isEnabled();
}

}  // namespace yvm::JSClient::r24a0
