#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace server::bayeux {

/// Whose sinks the engine writes to, as the requests tell that were handed on. Of requests in different
/// lanes the module may take the later one first.
///
/// Clients of r24a0 have sinks of their own:
///
/// | The client has installed | Request        | Then the engine writes to                      |
/// |--------------------------|----------------|------------------------------------------------|
/// | nothing                  | either         | the client's sinks                             |
/// | sinks                    | to install     | the client's sinks                             |
/// | sinks                    | to revert      | what it wrote to before its first install      |
///
/// Those of r22a0 share one pair, which stays when they are gone: nobody has to revert it.
///
/// Confined to the server's thread.
class InstalledSinks {
  public:
    /// The text of a request to revert.
    static std::string revertRequest(std::string_view requestID);

    /// `request`, an object in strict JSON, was handed on to the sinks of `client`.
    void requested(const std::string& client, std::string_view request);

    /// The sinks of r22a0 were asked for.
    void requestedShared();

    /// The client whose sinks the engine writes to, unless they are its own or those of a client that has
    /// reverted or is gone.
    std::optional<std::string> inForce() const;

    /// The client is gone, or never was. Who would go back to its sinks counts as going back to what was
    /// before them.
    void forget(const std::string& client);

  private:
    /// A client, or nothing for the engine's own sinks and those of r22a0.
    using Owner = std::optional<std::string>;

    Owner inForce_;
    /// By each client that has installed sinks: whose were there before its first install.
    std::map<std::string, Owner> before_;
};

}  // namespace server::bayeux
