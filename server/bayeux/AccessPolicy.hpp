#pragma once

#include "server/bayeux/ClientTable.hpp"
#include "server/bayeux/Refusal.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server::bayeux {

/// The one place that decides what a session may do. Each function gives nothing when it may, else why
/// not. The test of this class is these tables.
///
/// | Publish on                                | Who may                                                |
/// |-------------------------------------------|--------------------------------------------------------|
/// | /yvm/attach/request                       | everybody, within the table of identifiers             |
/// | /yvm/detach/request                       | everybody, within the table of identifiers             |
/// | /yvm/<client>/<one or more>/request       | the session of the client, until it is being detached  |
/// | /yvm/sinks/set                            | a session with a client that is attached with r22a0    |
/// | every other channel                       | nobody                                                 |
///
/// | Subscribe to                              | Who may                                                |
/// |-------------------------------------------|--------------------------------------------------------|
/// | /yvm/attach/response                      | everybody                                              |
/// | /yvm/detach/response                      | everybody                                              |
/// | /yvm/<client>/<one or more>               | the session of the client                              |
/// | /yvm/<client>/*, /yvm/<client>/**         | the session of the client                              |
/// | /yvm/sinks/response                       | a session with a client that is attached with r22a0    |
/// | /service/...                              | everybody: nothing is ever published there             |
/// | every other channel and pattern           | nobody, above all not /yvm/*, /yvm/**, /* and /**      |
///
/// | Identifier                                | Attach                    | Detach                     |
/// |-------------------------------------------|---------------------------|----------------------------|
/// | not of the form [A-Za-z0-9_-]{1,64}       | nobody                    | everybody: nobody has it   |
/// | attach, detach, sinks                     | nobody                    | everybody: nobody has it   |
/// | that nobody has                           | everybody                 | everybody                  |
/// | of a session, from its request to attach  | that session              | that session               |
/// | ... while the client is being detached    | that session              | that session               |
/// | ... after an attach that was refused      | everybody                 | everybody                  |
/// | ... when the detach has been carried out  | everybody                 | everybody                  |
///
/// The end of a session detaches its clients. A subscription ends with the right to it. What reaches a
/// session that subscribed is narrower still: `ClientLifecycle` hands the answers to attach and detach to the
/// session that asked, and `DeliveryQueue` lets no request pass.
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
    /// Why the session may not use the sinks of r22a0.
    std::optional<Refusal> refuseSinks(SessionNumber session) const;

    const ClientTable& clients_;
};

}  // namespace server::bayeux
