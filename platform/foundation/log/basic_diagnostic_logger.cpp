#include "foundation/log/basic_diagnostic_logger.hpp"

#include "foundation/log/detail/LoggerRegistry.hpp"
#include "foundation/log/detail/indentation.hpp"

#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core.hpp>

#include <utility>

namespace foundation::log {
namespace {

namespace attributes = boost::log::attributes;

// Off until the host or a test turns it on. Relaxed use: a record more or less around the switch is
// harmless.
std::atomic<bool> loggingEnabled{false};

// Holding one reference for ever keeps the core alive for continuations that log while the process
// ends.
boost::log::core& core() {
    static const auto* const kept = new boost::log::core_ptr(boost::log::core::get());
    return **kept;
}

}  // namespace

void setLoggingEnabled(bool enabled) noexcept {
    core().set_logging_enabled(enabled);
    loggingEnabled.store(enabled, std::memory_order_relaxed);
}

bool isLoggingEnabled() noexcept {
    return loggingEnabled.load(std::memory_order_relaxed);
}

void setDefaultMask(unsigned mask) {
    LoggerRegistry::instance().setDefaultMask(mask);
}

unsigned defaultMask() {
    return LoggerRegistry::instance().defaultMask();
}

void setMask(std::string_view name, unsigned mask) {
    LoggerRegistry::instance().setMask(name, mask);
}

basic_diagnostic_logger<char>::basic_diagnostic_logger(std::string name) : name_(std::move(name)), mask_(0) {
    LoggerRegistry::instance().add(*this);
}

basic_diagnostic_logger<char>::~basic_diagnostic_logger() {
    LoggerRegistry::instance().remove(*this);
}

void basic_diagnostic_logger<char>::write(Severity flag, const std::string& text) const noexcept {
    static const boost::log::attribute_name channelName("Channel");
    static const boost::log::attribute_name severityName("Severity");
    static const boost::log::attribute_name indentName("Indent");
    static const boost::log::attribute_name messageName("Message");
    try {
        boost::log::attribute_set values;
        values.insert(channelName, attributes::constant<std::string>(name_));
        values.insert(severityName, attributes::constant<unsigned>(flag));
        values.insert(indentName, attributes::constant<int>(detail::indentation()));
        if (auto record = core().open_record(values)) {
            record.attribute_values().insert(messageName, attributes::make_attribute_value(text));
            core().push_record(std::move(record));
        }
    } catch (...) {
        // Out of memory, or a sink that cannot write: the line is lost, its caller goes on.
    }
}

}  // namespace foundation::log
