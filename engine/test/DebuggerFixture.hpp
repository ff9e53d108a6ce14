#pragma once

#include "engine/test/EngineFixture.hpp"
#include "engine/test/EventRecorder.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace yvm::engine::test {

using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;
using Location = LineBreakpoint::Location;
using Condition = GlobalBreakpoint::Condition;

inline const char* nameOf(DebuggerStoppedEvent::Reason reason) {
    static constexpr std::array<const char*, 8> names{"breakpoint", "step",   "break", "error",
                                                      "warning",    "caught", "nan",   "output"};
    return names.at(static_cast<std::size_t>(reason));
}

/// "breakpoint f:2", the function being bare.
inline std::string placeOf(const DebuggerStoppedEvent& event) {
    const auto& frames = event.frames();
    return std::string(nameOf(event.reason())) + " " +
           (frames.empty() ? "nowhere"
                           : frames.back().functionName + ":" + std::to_string(frames.back().lineNumber));
}

/// The outcome of an operation: empty when it went well, else the text of the error.
class Operation {
  public:
    ylutil::debugger::Debugger::Callback<void> callback() {
        return [promise = promise_](const boost::shared_future<void>& outcome) {
            try {
                outcome.get();
                promise->set_value("");
            } catch (const std::exception& error) {
                promise->set_value(error.what());
            }
        };
    }
    std::string wait() {
        if (future_.wait_for(deadline) != std::future_status::ready) {
            throw std::runtime_error("the operation was not answered");
        }
        return future_.get();
    }

  private:
    std::shared_ptr<std::promise<std::string>> promise_ = std::make_shared<std::promise<std::string>>();
    std::future<std::string> future_ = promise_->get_future();
};

/// Leaves the engine without breakpoints and stops.
class DebuggerTest : public EngineTest {
  public:
    void TearDown() override {
        EXPECT_EQ(clearAll(), "");
        // What a test that failed has left stopped would stop those that follow.
        while (true) {
            try {
                submitFeval("yvm.debug.quit", {}, 0).get();
            } catch (const RuntimeException&) {
                return;
            }
        }
    }

    static ylutil::debugger::Debugger& debugger() { return *engine()->getDebugger(); }

    template <typename Breakpoint>
    static std::string set(const Breakpoint& breakpoint) {
        Operation operation;
        debugger().setBreakpoint<void>(breakpoint, operation.callback());
        return operation.wait();
    }
    template <typename Breakpoint>
    static std::string clear(const Breakpoint& breakpoint) {
        Operation operation;
        debugger().clearBreakpoint<void>(breakpoint, operation.callback());
        return operation.wait();
    }
    static std::string clearAll() {
        Operation operation;
        debugger().clearAllBreakpoints<void>(operation.callback());
        return operation.wait();
    }

    /// The name under which the next command of this text runs.
    static std::u16string nameOf(const std::string& source) {
        return feval("yvm.debug.name_command", {text(source)}).text();
    }
    /// Sets a breakpoint in that command.
    static std::string setInCommand(const std::string& source, unsigned long long line) {
        return set(LineBreakpoint(nameOf(source), Location(line)));
    }

    static Submission atDebugPrompt() { return inMode(DequeueMode::DEQUEUE_AT_DEBUG_PROMPT); }
    /// Runs a command at the debug prompt and returns its text.
    static std::string evalStopped(const std::string& source) {
        auto submitted = submitEval(source, atDebugPrompt());
        submitted.get();
        return submitted.transcript->text();
    }
    /// As "resume" or "step".
    static void act(const std::string& action) { evalStopped("import yvm; yvm.debug." + action + "()"); }

    static Submission withoutControlOutput() {
        Submission submission;
        submission.runOptions.setSuppressDebugControlOutput(true);
        return submission;
    }

    /// A module of that name in the working folder, which has not been imported.
    static std::u16string writeModule(const std::string& name, const std::string& source) {
        const auto path = std::filesystem::current_path() / (name + ".py");
        std::ofstream(path) << source;
        // Python would overlook a file as young as its last look at the folder.
        eval("import importlib, sys\nimportlib.invalidate_caches()\nsys.modules.pop('" + name + "', None);");
        return fl::i18n::to_ustring(path.string());
    }

    EventRecorder<DebuggerStoppedEvent> stops{placeOf};
};

}  // namespace yvm::engine::test
