#include "server/app/Options.hpp"

#include "server/http/test/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace server::app {
namespace {

using server::testing::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

Options parse(std::vector<std::string> arguments) {
    return parseOptions(std::move(arguments), "/opt/yvm");
}

/// What is wrong with the arguments, or "nothing".
std::string complaintAbout(std::vector<std::string> arguments) {
    try {
        parse(std::move(arguments));
        return "nothing";
    } catch (const OptionError& error) {
        return error.what();
    }
}

TEST(Options, HaveDefaults) {
    const Options options = parse({});
    EXPECT_EQ(options.host, "127.0.0.1");
    EXPECT_EQ(options.port, 8888);
    EXPECT_THAT(options.token.value(), MatchesRegex("[0-9a-f]{40}"));
    EXPECT_NE(options.token, parse({}).token);
    EXPECT_EQ(options.pluginFolder, "/opt/yvm/bin/win64/connector_plugins");
    EXPECT_EQ(options.consoleFolder, std::nullopt);
    EXPECT_EQ(options.limits.maxMessageBytes, 67108864U);
    EXPECT_EQ(options.maxConnections, 20'000U);
    EXPECT_EQ(options.limits.maxDepth, 512U);
    EXPECT_EQ(options.limits.maxBatchMessages, 1000U);
    EXPECT_EQ(options.limits.maxSessions, 10'000U);
    EXPECT_EQ(options.limits.maxSessionsPerAddress, 1000U);
    EXPECT_EQ(options.limits.maxClientsPerSession, 100U);
    EXPECT_EQ(options.limits.maxSubscriptionsPerSession, 1000U);
    EXPECT_EQ(options.limits.maxQueueBytes, 67108864U);
    EXPECT_EQ(options.limits.maxFailedHandshakesPerMinute, 60U);
    EXPECT_EQ(options.graceTime, std::chrono::seconds(60));
    EXPECT_EQ(options.connectTimeout, std::chrono::seconds(30));
    EXPECT_EQ(options.shutdownTimeout, std::chrono::seconds(5));
    EXPECT_EQ(options.logMask, 16U | 512U);
    EXPECT_EQ(options.features, (std::map<std::string, bool>{{"webui", true}, {"YVMJS_SmartBuf", true}}));
}

TEST(Options, AFeatureThatIsNamedLeavesTheOthers) {
    EXPECT_EQ(parse({"--feature", "webui=off", "--feature", "other=on"}).features,
              (std::map<std::string, bool>{{"other", true}, {"webui", false}, {"YVMJS_SmartBuf", true}}));
}

TEST(Options, AreReadFromTheCommandLine) {
    const Options options = parse({"--host",
                                   "::1",
                                   "--port=0",
                                   "--token",
                                   "s3cret",
                                   "--allow-origin",
                                   "https://a.example",
                                   "--allow-origin",
                                   "https://b.example",
                                   "--plugin-dir",
                                   "/p",
                                   "--console-dir",
                                   "/c",
                                   "--venv",
                                   "/v",
                                   "--startup",
                                   "s.py",
                                   "--cwd",
                                   "/w",
                                   "--max-message-bytes",
                                   "1000",
                                   "--max-queue-bytes",
                                   "2000",
                                   "--connect-timeout",
                                   "1",
                                   "--grace-time",
                                   "2",
                                   "--shutdown-timeout",
                                   "0",
                                   "--log-level",
                                   "detail",
                                   "--log-file",
                                   "/l",
                                   "--feature",
                                   "webui=on",
                                   "--feature",
                                   "YVMJS_SmartBuf=off"});
    EXPECT_EQ(options.host, "::1");
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(options.token, "s3cret");
    EXPECT_EQ(options.allowedOrigins, (std::vector<std::string>{"https://a.example", "https://b.example"}));
    EXPECT_EQ(options.pluginFolder, "/p");
    EXPECT_EQ(options.consoleFolder, "/c");
    EXPECT_EQ(options.venv, "/v");
    EXPECT_EQ(options.startupFile, "s.py");
    EXPECT_EQ(options.workingFolder, "/w");
    EXPECT_EQ(options.limits.maxMessageBytes, 1000U);
    EXPECT_EQ(options.limits.maxQueueBytes, 2000U);
    EXPECT_EQ(options.connectTimeout, std::chrono::seconds(1));
    EXPECT_EQ(options.graceTime, std::chrono::seconds(2));
    EXPECT_EQ(options.shutdownTimeout, std::chrono::seconds(0));
    EXPECT_EQ(options.logMask, 16U | 512U | 8U | 2U);
    EXPECT_EQ(options.logFile, "/l");
    EXPECT_EQ(options.features, (std::map<std::string, bool>{{"webui", true}, {"YVMJS_SmartBuf", false}}));
}

struct LimitOption {
    const char* name;
    std::size_t bayeux::Limits::* member;
    const char* greatest;
};

constexpr LimitOption kLimitOptions[] = {
    {"max-message-bytes", &bayeux::Limits::maxMessageBytes, "1073741824"},
    {"max-depth", &bayeux::Limits::maxDepth, "512"},
    {"max-batch-messages", &bayeux::Limits::maxBatchMessages, "1000000"},
    {"max-sessions", &bayeux::Limits::maxSessions, "1000000"},
    {"max-sessions-per-address", &bayeux::Limits::maxSessionsPerAddress, "1000000"},
    {"max-clients-per-session", &bayeux::Limits::maxClientsPerSession, "1000000"},
    {"max-subscriptions-per-session", &bayeux::Limits::maxSubscriptionsPerSession, "1000000"},
    {"max-queue-bytes", &bayeux::Limits::maxQueueBytes, "68719476736"},
    {"max-failed-handshakes", &bayeux::Limits::maxFailedHandshakesPerMinute, "1000000"},
};

TEST(Options, EachLimitIsReadFromTheCommandLineAndFromAFile) {
    const TemporaryFolder folder;
    for (const auto& [name, member, greatest] : kLimitOptions) {
        EXPECT_EQ(parse({"--" + std::string(name), "77"}).limits.*member, 77U) << name;
        const auto file = folder.write("c.toml", std::string(name) + " = 78");
        EXPECT_EQ(parse({"--config", file.string()}).limits.*member, 78U) << name;
        EXPECT_EQ(std::to_string(parse({"--" + std::string(name), greatest}).limits.*member), greatest);
    }
}

TEST(Options, ConnectionsAreLimitedToo) {
    EXPECT_EQ(parse({"--max-connections", "77"}).maxConnections, 77U);
    EXPECT_EQ(complaintAbout({"--max-connections", "0"}),
              "--max-connections: Value 0 not in range 1 to 1000000; see --help");
}

TEST(Options, ALimitOutOfRangeIsRefusedWithTheRange) {
    const TemporaryFolder folder;
    for (const auto& [name, member, greatest] : kLimitOptions) {
        const std::string option = "--" + std::string(name);
        for (const std::string& value : {std::string("0"), greatest + std::string("0")}) {
            EXPECT_EQ(complaintAbout({option, value}),
                      option + ": Value " + value + " not in range 1 to " + greatest + "; see --help");
        }
        const auto file = folder.write("c.toml", std::string(name) + " = 0");
        EXPECT_EQ(complaintAbout({"--config", file.string()}),
                  file.string() + ":1: " + option + ": Value 0 not in range 1 to " + greatest);
        EXPECT_THAT(complaintAbout({option, "-1"}), HasSubstr(option));
        EXPECT_THAT(complaintAbout({option, "many"}), HasSubstr(option));
    }
}

TEST(Options, AreReadFromAFileAndGiveWayToTheCommandLine) {
    const TemporaryFolder folder;
    const auto file = folder.write("c.toml", R"(
port = 9001
host = "127.0.0.2"
token = "fromFile"
allow-origin = ["https://a.example", "https://b.example"]
log-level = "normal"
[feature]
webui = true
YVMJS_SmartBuf = false
)");
    const Options options = parse({"--config", file.string(), "--host", "127.0.0.3"});
    EXPECT_EQ(options.port, 9001);
    EXPECT_EQ(options.host, "127.0.0.3");
    EXPECT_EQ(options.token, "fromFile");
    EXPECT_EQ(options.allowedOrigins.size(), 2U);
    EXPECT_EQ(options.logMask, 16U | 512U | 8U);
    EXPECT_EQ(options.features, (std::map<std::string, bool>{{"webui", true}, {"YVMJS_SmartBuf", false}}));
}

TEST(Options, AFlagIsTrueOrFalseInAFile) {
    const TemporaryFolder folder;
    EXPECT_EQ(parse({"--config", folder.write("a.toml", "no-auth = true").string()}).token, std::nullopt);
    EXPECT_NE(parse({"--config", folder.write("b.toml", "no-auth = false").string()}).token, std::nullopt);
}

TEST(Options, AFileIsBlamedWithItsLine) {
    const TemporaryFolder folder;
    const auto complaint = [&](const std::string& content) {
        const std::string file = folder.write("c.toml", content).string();
        const std::string text = complaintAbout({"--config", file});
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
        return text.substr(0, file.size()) == file ? text.substr(file.size()) : text;
    };
    EXPECT_THAT(complaint("port = 1\nhost = \n"), HasSubstr(":2: Error while parsing"));
    EXPECT_EQ(complaint("port = 1\nprot = 2\n"), ":2: there is no option 'prot'");
    EXPECT_EQ(complaint("config = \"x\""), ":1: there is no option 'config'");
    EXPECT_EQ(complaint("\nhost = 1.5"), ":2: a string, a whole number, true or false is expected");
    EXPECT_THAT(complaint("port = 70000"), HasSubstr(":1: "));
    EXPECT_EQ(complaint("[feature]\nwebui = 1"), ":1: a feature is true or false");
    EXPECT_EQ(complaintAbout({"--config", "/does/not/exist"}),
              "cannot read the configuration file '/does/not/exist'");
}

TEST(Options, RefuseWhatIsUnknownOrOutOfRange) {
    EXPECT_EQ(complaintAbout({"--nonsense"}),
              "The following argument was not expected: --nonsense; see --help");
    EXPECT_THAT(complaintAbout({"--port", "70000"}), HasSubstr("--port"));
    EXPECT_THAT(complaintAbout({"--port", "x"}), HasSubstr("--port"));
    EXPECT_THAT(complaintAbout({"--grace-time", "0"}), HasSubstr("--grace-time"));
    EXPECT_THAT(complaintAbout({"--log-level", "loud"}),
                HasSubstr("'loud' is none of off, error, normal, detail, trace"));
    EXPECT_EQ(complaintAbout({"--feature", "webui"}),
              "--feature: 'webui' is not of the form NAME=on or NAME=off");
    EXPECT_EQ(complaintAbout({"--feature", "=on"}),
              "--feature: '=on' is not of the form NAME=on or NAME=off");
}

TEST(Options, TakeNoTokenOnALoopbackAddressOnly) {
    EXPECT_EQ(parse({"--no-auth"}).token, std::nullopt);
    EXPECT_EQ(complaintAbout({"--no-auth", "--host", "0.0.0.0"}),
              "--no-auth is accepted on a loopback address only, not on '0.0.0.0'");
    EXPECT_EQ(complaintAbout({"--no-auth", "--token", "x"}),
              "--token, --token-file and --no-auth exclude each other");
}

TEST(Options, ReadTheTokenFromTheFirstLineOfAFile) {
    const TemporaryFolder folder;
    EXPECT_EQ(parse({"--token-file", folder.write("t", "s3cret\r\nmore").string()}).token, "s3cret");
    EXPECT_EQ(complaintAbout({"--token-file", folder.write("e", "").string()}),
              "--token-file: cannot read a token from '" + (folder.path() / "e").string() + "'");
    EXPECT_EQ(complaintAbout({"--token", "a b"}), "a token is one or more visible ASCII characters");
    EXPECT_EQ(complaintAbout({"--token", ""}), "a token is one or more visible ASCII characters");
}

TEST(Options, FindTheConsoleBesideTheInstallation) {
    const TemporaryFolder folder;
    folder.write("console/index.html", "");
    EXPECT_EQ(parseOptions({}, folder.path()).consoleFolder, folder.path() / "console");
    EXPECT_EQ(parseOptions({}, folder.path() / "dev").consoleFolder, folder.path() / "console");
    EXPECT_EQ(parseOptions({"--root", folder.path().string()}, "/opt/yvm").consoleFolder,
              folder.path() / "console");
}

TEST(Options, ExplainThemselves) {
    try {
        parse({"--help"});
        FAIL();
    } catch (const HelpRequest& help) {
        const std::string text = help.what();
        for (const char* option : {"--config",
                                   "--help",
                                   "--version",
                                   "--host",
                                   "--port",
                                   "--allow-origin",
                                   "--token",
                                   "--token-file",
                                   "--no-auth",
                                   "--venv",
                                   "--startup",
                                   "--cwd",
                                   "--feature",
                                   "--root",
                                   "--plugin-dir",
                                   "--console-dir",
                                   "--connect-timeout",
                                   "--grace-time",
                                   "--shutdown-timeout",
                                   "--log-level",
                                   "--log-file"}) {
            EXPECT_THAT(text, HasSubstr(option));
        }
        for (const LimitOption& limit : kLimitOptions) {
            EXPECT_THAT(text, HasSubstr(std::string("--") + limit.name + " "));
        }
    }
}

}  // namespace
}  // namespace server::app
