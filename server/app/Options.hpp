#pragma once

#include "server/bayeux/Limits.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace server::app {

/// What the command line and the configuration file say. See `--help` for the meaning of each.
struct Options {
    std::string host = "127.0.0.1";
    std::uint16_t port = 8888;
    /// The token that clients must know: given, read from a file, or made up. Nothing with --no-auth.
    std::optional<std::string> token;
    std::vector<std::string> allowedOrigins;

    std::filesystem::path pluginFolder;
    /// Nothing when none was given and none lies beside the program.
    std::optional<std::filesystem::path> consoleFolder;

    std::optional<std::filesystem::path> venv;
    std::optional<std::filesystem::path> startupFile;
    std::optional<std::filesystem::path> workingFolder;

    bayeux::Limits limits;
    std::size_t maxConnections = 20'000;
    std::chrono::seconds connectTimeout{30};
    std::chrono::seconds graceTime{60};
    /// How long the engine waits for a session that does not read the text that is sent to it.
    std::chrono::seconds maxOutputWait{10};
    std::chrono::seconds shutdownTimeout{5};

    /// The mask of `foundation::log`; 0 turns the log off.
    unsigned logMask = 0;
    std::optional<std::filesystem::path> logFile;

    /// By name. These two together batch the text of the sinks that clients install.
    std::map<std::string, bool> features = {{"YVMJS_SmartBuf", true}, {"webui", true}};
};

/// A bad option or configuration file. One line that says what is wrong and what is accepted.
class OptionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The user asked for a text, which is `what()`, and for nothing else.
class HelpRequest : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Reads the arguments behind the program's name, and the file that `--config` names, whose values give
/// way to those of the command line. `installation` is the folder above that of the program: the
/// defaults of folders lie in there.
///
/// Throws `OptionError` and `HelpRequest`.
Options parseOptions(std::vector<std::string> arguments, const std::filesystem::path& installation);

}  // namespace server::app
