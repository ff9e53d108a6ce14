#pragma once

namespace yvm::JSClient::r24a0 {

/// Whether client-wide text is batched by a timer and flushed ahead of certain events: the features
/// "YVMJS_SmartBuf" and "webui" are both on. Asked anew each time, so a switch counts at once.
bool isSmartBufEnabled() noexcept;

}  // namespace yvm::JSClient::r24a0
