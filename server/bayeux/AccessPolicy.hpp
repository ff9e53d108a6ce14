#pragma once

#include "server/bayeux/ClientTable.hpp"
#include "server/bayeux/Refusal.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server::bayeux {

/// The one place that decides what a session may do. Each function gives nothing when it may, else why
/// not.
///
/// | Publish on                            | Allowed to                                      |
/// |---------------------------------------|-------------------------------------------------|
/// | /yvm/attach/request                   | all; a free or own identifier in due form       |
/// | /yvm/detach/request                   | all; for an own client, or one that nobody has  |
/// | /yvm/<client>/.../request             | the client's session, until it is detached      |
/// | anything else                         | nobody                                          |
///
/// | Subscribe to                          | Allowed to                                      |
/// |---------------------------------------|-------------------------------------------------|
/// | /yvm/attach/response, /yvm/detach/... | all; only the session that asked is answered    |
/// | /yvm/<client>/..., wildcards included | the client's session                            |
/// | /service/...                          | all; nothing is ever published there            |
/// | anything else                         | nobody                                          |
class AccessPolicy {
  public:
    /// `clients` must outlive this instance.
    explicit AccessPolicy(const ClientTable& clients) : clients_(clients) {}

    std::optional<Refusal> mayPublish(SessionNumber session, std::string_view channel) const;
    std::optional<Refusal> maySubscribe(SessionNumber session, std::string_view channelOrPattern) const;
    std::optional<Refusal> mayAttach(SessionNumber session, std::string_view identifier) const;
    std::optional<Refusal> mayDetach(SessionNumber session, std::string_view identifier) const;

  private:
    bool isOwn(SessionNumber session, std::string_view identifier) const;

    const ClientTable& clients_;
};

}  // namespace server::bayeux
