#include "engine/Engine.hpp"
#include "server/app/Application.hpp"
#include "server/app/Options.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr int kBadOptions = 2;

/// What an engine that runs a command may take to break off, and to run what users registered for the
/// end.
constexpr std::chrono::seconds kEngineStop{2};

/// Text of no client's command: of the start-up script, of threads in the background.
void writeConsole(std::string_view text, bool error) {
    std::FILE* stream = error ? stderr : stdout;
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

void waitForSignal(boost::asio::io_context& context, boost::asio::signal_set& signals) {
    signals.async_wait([](const boost::system::error_code&, int) {});
    context.run();
    // A second signal ends the process at once.
    signals.clear();
}

void run(const server::app::Options& options) {
    std::signal(SIGPIPE, SIG_IGN);

    server::app::Application application(options);
    yvm::engine::EngineOptions engineOptions;
    engineOptions.venv = options.venv;
    engineOptions.startupFile = options.startupFile;
    engineOptions.workingFolder = options.workingFolder;
    engineOptions.console = writeConsole;
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
    std::cout << "yvm-connector: listening on " << application.address() << std::endl;

    waitForSignal(context, signals);
    application.stop(options.shutdownTimeout, [&] { engine->stop(kEngineStop); });
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        run(server::app::parseOptions(std::vector<std::string>(argv + 1, argv + argc),
                                      program.parent_path().parent_path()));
        return 0;
    } catch (const server::app::HelpRequest& help) {
        std::cout << help.what();
        return 0;
    } catch (const server::app::OptionError& error) {
        std::cerr << "yvm-connector: " << error.what() << std::endl;
        return kBadOptions;
    } catch (const std::exception& error) {
        std::cerr << "yvm-connector: " << error.what() << std::endl;
        return 1;
    }
}
