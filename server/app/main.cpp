#include "engine/Engine.hpp"
#include "server/app/Application.hpp"
#include "server/app/Options.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <fcntl.h>
#include <unistd.h>
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kBadOptions = 2;

/// What an engine that runs a command may take to break off, and to run what users registered for the
/// end.
constexpr std::chrono::seconds kEngineStop{2};

/// The standard output and error that the program was started with, in duplicates: the engine leads the
/// descriptors 1 and 2 to itself. Safe from any thread.
class Console {
  public:
    /// The first call makes the duplicates. Never destroyed: threads of the user may write until the process
    /// ends.
    static const Console& instance() {
        static const Console& console = *new Console;
        return console;
    }

    /// Text that cannot be written is lost.
    void write(std::string_view text, bool error) const {
        while (!text.empty()) {
            const ssize_t count = ::write(error ? error_ : out_, text.data(), text.size());
            if (count >= 0) {
                text.remove_prefix(static_cast<std::size_t>(count));
            } else if (errno != EINTR) {
                return;
            }
        }
    }

  private:
    Console() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(error_)));
#endif
    }

    const int out_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    const int error_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
};

/// Text of no client's command: of the start-up script, of threads in the background.
void writeConsole(std::string_view text, bool error) {
    Console::instance().write(text, error);
}

void writeError(const std::string& text) {
    writeConsole("yvm-connector: " + text + "\n", true);
}

void waitForSignal(boost::asio::io_context& context, boost::asio::signal_set& signals) {
    signals.async_wait([](const boost::system::error_code&, int) {});
    context.run();
    // A second signal ends the process at once.
    signals.clear();
}

/// What is in flight may end by itself first. Says so where something has to be broken off.
void stop(server::app::Application& application, yvm::engine::Engine& engine, std::chrono::seconds bound) {
    application.stopAccepting();
    engine.endWaits();
    if (!application.waitForAnswers(bound)) {
        writeError("commands go on after " + std::to_string(bound.count()) + " s, and are interrupted");
    }
    if (!engine.stop(kEngineStop)) {
        writeError("a command goes on though it was interrupted, and is left unanswered");
    }
    application.stop();
}

void run(const server::app::Options& options) {
    std::signal(SIGPIPE, SIG_IGN);

    server::app::Application application(options);
    yvm::engine::EngineOptions engineOptions;
    engineOptions.venv = options.venv;
    engineOptions.startupFile = options.startupFile;
    engineOptions.workingFolder = options.workingFolder;
    engineOptions.console = writeConsole;
    engineOptions.captureDescriptors = true;
    engineOptions.outputGate = application.textGate();
    engineOptions.commandEnded = [metrics = application.metrics()](const auto& times) {
        metrics->commandEnded(times);
    };
    const auto engine = yvm::engine::Engine::start(engineOptions);

    // Not before: a start-up script may never end, and until here nothing is in flight that a signal could
    // lose. The kernel prefers the main thread, so no other has to block them; masks are inherited by what
    // commands start.
    boost::asio::io_context context;
    boost::asio::signal_set signals(context, SIGINT, SIGTERM);
    application.start(engine);
    writeConsole("yvm-connector: listening on " + application.address() + "\n", false);

    waitForSignal(context, signals);
    stop(application, *engine, options.shutdownTimeout);
}

}  // namespace

int main(int argc, char** argv) {
    Console::instance();
    try {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        run(server::app::parseOptions(std::vector<std::string>(argv + 1, argv + argc),
                                      program.parent_path().parent_path()));
        return 0;
    } catch (const server::app::HelpRequest& help) {
        writeConsole(help.what(), false);
        return 0;
    } catch (const server::app::OptionError& error) {
        writeError(error.what());
        return kBadOptions;
    } catch (const std::exception& error) {
        writeError(error.what());
        return 1;
    }
}
