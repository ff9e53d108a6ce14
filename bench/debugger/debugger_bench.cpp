// What code costs while a breakpoint stands that it does not come by, beside Python's own debugger in the
// same interpreter and debugpy in a process of its own; and how soon the engine acts. Prints each figure with
// its goal.

#include "bench/goals.hpp"
#include "cmddistributor/CmdRequest.hpp"
#include "engine/Engine.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/DebuggerStoppedEvent.hpp"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using bench::goal;
using bench::median;
using cmddistributor::CmdDistributor;
using cmddistributor::RunOptions;
using Clock = std::chrono::steady_clock;
using IDType = CmdDistributor::IDType;
using YorWorks::lxe::LineBreakpoint;
using Array = foundation::yorlabdata::Array;

const std::string folder = YVM_BENCH_FOLDER;

class Subject {
  public:
    explicit Subject(yvm::engine::Engine& engine) : engine_(engine) {
        eval("import sys; sys.dont_write_bytecode = True; sys.path.insert(0, '" + folder +
             "'); import subject")
            .get();
    }

    std::future<void> eval(const std::string& source) {
        const auto promise = std::make_shared<std::promise<void>>();
        auto request = std::make_shared<cmddistributor::EvalCmdRequest>(
            false, -2, nullptr, nullptr, fl::i18n::to_ustring(source), "bench");
        engine_.getCmdDistributor()->enqueueWithFuture<void>(
            std::move(request),
            [promise](boost::future<void> result) { settle(*promise, std::move(result)); }, RunOptions(),
            IDType(), nullptr);
        return promise->get_future();
    }

    double feval(const std::string& function) {
        const auto promise = std::make_shared<std::promise<double>>();
        auto request = std::make_shared<cmddistributor::FEvalCmdRequest>(
            cmddistributor::FEvalIIP{function, {}, 1}, -2, nullptr, nullptr, "bench");
        engine_.getCmdDistributor()->enqueueWithFuture<std::vector<Array>>(
            std::move(request),
            [promise](boost::future<std::vector<Array>> result) {
                try {
                    promise->set_value(result.get().at(0).data<double>()[0]);
                } catch (...) {
                    promise->set_exception(std::current_exception());
                }
            },
            RunOptions(), IDType(), nullptr);
        return promise->get_future().get();
    }

    /// Returns when the engine has acted.
    void setBreakpoint(const std::string& function) {
        wait([this, &function](auto callback) {
            engine_.getDebugger()->setBreakpoint<void>(at(function), std::move(callback));
        });
    }
    void clearBreakpoints() {
        wait(
            [this](auto callback) { engine_.getDebugger()->clearAllBreakpoints<void>(std::move(callback)); });
    }

  private:
    static void settle(std::promise<void>& promise, boost::future<void> result) {
        try {
            result.get();
            promise.set_value();
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    }

    LineBreakpoint at(const std::string& function) const {
        return {fl::i18n::to_ustring(folder + "/subject.py"), LineBreakpoint::Location(function)};
    }

    template <typename Act>
    static void wait(Act act) {
        std::promise<void> done;
        act([&done](boost::shared_future<void> outcome) {
            try {
                outcome.get();
                done.set_value();
            } catch (...) {
                done.set_exception(std::current_exception());
            }
        });
        done.get_future().get();
    }

    yvm::engine::Engine& engine_;
};

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

/// Ratios of loop and calls under debugpy, measured by itself.
std::array<double, 2> askDebugpy() {
    const std::string command =
        "PYDEVD_DISABLE_FILE_VALIDATION=1 PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -Xfrozen_modules=off " +
        folder + "/debugpy_peer.py";
    std::FILE* output = ::popen(command.c_str(), "r");
    std::array<double, 2> ratios{};
    if (output == nullptr || std::fscanf(output, "%lf %lf", &ratios[0], &ratios[1]) != 2 ||
        ::pclose(output) != 0) {
        throw std::runtime_error("debugpy was not measured");
    }
    return ratios;
}

void measureRatios(Subject& subject) {
    constexpr int rounds = 15;
    const auto debugpy = askDebugpy();
    const std::array<std::string, 2> works{"loop", "calls"};
    for (std::size_t i = 0; i < works.size(); ++i) {
        const std::string time = "subject.time_" + works[i];
        std::vector<double> withOne;
        std::vector<double> withNone;
        std::vector<double> underBdb;
        for (int round = 0; round < rounds; ++round) {
            const double plain = subject.feval(time);
            // The one just before has had its breakpoint: nothing of it may be left.
            subject.setBreakpoint("other");
            withOne.push_back(subject.feval(time) / plain);
            subject.clearBreakpoints();
            withNone.push_back(subject.feval(time) / plain);
            if (round % 5 == 0) {
                underBdb.push_back(subject.feval(time + "_under_bdb") / plain);
            }
        }
        std::printf("\n%s, as a ratio to no debugger: bdb %.1f, debugpy %.2f\n", works[i].c_str(),
                    median(underBdb), debugpy[i]);
        goal(median(withNone) < 1.01, "no breakpoint left", median(withNone), "times", "below 1.01");
        goal(median(withOne) <= median(underBdb) / 4, "one in another function", median(withOne), "times",
             "at most a quarter of bdb's");
        goal(median(withOne) <= debugpy[i], "the same", median(withOne), "times", "at most debugpy's");
    }
}

void measureDelays(yvm::engine::Engine& engine, Subject& subject) {
    constexpr int rounds = 500;
    std::vector<double> sets;
    for (int round = 0; round < rounds; ++round) {
        const auto begin = Clock::now();
        subject.setBreakpoint("other");
        sets.push_back(microseconds(Clock::now() - begin));
        subject.clearBreakpoints();
    }
    std::counting_semaphore<> stopped(0);
    Clock::time_point stoppedAt;
    const std::u16string tag = u"yvm::DebuggerStoppedEvent";
    const auto connection = engine.getEventMgr()->subscribe(
        [&](const foundation::msg_svc::eventmgr::BaseEvent&) {
            stoppedAt = Clock::now();
            stopped.release();
        },
        &tag, &tag + 1);

    std::vector<double> hits;
    subject.setBreakpoint("behind_hit");
    for (int round = 0; round < rounds; ++round) {
        auto command = subject.eval("subject.hit(); subject.behind_hit();");
        stopped.acquire();
        subject.eval("import yvm; yvm.debug.resume()").get();
        command.get();
        hits.push_back(microseconds(stoppedAt.time_since_epoch()) -
                       subject.feval("subject.last_stamp") / 1e3);
    }
    subject.clearBreakpoints();

    std::vector<double> steps;
    subject.setBreakpoint("lines");
    auto command = subject.eval("subject.lines()");
    stopped.acquire();
    for (int round = 0; round < rounds; ++round) {
        const auto begin = Clock::now();
        subject.eval("import yvm; yvm.debug.step()").get();
        stopped.acquire();
        steps.push_back(microseconds(stoppedAt - begin));
    }
    subject.eval("import yvm; yvm.debug.quit()").get();
    try {
        command.get();
    } catch (const cmddistributor::RuntimeException&) {
        // It was quit.
    }

    std::printf("\nin the process\n");
    goal(median(sets) < 1000, "set, to its answer", median(sets), "us", "below 1000");
    goal(median(hits) < 1000, "hit, to the stop event", median(hits), "us", "below 1000");
    goal(median(steps) < 2000, "step, to the next stop event", median(steps), "us", "below 2000");
}

}  // namespace

int main() {
    try {
        const auto engine = yvm::engine::Engine::start({});
        Subject subject(*engine);
        measureRatios(subject);
        measureDelays(*engine, subject);
        std::fflush(stdout);
        engine->stop(std::chrono::seconds(5));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        std::_Exit(EXIT_FAILURE);
    }
    std::_Exit(EXIT_SUCCESS);
}
