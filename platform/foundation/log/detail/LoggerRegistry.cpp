#include "foundation/log/detail/LoggerRegistry.hpp"

namespace foundation::log {

LoggerRegistry& LoggerRegistry::instance() {
    static auto* const registry = new LoggerRegistry;
    return *registry;
}

void LoggerRegistry::add(diagnostic_logger& logger) {
    const std::lock_guard lock(mutex_);
    loggers_.insert(&logger);
    applyLocked(logger);
}

void LoggerRegistry::remove(diagnostic_logger& logger) noexcept {
    const std::lock_guard lock(mutex_);
    loggers_.erase(&logger);
}

void LoggerRegistry::setDefaultMask(unsigned mask) {
    const std::lock_guard lock(mutex_);
    defaultMask_ = mask;
    for (auto* logger : loggers_) {
        applyLocked(*logger);
    }
}

unsigned LoggerRegistry::defaultMask() {
    const std::lock_guard lock(mutex_);
    return defaultMask_;
}

void LoggerRegistry::setMask(std::string_view name, unsigned mask) {
    const std::lock_guard lock(mutex_);
    ownMasks_.insert_or_assign(std::string(name), mask);
    for (auto* logger : loggers_) {
        applyLocked(*logger);
    }
}

void LoggerRegistry::applyLocked(diagnostic_logger& logger) {
    const auto own = ownMasks_.find(logger.name());
    logger.mask_.store(own != ownMasks_.end() ? own->second : defaultMask_, std::memory_order_relaxed);
}

}  // namespace foundation::log
