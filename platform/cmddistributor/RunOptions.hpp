#pragma once

#include "capabilities/CapabilityList.hpp"
#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"
#include "ylutil/cmddistributor/WhenToDequeue.hpp"
#include "ylutil/io/SinkTraits.hpp"
#include "ylutil/io/YLSink.hpp"

#include <boost/function.hpp>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cmddistributor {

/// How one command is to be run: when, in which queue, with what rights, where its text goes, and
/// who hears of its events.
///
/// A value that is copied per submission: stream buffers are shared between the copies, the table
/// of callbacks is copied.
///
/// Defaults: `DEQUEUE_AT_PROMPT`, the unnamed queue, no groups, every capability, debug control
/// output shown, a window of 24 rows and 80 columns, no streams of its own, no callbacks.
class RunOptions {
  public:
    using DequeueMode = ylutil::cmddistributor::WhenToDequeue::Enum;
    using EventCallback = boost::function<void(const foundation::msg_svc::eventmgr::BaseEvent&)>;
    using Callbacks = std::map<std::u16string, EventCallback, std::less<>>;

    RunOptions();
    ~RunOptions();
    RunOptions(const RunOptions&);
    RunOptions(RunOptions&&) noexcept;
    RunOptions& operator=(const RunOptions&);
    RunOptions& operator=(RunOptions&&) noexcept;

    void setDequeueMode(DequeueMode mode) noexcept;
    DequeueMode getDequeueMode() const noexcept;

    /// Commands of one queue keep their order; queues are served in turn. An empty optional stands
    /// for the unnamed queue.
    void setQueueName(boost::optional<std::u16string> name);
    const boost::optional<std::u16string>& getQueueName() const noexcept;

    void setCapabilities(capabilities::CapabilityList list);
    const capabilities::CapabilityList& getCapabilities() const noexcept;

    /// Order and duplicates are kept. "UserGroup" marks the commands of a person at a console.
    void addGroupName(std::string name);
    const std::vector<std::string>& getGroupNames() const noexcept;

    void setSuppressDebugControlOutput(bool suppress) noexcept;
    bool getSuppressDebugControlOutput() const noexcept;

    /// In lines and in characters. Not checked: the engine clamps what it cannot use.
    void setCommandWindowRowSize(std::uint64_t rows) noexcept;
    std::uint64_t getCommandWindowRowSize() const noexcept;
    void setCommandWindowColSize(std::uint64_t columns) noexcept;
    std::uint64_t getCommandWindowColSize() const noexcept;

    /// Gives the command a stream of its own. Throws `std::invalid_argument` on a null buffer.
    void setOutStream(ylutil::io::YLSink::Buffer buffer, const ylutil::io::SinkTraits& traits);
    void setErrStream(ylutil::io::YLSink::Buffer buffer, const ylutil::io::SinkTraits& traits);
    /// Null when the command has no stream of its own; its text then goes where the engine's does.
    const boost::shared_ptr<ylutil::io::YLSink>& getOutSink() const noexcept;
    const boost::shared_ptr<ylutil::io::YLSink>& getErrSink() const noexcept;

    static ylutil::io::SinkTraits getDefaultSinkTraits();
    static boost::shared_ptr<ylutil::io::YLSink> createSink(ylutil::io::YLSink::Buffer buffer,
                                                            const ylutil::io::SinkTraits& traits);

    /// Stores `callable` for the events of that type which this command causes; a second
    /// registration under the name replaces the first. Returns whether the name was new. It is
    /// called on the thread that fires the event.
    template <typename Callable>
    bool setCallbackImpl(Callable callable, std::u16string eventTypeName) {
        return storeCallback(EventCallback(std::move(callable)), std::move(eventTypeName));
    }
    const Callbacks& getCallbacks() const noexcept;

    /// Whether the engine itself takes the text events for which there is no callback, and shows them where
    /// text goes that no stream of a command takes. So it is until `removeDefaultCallbacks`.
    bool hasDefaultCallbacks() const noexcept;
    void removeDefaultCallbacks() noexcept;

  private:
    bool storeCallback(EventCallback callback, std::u16string eventTypeName);

    DequeueMode dequeueMode_ = DequeueMode::DEQUEUE_AT_PROMPT;
    boost::optional<std::u16string> queueName_;
    capabilities::CapabilityList capabilities_;
    std::vector<std::string> groupNames_;
    bool suppressDebugControlOutput_ = false;
    std::uint64_t commandWindowRowSize_ = 24;
    std::uint64_t commandWindowColSize_ = 80;
    boost::shared_ptr<ylutil::io::YLSink> outSink_;
    boost::shared_ptr<ylutil::io::YLSink> errSink_;
    Callbacks callbacks_;
    bool hasDefaultCallbacks_ = true;
};

}  // namespace cmddistributor
