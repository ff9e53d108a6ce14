#pragma once

namespace yvm::JSClient {

/// Everything that exists for one client between its attach and its detach. Destroying it ends the client's
/// work.
class AttachedClientInterface {
  public:
    virtual ~AttachedClientInterface() = default;
};

}  // namespace yvm::JSClient
