#include "cmddistributor/RunOptions.hpp"

#include <boost/make_shared.hpp>

#include <utility>

namespace cmddistributor {

RunOptions::RunOptions() = default;
RunOptions::~RunOptions() = default;
RunOptions::RunOptions(const RunOptions&) = default;
RunOptions::RunOptions(RunOptions&&) noexcept = default;
RunOptions& RunOptions::operator=(const RunOptions&) = default;
RunOptions& RunOptions::operator=(RunOptions&&) noexcept = default;

void RunOptions::setDequeueMode(DequeueMode mode) noexcept {
    dequeueMode_ = mode;
}
RunOptions::DequeueMode RunOptions::getDequeueMode() const noexcept {
    return dequeueMode_;
}

void RunOptions::setQueueName(boost::optional<std::u16string> name) {
    queueName_ = std::move(name);
}
const boost::optional<std::u16string>& RunOptions::getQueueName() const noexcept {
    return queueName_;
}

void RunOptions::setCapabilities(capabilities::CapabilityList list) {
    capabilities_ = std::move(list);
}
const capabilities::CapabilityList& RunOptions::getCapabilities() const noexcept {
    return capabilities_;
}

void RunOptions::addGroupName(std::string name) {
    groupNames_.push_back(std::move(name));
}
const std::vector<std::string>& RunOptions::getGroupNames() const noexcept {
    return groupNames_;
}

void RunOptions::setSuppressDebugControlOutput(bool suppress) noexcept {
    suppressDebugControlOutput_ = suppress;
}
bool RunOptions::getSuppressDebugControlOutput() const noexcept {
    return suppressDebugControlOutput_;
}

void RunOptions::setCommandWindowRowSize(std::uint64_t rows) noexcept {
    commandWindowRowSize_ = rows;
}
std::uint64_t RunOptions::getCommandWindowRowSize() const noexcept {
    return commandWindowRowSize_;
}

void RunOptions::setCommandWindowColSize(std::uint64_t columns) noexcept {
    commandWindowColSize_ = columns;
}
std::uint64_t RunOptions::getCommandWindowColSize() const noexcept {
    return commandWindowColSize_;
}

void RunOptions::setOutStream(ylutil::io::YLSink::Buffer buffer, const ylutil::io::SinkTraits& traits) {
    outSink_ = createSink(std::move(buffer), traits);
}
void RunOptions::setErrStream(ylutil::io::YLSink::Buffer buffer, const ylutil::io::SinkTraits& traits) {
    errSink_ = createSink(std::move(buffer), traits);
}
const boost::shared_ptr<ylutil::io::YLSink>& RunOptions::getOutSink() const noexcept {
    return outSink_;
}
const boost::shared_ptr<ylutil::io::YLSink>& RunOptions::getErrSink() const noexcept {
    return errSink_;
}

ylutil::io::SinkTraits RunOptions::getDefaultSinkTraits() {
    return {};
}

boost::shared_ptr<ylutil::io::YLSink> RunOptions::createSink(ylutil::io::YLSink::Buffer buffer,
                                                             const ylutil::io::SinkTraits& traits) {
    return boost::make_shared<ylutil::io::YLSink>(std::move(buffer), traits);
}

const RunOptions::Callbacks& RunOptions::getCallbacks() const noexcept {
    return callbacks_;
}
bool RunOptions::hasDefaultCallbacks() const noexcept {
    return hasDefaultCallbacks_;
}
void RunOptions::removeDefaultCallbacks() noexcept {
    hasDefaultCallbacks_ = false;
}

bool RunOptions::storeCallback(EventCallback callback, std::u16string eventTypeName) {
    return callbacks_.insert_or_assign(std::move(eventTypeName), std::move(callback)).second;
}

}  // namespace cmddistributor
