#pragma once

#include "common/ConnectionSlot.hpp"
#include "common/YVMConnection.hpp"
#include "connector/message_service/MessageService.hpp"
#include "ylutil/debugger/Debugger.hpp"
#include "yvm/YVM.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace yvm::JSClient::r24a0 {

/// Lets one client set and clear the engine's breakpoints and break into it. With P the client's prefix:
///
/// | Channel                         | Request                                          |
/// |---------------------------------|--------------------------------------------------|
/// | P/setGlobalBreakpoint/request   | `GlobalBreakpointRequest`                        |
/// | P/clearGlobalBreakpoint/request | the same                                         |
/// | P/setLineBreakpoint/request     | `LineBreakpointRequest`                          |
/// | P/clearLineBreakpoint/request   | the same                                         |
/// | P/clearAllBreakpoints/request   | `{"requestID": R}`                               |
/// | P/breakInDebugger/request       | `{"requestID": R}`                               |
///
/// Each has a "/response" beside it: `{"requestID": R}`, with `error` where the engine refused. The answer to
/// a breakpoint goes out when the engine has acted, so answers may come in any order; a break-in is answered
/// at once, whether or not anything runs.
///
/// Differs from the class of r22a0 in P/clearAllBreakpoints, which that has not.
///
/// Life: made and subscribed by `create`, shared by the attached client and, for the time of a call, by
/// handlers and completions. Operations that the engine completes after its end answer nothing.
///
/// Threads: handlers on delivery threads, several at once; completions on whatever thread the engine
/// completes an operation, where the destructor may run as well. Nothing changes once `create` has returned.
class Debugger : public std::enable_shared_from_this<Debugger> {
  public:
    /// Which connection answers a finished operation.
    enum class ResponseType : std::int32_t {
        SetGlobalBreakpoint = 0,
        ClearGlobalBreakpoint = 1,
        SetLineBreakpoint = 2,
        ClearLineBreakpoint = 3,
        ClearAllBreakpoints = 4
    };

    /// Blocks on each subscription and throws what one of them throws. The handlers of
    /// P/clearAllBreakpoints and P/breakInDebugger keep `yvm` alive as long as the channels stand.
    static std::shared_ptr<Debugger> create(
        const std::string& channelPrefix, const std::shared_ptr<yvm::YVM>& yvm,
        std::shared_ptr<connector::message_service::MessageService> messageService);

    Debugger(const Debugger&) = delete;
    Debugger& operator=(const Debugger&) = delete;

    /// For the callbacks of operations. A type outside the enumeration publishes nothing.
    void publishResponse(ResponseType type, const RequestResponse& response);

  private:
    explicit Debugger(std::shared_ptr<ylutil::debugger::Debugger> debugger);

    void createYVMConnections(const std::string& channelPrefix, const std::shared_ptr<yvm::YVM>& yvm,
                              std::shared_ptr<connector::message_service::MessageService> messageService);
    /// Hands each message of a channel to `handle`, as long as this service lives.
    YVMConnection::Handler makeHandler(ConnectionSlot Debugger::* connection,
                                       std::function<void(Debugger&, const BaseRequest&)> handle);

    // In the order of building; destroyed last first.
    const std::shared_ptr<ylutil::debugger::Debugger> debugger_;
    ConnectionSlot setGlobalBreakpointConnection_;
    ConnectionSlot clearGlobalBreakpointConnection_;
    ConnectionSlot setLineBreakpointConnection_;
    ConnectionSlot clearLineBreakpointConnection_;
    ConnectionSlot clearAllBreakpointsConnection_;
    ConnectionSlot breakInDebuggerConnection_;
};

}  // namespace yvm::JSClient::r24a0
