#pragma once

#include "cmddistributor/CmdDistributor.hpp"
#include "foundation/core/util/scope_guard.hpp"
#include "foundation/msg_svc/eventmgr/EventMgr.hpp"
#include "ylutil/debugger/Debugger.hpp"
#include "ylutil/io/YLSink.hpp"
#include "yvm/Future.hpp"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace yvm {

/// A numerical computing engine of this process, as its clients see it. A service of the framework
/// under the interface name "yvm::YVM"; the property `user-yvm` marks the one that serves people.
///
/// Safe from any thread.
class [[gnu::visibility("default")]] YVM {
  public:
    using Arrays = std::vector<foundation::yorlabdata::Array>;
    using FevalCompletion = std::function<void(Future<Arrays>)>;
    using IDType = foundation::msg_svc::exchange::IDType;

    virtual ~YVM();

    /// A number that is unique in this process, for logs.
    virtual std::uint64_t getIdentifier() const = 0;

    /// Null when the engine has no distributor, which is an ordinary state (before its start and
    /// after its end).
    virtual boost::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() = 0;

    using Sink = boost::shared_ptr<ylutil::io::YLSink>;

    /// From now on text that no command's own streams take goes there: the client-wide sinks, of which an
    /// engine has one pair. Null drops the text. What was written before has been synchronised to the sinks
    /// that are replaced.
    virtual void replaceSinks(Sink outSink, Sink errSink) = 0;

    /// A guard that puts the pair back which is installed at this call. `self` is this engine, and is kept by
    /// the guard. May be run on any thread.
    virtual foundation::core::util::scope_guard makeSinkRestorer(std::shared_ptr<YVM> self) = 0;

    /// Breaks into the command that a prompt runs. Without one it does nothing.
    virtual void interrupt() = 0;

    /// Never null.
    virtual std::shared_ptr<ylutil::debugger::Debugger> getDebugger() = 0;

    /// Asks the engine to stop in the debugger: the command that a prompt runs stops where it is. Without one
    /// it does nothing, and remembers nothing. Does not wait for the stop.
    virtual void breakInDebugger() = 0;

    /// May be null.
    virtual boost::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> getEventMgr() = 0;

    /// Queues a call of `function` under `id`. `completion` runs exactly once, on the thread that
    /// settles the call, with a ready future. `sourceTag` says who calls, for the log. `flag` is
    /// handed on to the request unread; callers pass false.
    ///
    /// Throws, before anything is queued, when an argument is no array and when the engine has no
    /// distributor.
    void fevalWithCompletion(std::string function, Arrays arguments, std::uint64_t numOutputs,
                             FevalCompletion completion, cmddistributor::RunOptions runOptions, bool flag,
                             const IDType& id, std::string sourceTag);
};

}  // namespace yvm
