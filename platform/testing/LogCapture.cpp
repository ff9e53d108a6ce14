#include "testing/LogCapture.hpp"

#include "foundation/log/basic_diagnostic_logger.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/frontend_requirements.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <mutex>

namespace platform_testing {
namespace {

/// Locks for itself, so that the test reads while other threads write.
class RecordingBackend : public boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
  public:
    void consume(const boost::log::record_view& view) {
        LogRecord record{boost::log::extract_or_default<std::string>("Channel", view, std::string()),
                         boost::log::extract_or_default<unsigned>("Severity", view, 0U),
                         boost::log::extract_or_default<int>("Indent", view, 0),
                         boost::log::extract_or_default<std::string>("Message", view, std::string())};
        const std::lock_guard lock(mutex_);
        records_.push_back(std::move(record));
    }

    std::vector<LogRecord> records() const {
        const std::lock_guard lock(mutex_);
        return records_;
    }

    void clear() {
        const std::lock_guard lock(mutex_);
        records_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;  // guarded by mutex_
};

}  // namespace

class LogCapture::Implementation {
  public:
    explicit Implementation(unsigned mask)
        : backend(boost::make_shared<RecordingBackend>()),
          sink_(boost::make_shared<boost::log::sinks::unlocked_sink<RecordingBackend>>(backend)),
          enabledBefore_(foundation::log::isLoggingEnabled()),
          maskBefore_(foundation::log::defaultMask()) {
        boost::log::core::get()->add_sink(sink_);
        foundation::log::setDefaultMask(mask);
        foundation::log::setLoggingEnabled(true);
    }

    ~Implementation() {
        foundation::log::setLoggingEnabled(enabledBefore_);
        foundation::log::setDefaultMask(maskBefore_);
        boost::log::core::get()->remove_sink(sink_);
    }

    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    const boost::shared_ptr<RecordingBackend> backend;

  private:
    const boost::shared_ptr<boost::log::sinks::unlocked_sink<RecordingBackend>> sink_;
    const bool enabledBefore_;
    const unsigned maskBefore_;
};

LogCapture::LogCapture(unsigned mask) : implementation_(std::make_unique<Implementation>(mask)) {}

LogCapture::~LogCapture() = default;

std::vector<LogRecord> LogCapture::records() const {
    return implementation_->backend->records();
}

std::vector<LogRecord> LogCapture::records(std::string_view channel) const {
    auto found = records();
    std::erase_if(found, [channel](const LogRecord& record) { return record.channel != channel; });
    return found;
}

std::vector<std::string> LogCapture::texts(std::string_view channel, unsigned severity) const {
    std::vector<std::string> found;
    for (auto& record : records(channel)) {
        if (record.severity == severity) {
            found.push_back(std::move(record.text));
        }
    }
    return found;
}

bool LogCapture::contains(std::string_view channel, unsigned severity, std::string_view text) const {
    return count(channel, severity, text) != 0;
}

std::size_t LogCapture::count(std::string_view channel, unsigned severity, std::string_view text) const {
    const auto found = texts(channel, severity);
    return static_cast<std::size_t>(std::ranges::count(found, text));
}

void LogCapture::clear() {
    implementation_->backend->clear();
}

}  // namespace platform_testing
