#include "server/app/Options.hpp"

#include "foundation/log/Severity.hpp"
#include "server/app/TomlFile.hpp"
#include "server/bayeux/Secrets.hpp"
#include "server/http/RequestGuard.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <fstream>
#include <utility>

namespace server::app {

namespace {

using foundation::log::CaughtException;
using foundation::log::FunctionEntry;
using foundation::log::FunctionExit;
using foundation::log::LookupDetail;
using foundation::log::Normal;
using foundation::log::RefusedEngine;

/// Options as they are written, before they are checked against one another.
struct RawOptions {
    std::string configFile;
    std::string root;
    std::string pluginFolder;
    std::string consoleFolder;
    std::string token;
    std::string tokenFile;
    bool noAuth = false;
    std::string venv;
    std::string startupFile;
    std::string workingFolder;
    long connectTimeout = 30;
    long graceTime = 60;
    long maxOutputWait = 10;
    long shutdownTimeout = 5;
    unsigned logMask = CaughtException | RefusedEngine;
    std::string logFile;
    std::vector<std::string> features;
};

constexpr std::size_t kMillion = 1'000'000;
constexpr std::size_t kGiB = 1UL << 30U;

void declare(CLI::App& app, RawOptions& raw, Options& options) {
    app.add_option("--config", raw.configFile, "A TOML file with any of these options, by their long names")
        ->type_name("FILE");
    app.set_help_flag("-h,--help", "Print this text and exit");
    app.set_version_flag("--version", YVM_VERSION, "Print the version and exit");

    const std::string network = "Network";
    app.add_option("--host", options.host, "The address to listen on")
        ->capture_default_str()
        ->type_name("ADDRESS")
        ->group(network);
    app.add_option("--port", options.port, "The port to listen on; 0 picks a free one")
        ->capture_default_str()
        ->type_name("PORT")
        ->group(network);
    app.add_option("--allow-origin", options.allowedOrigins,
                   "An origin other than this server's own whose pages may connect, such as "
                   "https://example.org; may be repeated")
        ->allow_extra_args(false)
        ->type_name("ORIGIN")
        ->group(network);

    const std::string access = "Access";
    app.add_option(
           "--token", raw.token,
           "What every client must know; seen by other users of this machine, so prefer --token-file. "
           "Default: a random one, printed at start")
        ->type_name("TEXT")
        ->group(access);
    app.add_option("--token-file", raw.tokenFile, "A file whose first line is the token")
        ->type_name("FILE")
        ->group(access);
    app.add_flag("--no-auth", raw.noAuth, "Ask for no token; on a loopback address only")->group(access);

    const std::string engine = "Engine";
    app.add_option("--venv", raw.venv, "A virtual environment whose packages come first")
        ->type_name("FOLDER")
        ->group(engine);
    app.add_option("--startup", raw.startupFile, "A Python script to run before the first command")
        ->type_name("FILE")
        ->group(engine);
    app.add_option("--cwd", raw.workingFolder, "The folder to run commands in")
        ->type_name("FOLDER")
        ->group(engine);
    app.add_option("--feature", raw.features,
                   "Turn a feature on or off; may be repeated. Default: YVMJS_SmartBuf and webui are on,\n"
                   "which together batch the text of the sinks that clients install")
        ->allow_extra_args(false)
        ->type_name("NAME=on|off")
        ->group(engine);

    const std::string folders = "Installation";
    app.add_option("--root", raw.root, "The folder of the installation. Default: the one above the program's")
        ->type_name("FOLDER")
        ->group(folders);
    app.add_option("--plugin-dir", raw.pluginFolder,
                   "The folder of the plug-ins. Default: bin/win64/connector_plugins below the root")
        ->type_name("FOLDER")
        ->group(folders);
    app.add_option(
           "--console-dir", raw.consoleFolder,
           "The folder of the web console. Default: console below or beside the root, if there is one")
        ->type_name("FOLDER")
        ->group(folders);

    const std::string limits = "Limits";
    const auto limit = [&](const char* name, std::size_t& value, std::size_t greatest, const char* unit,
                           const char* meaning) {
        app.add_option(name, value, meaning)
            ->check(CLI::Range(std::size_t{1}, greatest))
            ->capture_default_str()
            ->type_name(unit)
            ->group(limits);
    };
    auto& values = options.limits;
    limit("--max-message-bytes", values.maxMessageBytes, kGiB, "BYTES",
          "The longest request that is accepted");
    limit("--max-depth", values.maxDepth, bayeux::Limits::kGreatestDepth, "LEVELS",
          "How deeply a request may be nested");
    limit("--max-batch-messages", values.maxBatchMessages, kMillion, "NUMBER",
          "How many messages one frame or body may hold");
    limit("--max-sessions", values.maxSessions, kMillion, "NUMBER", "How many sessions there may be");
    limit("--max-sessions-per-address", values.maxSessionsPerAddress, kMillion, "NUMBER",
          "How many of them may be of one address, or of one IPv6 network of 64 bits; behind a proxy all are "
          "of the proxy");
    limit("--max-clients-per-session", values.maxClientsPerSession, kMillion, "NUMBER",
          "How many clients a session may have attached");
    limit("--max-subscriptions-per-session", values.maxSubscriptionsPerSession, kMillion, "NUMBER",
          "How many channels and patterns a session may subscribe to");
    limit("--max-queue-bytes", values.maxQueueBytes, 64 * kGiB, "BYTES",
          "What may wait for a session that reads slowly, before it is ended");
    limit("--max-failed-handshakes", values.maxFailedHandshakesPerMinute, kMillion, "NUMBER",
          "How many handshakes of one address may fail in a minute, before it is refused for the rest of it");
    limit("--max-connections", options.maxConnections, kMillion, "NUMBER",
          "How many connections may be open, those of requests that are over at once included");
    app.add_option("--connect-timeout", raw.connectTimeout, "How long an idle client's connect is held")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str()
        ->type_name("SECONDS")
        ->group(limits);
    app.add_option(
           "--grace-time", raw.graceTime,
           "How long a session and its work outlive a lost connection; best above the connect timeout "
           "by 15 seconds or more")
        ->check(CLI::Range(1, 7 * 24 * 3600))
        ->capture_default_str()
        ->type_name("SECONDS")
        ->group(limits);
    app.add_option(
           "--max-output-wait", raw.maxOutputWait,
           "How long the engine waits for a session that reads its text too slowly, before it is ended")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str()
        ->type_name("SECONDS")
        ->group(limits);
    app.add_option("--shutdown-timeout", raw.shutdownTimeout,
                   "How long commands may go on after SIGTERM or SIGINT before they are interrupted")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str()
        ->type_name("SECONDS")
        ->group(limits);

    const std::string log = "Log";
    const std::map<std::string, unsigned> levels = {
        {"off", 0U},
        {"error", CaughtException | RefusedEngine},
        {"normal", CaughtException | RefusedEngine | Normal},
        {"detail", CaughtException | RefusedEngine | Normal | LookupDetail},
        {"trace", CaughtException | RefusedEngine | Normal | LookupDetail | FunctionEntry | FunctionExit},
    };
    app.add_option("--log-level", raw.logMask, "What to log: off, error, normal, detail or trace")
        ->transform(CLI::Transformer(levels, CLI::ignore_case).description(""))
        ->check(CLI::Validator(
            [levels](std::string& value) {
                const bool known = std::any_of(levels.begin(), levels.end(), [&](const auto& level) {
                    return std::to_string(level.second) == value;
                });
                return known ? std::string() : "'" + value + "' is none of off, error, normal, detail, trace";
            },
            ""))
        ->type_name("LEVEL")
        ->group(log);
    app.add_option("--log-file", raw.logFile, "Append the log to this file. Default: standard error")
        ->type_name("FILE")
        ->group(log);
}

void applyFile(CLI::App& app, const std::string& file) {
    for (const Setting& setting : readTomlFile(file)) {
        CLI::Option* option = app.get_option_no_throw("--" + setting.name);
        if (option == nullptr || setting.name == "config" || setting.name == "help" ||
            setting.name == "version") {
            throw OptionError(setting.place + ": there is no option '" + setting.name + "'");
        }
        if (option->count() != 0) {
            continue;
        }
        try {
            for (const std::string& value : setting.values) {
                option->add_result(value);
            }
            option->run_callback();
        } catch (const CLI::Error& error) {
            throw OptionError(setting.place + ": " + error.what());
        }
    }
}

std::string readTokenFile(const std::string& file) {
    std::ifstream in(file);
    std::string token;
    std::getline(in, token);
    if (!in && token.empty()) {
        throw OptionError("--token-file: cannot read a token from '" + file + "'");
    }
    if (token.ends_with('\r')) {
        token.pop_back();
    }
    return token;
}

std::optional<std::string> chooseToken(const CLI::App& app, const RawOptions& raw, const std::string& host) {
    const bool hasToken = app.count("--token") != 0;
    const bool hasFile = app.count("--token-file") != 0;
    if (static_cast<int>(hasToken) + static_cast<int>(hasFile) + static_cast<int>(raw.noAuth) > 1) {
        throw OptionError("--token, --token-file and --no-auth exclude each other");
    }
    if (raw.noAuth) {
        if (!http::isLoopbackHost(host)) {
            throw OptionError("--no-auth is accepted on a loopback address only, not on '" + host + "'");
        }
        return std::nullopt;
    }
    if (!hasToken && !hasFile) {
        return bayeux::randomHex(20);
    }
    std::string token = hasToken ? raw.token : readTokenFile(raw.tokenFile);
    const bool isPlain = std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < 0x7f; });
    if (token.empty() || !isPlain) {
        throw OptionError("a token is one or more visible ASCII characters");
    }
    return token;
}

/// `result` with the switches that were named set anew.
std::map<std::string, bool> readFeatures(const std::vector<std::string>& features,
                                         std::map<std::string, bool> result) {
    for (const std::string& feature : features) {
        const std::size_t equals = feature.find('=');
        const std::string state = equals == std::string::npos ? "" : feature.substr(equals + 1);
        if (equals == 0 || (state != "on" && state != "off")) {
            throw OptionError("--feature: '" + feature + "' is not of the form NAME=on or NAME=off");
        }
        result[feature.substr(0, equals)] = state == "on";
    }
    return result;
}

std::optional<std::filesystem::path> asPath(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::filesystem::path>(text);
}

}  // namespace

Options parseOptions(std::vector<std::string> arguments, const std::filesystem::path& installation) {
    Options options;
    RawOptions raw;
    CLI::App app(
        "Runs a numerical engine, Python with NumPy, and lets JavaScript clients use it over\n"
        "publish/subscribe channels (Bayeux at /bayeux, over WebSocket and HTTP long-polling).",
        "yvm-connector");
    declare(app, raw, options);
    try {
        // CLI11 takes them last first.
        std::reverse(arguments.begin(), arguments.end());
        app.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        throw HelpRequest(app.help());
    } catch (const CLI::CallForVersion& version) {
        throw HelpRequest(std::string(version.what()) + "\n");
    } catch (const CLI::Error& error) {
        throw OptionError(std::string(error.what()) + "; see --help");
    }
    if (!raw.configFile.empty()) {
        applyFile(app, raw.configFile);
    }
    options.token = chooseToken(app, raw, options.host);
    options.features = readFeatures(raw.features, std::move(options.features));

    const std::filesystem::path root = raw.root.empty() ? installation : std::filesystem::path(raw.root);
    options.pluginFolder = asPath(raw.pluginFolder).value_or(root / "bin/win64/connector_plugins");
    options.consoleFolder = asPath(raw.consoleFolder);
    for (const auto& candidate : {root / "console", root.parent_path() / "console"}) {
        if (!options.consoleFolder && std::filesystem::is_regular_file(candidate / "index.html")) {
            options.consoleFolder = candidate;
        }
    }
    options.venv = asPath(raw.venv);
    options.startupFile = asPath(raw.startupFile);
    options.workingFolder = asPath(raw.workingFolder);
    options.connectTimeout = std::chrono::seconds(raw.connectTimeout);
    options.graceTime = std::chrono::seconds(raw.graceTime);
    options.maxOutputWait = std::chrono::seconds(raw.maxOutputWait);
    options.shutdownTimeout = std::chrono::seconds(raw.shutdownTimeout);
    options.logMask = raw.logMask;
    options.logFile = asPath(raw.logFile);
    return options;
}

}  // namespace server::app
