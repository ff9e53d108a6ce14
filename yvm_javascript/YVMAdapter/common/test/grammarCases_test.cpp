// Sends each text of the table of grammar cases through a connection and compares what becomes of it.

#include "common/YVMConnection.hpp"
#include "common/test/support.hpp"
#include "fl/i18n/ustring.hpp"
#include "foundation/json/ParserException.hpp"
#include "testing/FakeMessageService.hpp"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace yvm::JSClient {
namespace {

using foundation::json::ParseResult;
using platform_testing::FakeMessageService;

/// What is left of a field once \\ and \xNN have been replaced by their bytes.
std::string unescape(const std::string& field) {
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            text += field[i];
        } else if (field.at(i + 1) == '\\') {
            text += '\\';
            ++i;
        } else {
            text += static_cast<char>(std::stoi(field.substr(i + 2, 2), nullptr, 16));
            i += 3;
        }
    }
    return text;
}

struct Failure {
    ParseResult code;
    std::size_t offset;
};

struct Case {
    std::string text;
    std::string fate;       ///< "handler", "error", "silent" or "never"
    std::string requestID;  ///< of "handler" and "error"
    std::vector<Failure> failures;
};

std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, separator);) {
        fields.push_back(field);
    }
    return fields;
}

Case parseCase(const std::string& line) {
    const auto fields = split(line, '\t');
    Case result;
    result.text = unescape(fields.at(0));
    const std::string& fate = fields.at(2);
    result.fate = fate.substr(0, fate.find(' '));
    if (const auto open = fate.find('\''); open != std::string::npos) {
        result.requestID = unescape(fate.substr(open + 1, fate.rfind('\'') - open - 1));
    }
    if (fields.at(3) != "-") {
        for (const auto& failure : split(fields.at(3), ' ')) {
            const auto at = failure.find('@');
            result.failures.push_back({static_cast<ParseResult>(std::stoi(failure.substr(0, at))),
                                       std::stoul(failure.substr(at + 1))});
        }
    }
    return result;
}

std::vector<Case> casesOfFate(const std::string& fate) {
    std::ifstream file(GRAMMAR_CASES_FILE);
    EXPECT_TRUE(file) << GRAMMAR_CASES_FILE;
    std::vector<Case> cases;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("#")) {
            continue;
        }
        if (auto parsed = parseCase(line); parsed.fate == fate) {
            cases.push_back(std::move(parsed));
        }
    }
    return cases;
}

/// A connection that records its requests, and the service behind it.
struct Wire {
    const std::shared_ptr<FakeMessageService> service = FakeMessageService::create();
    std::vector<std::string> handled;
    YVMConnection connection{
        service, "/base", [this](const BaseRequest& request) { handled.push_back(request.getRequestID()); }};

    void deliver(const std::string& text) { service->deliver("/base/request", text); }
};

/// The string as its reader gets it: what is no UTF-8 has become the replacement character.
std::string asOnTheWire(const std::string& text) {
    return fl::i18n::to_string(fl::i18n::to_ustring(text));
}

/// The text of the parse failure that the client reads: of the last one, in the text as repaired until then.
std::string lastFailureText(const Case& damaged) {
    std::string text = damaged.text;
    const auto& last = damaged.failures.back();
    for (const auto& failure : damaged.failures) {
        if (&failure == &last) {
            break;
        }
        switch (static_cast<int>(failure.code)) {
            case 8:
                text.insert(failure.offset, "\"");
                break;
            case 18:
                text.insert(failure.offset, ":");
                break;
            default:
                text.erase(failure.offset, 1);
        }
    }
    return foundation::json::ParserException(last.code, get_parse_result_description(last.code), text,
                                             last.offset)
        .what();
}

TEST(GrammarCases, AValidRequestReachesTheHandler) {
    const auto cases = casesOfFate("handler");
    EXPECT_EQ(cases.size(), 17U);
    for (const auto& valid : cases) {
        Wire wire;
        wire.deliver(valid.text);
        EXPECT_EQ(wire.handled, std::vector<std::string>{valid.requestID}) << valid.text;
        EXPECT_TRUE(wire.service->publications().empty()) << valid.text;
    }
}

TEST(GrammarCases, ADamagedRequestWhoseIDCanBeFoundIsAnsweredByItsLastFailure) {
    const auto cases = casesOfFate("error");
    EXPECT_EQ(cases.size(), 57U);
    for (const auto& damaged : cases) {
        SCOPED_TRACE(damaged.text);
        Wire wire;
        wire.deliver(damaged.text);
        EXPECT_TRUE(wire.handled.empty());
        const auto publications = wire.service->publications();
        ASSERT_EQ(publications.size(), 1U);
        EXPECT_EQ(publications.front().channel, "/base/response");
        const auto response = publications.front().json();
        EXPECT_EQ(test::memberOf(response, "requestID").as<std::string>(), asOnTheWire(damaged.requestID));
        test::expectPlainError(response, 5, asOnTheWire(lastFailureText(damaged)));
    }
}

TEST(GrammarCases, ATextBeyondRepairIsNotAnswered) {
    const auto cases = casesOfFate("silent");
    EXPECT_EQ(cases.size(), 287U);
    for (const auto& beyondRepair : cases) {
        Wire wire;
        wire.deliver(beyondRepair.text);
        EXPECT_TRUE(wire.handled.empty()) << beyondRepair.text;
        EXPECT_TRUE(wire.service->publications().empty()) << beyondRepair.text;
    }
}

/// Kills this process when it has computed for that long. Not by the wall clock: the claim is that the
/// delivering thread computes without end, and a busy machine must not make it true.
void killAfterComputing(std::chrono::microseconds time) {
    const itimerval limit{{0, 0}, {0, static_cast<suseconds_t>(time.count())}};
    setitimer(ITIMER_VIRTUAL, &limit, nullptr);
    alarm(20);  // for a process that neither ends nor computes
}

TEST(GrammarCasesDeathTest, ATextWithoutEndKeepsItsDeliveringThread) {
    const auto cases = casesOfFate("never");
    EXPECT_EQ(cases.size(), 49U);
    for (const auto& endless : cases) {
        SCOPED_TRACE(endless.text);
        // The exit code of a child that returned tells whether it had published anything.
        EXPECT_EXIT(
            {
                Wire wire;
                killAfterComputing(std::chrono::milliseconds(50));
                wire.deliver(endless.text);
                _exit(wire.service->publications().empty() ? 0 : 1);
            },
            testing::KilledBySignal(SIGVTALRM), "");
    }
}

TEST(GrammarCasesDeathTest, NothingIsPublishedWhileTheThreadIsKept) {
    EXPECT_EXIT(
        {
            Wire wire;
            std::thread([&wire] { wire.deliver("{}"); }).detach();
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
            while (std::chrono::steady_clock::now() < deadline) {
                if (!wire.service->publications().empty() || !wire.handled.empty()) {
                    _exit(1);
                }
                std::this_thread::yield();
            }
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace yvm::JSClient
