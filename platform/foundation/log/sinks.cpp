#include "foundation/log/sinks.hpp"

#include "foundation/log/Severity.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

namespace foundation::log {
namespace {

const char* severityWord(unsigned severity) {
    switch (severity) {
        case LookupDetail:
            return "detail";
        case Normal:
            return "normal";
        case CaughtException:
            return "caught";
        case FunctionEntry:
            return "enter";
        case FunctionExit:
            return "exit";
        case RefusedEngine:
            return "refused";
        default:
            return "other";
    }
}

void format(const boost::log::record_view& record, boost::log::formatting_ostream& line) {
    const auto now = boost::posix_time::microsec_clock::local_time();
    std::string time = boost::posix_time::to_iso_extended_string(now);
    time[time.find('T')] = ' ';
    line << time << ' ' << severityWord(boost::log::extract_or_default<unsigned>("Severity", record, 0U))
         << ' ' << boost::log::extract_or_default<std::string>("Channel", record, std::string("-")) << ' '
         << ::gettid() << ' ';
    const int depth = boost::log::extract_or_default<int>("Indent", record, 0);
    line << std::string(2 * static_cast<std::size_t>(depth), ' ')
         << boost::log::extract_or_default<std::string>("Message", record, std::string());
}

void addStreamSink(const boost::shared_ptr<std::ostream>& stream) {
    using Backend = boost::log::sinks::text_ostream_backend;
    const auto backend = boost::make_shared<Backend>();
    backend->add_stream(stream);
    backend->auto_flush(true);
    const auto sink = boost::make_shared<boost::log::sinks::synchronous_sink<Backend>>(backend);
    sink->set_formatter(&format);
    boost::log::core::get()->add_sink(sink);
}

/// Writes to a descriptor, also when signals interrupt, and closes it.
class DescriptorStream final : public std::ostream {
  public:
    explicit DescriptorStream(int descriptor) : std::ostream(nullptr), buffer_(descriptor, std::ios::out) {
        rdbuf(&buffer_);
    }

  private:
    __gnu_cxx::stdio_filebuf<char> buffer_;
};

}  // namespace

void addConsoleSink() {
    addStreamSink(boost::make_shared<DescriptorStream>(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)));
}

void addFileSink(const std::filesystem::path& file) {
    auto stream = boost::make_shared<std::ofstream>(file, std::ios::app);
    if (!*stream) {
        throw std::runtime_error("cannot open the log file '" + file.string() +
                                 "' for writing: " + std::strerror(errno));
    }
    addStreamSink(stream);
}

void removeSinks() {
    const auto core = boost::log::core::get();
    core->flush();
    core->remove_all_sinks();
}

}  // namespace foundation::log
