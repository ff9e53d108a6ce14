#pragma once

#include "cmddistributor/CmdDistributor.hpp"
#include "common/ConnectionSlot.hpp"
#include "common/YVMConnection.hpp"
#include "connector/message_service/MessageService.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"
#include "foundation/msg_svc/threadutil/ConcurrentMap.hpp"
#include "r22a0/CancelRequest.hpp"
#include "r22a0/EvalRequest.hpp"
#include "r22a0/FevalRequest.hpp"
#include "yvm/Future.hpp"
#include "yvm/YVM.hpp"

#include <boost/shared_ptr.hpp>
#include <boost/thread/future.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace yvm::JSClient::r22a0 {

/// Cancels one request in flight; `interrupt` also when it is running. Needs neither the engine nor the
/// request. Throws what the distributor throws.
using CancelCallback = std::function<void(bool interrupt)>;

/// Runs the commands and function calls of one client on the engine, and stops them.
///
/// | Channel   | Request         | Response                                                     |
/// |-----------|-----------------|--------------------------------------------------------------|
/// | "/cancel" | `CancelRequest` | `{"requestID": R}`, also when no such request is in flight   |
/// | "/feval"  | `FevalRequest`  | `{"requestID": R, "result": [one value for each output]}`    |
/// | "/eval"   | `EvalRequest`   | `{"requestID": R}`; what the command prints goes another way |
///
/// In place of its result a request that failed or was cancelled is answered with `error`. There is one
/// response for each accepted eval and feval, when the engine has finished with it, as long as the service
/// lives. A cancel is answered at once, whatever becomes of the request.
///
/// Differs from the class of r24a0: there are neither groups to cancel nor an interrupt without a request,
/// and a cancel does not tell its outcome. What is not named here is meant to stay alike.
///
/// The registry holds, for each request in flight, what cancels it. A second request under a `requestID` that
/// is in use runs, but stays out of the registry, and the entry goes with the first of the two that finishes.
/// The entry of a request that could not be queued stays until the service is destroyed.
///
/// Life: made and subscribed by `create`, shared by the attached client and, for the time of a call, by
/// handlers and completions. The destructor cancels what is in flight, with interrupt and the newest first,
/// and waits for none of it; completions that come later find the service gone and answer nothing.
///
/// Threads: handlers on delivery threads, several at once; completions on whatever thread the distributor
/// settles a command. No lock is held across a call into the engine or a publish.
class EvalFevalCancel : public std::enable_shared_from_this<EvalFevalCancel> {
  public:
    /// Blocks on each subscription and throws what one of them throws. The handlers keep `yvm` and
    /// `eventManagerConnection` alive as long as the channels stand; the latter may be null.
    static std::shared_ptr<EvalFevalCancel> create(
        std::string prefix, const std::shared_ptr<yvm::YVM>& yvm,
        std::shared_ptr<connector::message_service::MessageService> messageService,
        const std::shared_ptr<EventManagerConnection>& eventManagerConnection);

    ~EvalFevalCancel();
    EvalFevalCancel(const EvalFevalCancel&) = delete;
    EvalFevalCancel& operator=(const EvalFevalCancel&) = delete;

  private:
    using IDType = foundation::msg_svc::exchange::IDType;
    using Arrays = std::vector<foundation::yorlabdata::Array>;

    EvalFevalCancel(std::string prefix,
                    std::shared_ptr<connector::message_service::MessageService> messageService);

    void createYVMConnections(const std::shared_ptr<yvm::YVM>& yvm,
                              const std::shared_ptr<EventManagerConnection>& eventManagerConnection);
    /// Hands each message of a channel to `handle`, as long as this service lives.
    YVMConnection::Handler makeHandler(ConnectionSlot EvalFevalCancel::* connection,
                                       std::function<void(EvalFevalCancel&, const BaseRequest&)> handle);
    /// Calls `publishTextCallback`, or drops the message once this service has gone.
    PublishTextCallback makePublishTextCallback();
    void publishTextCallback(std::string channel, JsonObject message);

    /// Throws what the distributor throws.
    void handleCancelRequest(const CancelRequest& request);

    void handleEvalRequest(const EvalRequest& request, const std::shared_ptr<yvm::YVM>& yvm);
    void handleFevalRequest(const FevalRequest& request, const std::shared_ptr<yvm::YVM>& yvm);
    static void completeEval(const std::weak_ptr<EvalFevalCancel>& weakThis, const std::string& requestID,
                             boost::future<void> future);
    static void completeFeval(const std::weak_ptr<EvalFevalCancel>& weakThis, const std::string& requestID,
                              yvm::Future<Arrays> future);

    // In the order of building. The registry locks for itself; the connections are constant once `create` has
    // returned, and are destroyed last made first.
    std::shared_ptr<foundation::msg_svc::threadutil::ConcurrentMap<std::string, CancelCallback>>
        inFlightRequests_;
    std::string channelPrefix_;
    std::shared_ptr<connector::message_service::MessageService> messageService_;
    ConnectionSlot cancelConnection_;
    ConnectionSlot fevalConnection_;
    ConnectionSlot evalConnection_;
};

}  // namespace yvm::JSClient::r22a0
