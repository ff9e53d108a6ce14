#include "cmddistributor/CmdRequest.hpp"
#include "engine/Engine.hpp"
#include "fl/i18n/ustring.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace yvm::engine {
namespace {

using cmddistributor::CmdDistributor;
using cmddistributor::RuntimeException;
using IDType = CmdDistributor::IDType;

constexpr std::chrono::seconds deadline{60};

/// A folder that goes with the test.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "engine-start-XXXXXX";
        path = ::mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path write(const std::string& name, const std::string& text) const {
        std::ofstream(path / name) << text;
        return path / name;
    }

    std::filesystem::path path;
};

/// Answers nothing, and waits for the one request for a line that comes while it lives.
class Asked {
  public:
    explicit Asked(Engine& engine)
        : connection_(engine.getEventMgr()->subscribe(
              [this](const foundation::msg_svc::eventmgr::BaseEvent&) { asked_.set_value(); }, &tag_,
              &tag_ + 1)) {}

    /// Blocks until it has come; false at the deadline.
    bool inTime() { return asked_.get_future().wait_for(deadline) == std::future_status::ready; }

  private:
    const std::u16string tag_ = u"services::prompt::InputRequestEvent";
    std::promise<void> asked_;
    const std::unique_ptr<foundation::msg_svc::eventmgr::Connection> connection_;
};

/// A process can start one engine, so each test starts its own in a process of its own.
class EngineStart : public ::testing::Test {
  protected:
    EngineStart() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    /// Collects what the engine writes to the console.
    EngineOptions withConsole() {
        EngineOptions options;
        options.console = [this](std::string_view text, bool error) {
            const std::lock_guard lock(mutex_);
            console_ += error ? "[err]" : "";
            console_ += text;
        };
        return options;
    }
    std::string console() {
        const std::lock_guard lock(mutex_);
        return console_;
    }

    /// Submits a command, and returns the future of its failure; an empty text stands for success.
    static std::future<std::string> submit(Engine& engine, const std::string& source, IDType id = {}) {
        auto promise = std::make_shared<std::promise<std::string>>();
        auto future = promise->get_future();
        engine.getCmdDistributor()->enqueueWithFuture<void>(
            std::make_shared<cmddistributor::EvalCmdRequest>(false, -2, nullptr, nullptr,
                                                             fl::i18n::to_ustring(source), "test"),
            [promise](boost::future<void> result) {
                try {
                    result.get();
                    promise->set_value("");
                } catch (const RuntimeException& error) {
                    promise->set_value(error.GetID() + (error.getShutdown() ? " at shutdown" : ""));
                }
            },
            {}, id, nullptr);
        return future;
    }

    static void expect(bool condition, const std::string& what) {
        if (!condition) {
            std::cerr << "not as expected: " << what << std::endl;
            std::_Exit(1);
        }
    }
    void expectConsole(const std::string& expected) {
        expect(console() == expected, "the console has \"" + console() + "\"");
    }

    /// Runs `body` in a process of its own, which has to end by itself.
    static void inOwnProcess(const std::function<void()>& body) {
        EXPECT_EXIT(
            {
                body();
                std::cerr << "the body has ended" << std::endl;
                std::exit(0);
            },
            testing::ExitedWithCode(0), "the body has ended");
    }

    /// Why an engine does not start.
    static void expectRefusal(const EngineOptions& options, const std::string& why) {
        EXPECT_EXIT(
            {
                try {
                    Engine::start(options);
                } catch (const std::runtime_error& error) {
                    std::cerr << error.what() << std::endl;
                    std::exit(error.what() == why ? 0 : 1);
                }
                std::cerr << "it starts" << std::endl;
                std::exit(1);
            },
            testing::ExitedWithCode(0), "");
    }

  private:
    std::mutex mutex_;
    std::string console_;  // guarded by mutex_
};

TEST_F(EngineStart, TheStartUpScriptRunsInTheWorkspaceBeforeTheFirstCommand) {
    const TemporaryFolder folder;
    EngineOptions options = withConsole();
    options.startupFile =
        folder.write("start.py", "print('starting')\ndef helper(): return __file__ if 0 else 'helped'\n");
    inOwnProcess([&] {
        const auto engine = Engine::start(options);
        expectConsole("starting\n");
        expect(submit(*engine, "print(helper())").get().empty(), "the command succeeds");
        expectConsole("starting\nhelped\n");
    });
}

TEST_F(EngineStart, AStartUpScriptThatRaisesIsToldWithItsLine) {
    const TemporaryFolder folder;
    EngineOptions options;
    options.startupFile = folder.write("start.py", "a = 1\n1/0\n");
    const std::string file = options.startupFile->string();
    expectRefusal(options, "the start-up script " + file + " failed in line 2 of " + file +
                               ": ZeroDivisionError: division by zero");
    options.startupFile = folder.write("broken.py", "a = = 1\n");
    expectRefusal(options, "the start-up script " + options.startupFile->string() + " failed in line 1 of " +
                               options.startupFile->string() +
                               ": SyntaxError: invalid syntax (broken.py, line 1)");
}

TEST_F(EngineStart, MissingFilesAndFoldersAreNamed) {
    EngineOptions options;
    options.startupFile = "/nowhere/start.py";
    expectRefusal(options, "the start-up script /nowhere/start.py is no file");
    options = {};
    options.workingFolder = "/nowhere";
    expectRefusal(options, "the working folder /nowhere is no folder");
    options = {};
    options.venv = "/nowhere";
    expectRefusal(options, "the virtual environment /nowhere is no folder");
}

TEST_F(EngineStart, AFolderThatIsNoEnvironmentOfThisPythonIsRefused) {
    const TemporaryFolder folder;
    EngineOptions options;
    options.venv = folder.path;
    expectRefusal(options,
                  "the folder " + folder.path.string() + " is no virtual environment: it has no pyvenv.cfg");
    folder.write("pyvenv.cfg", "home = /usr/bin\nversion = 3.9.1\n");
    expectRefusal(options, "the virtual environment " + folder.path.string() +
                               " is not of Python 3.11: it has no " +
                               (folder.path / "lib/python3.11/site-packages").string());
}

TEST_F(EngineStart, PackagesOfAnEnvironmentComeFirstAndNumPyFromTheSystem) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.path / "lib/python3.11/site-packages");
    std::filesystem::create_directories(folder.path / "bin");
    folder.write("pyvenv.cfg", "home = /usr/bin\ninclude-system-site-packages = false\nversion = 3.11.2\n");
    folder.write("lib/python3.11/site-packages/only_here.py", "value = 'from the environment'\n");
    EngineOptions options = withConsole();
    options.venv = folder.path;
    inOwnProcess([&] {
        const auto engine = Engine::start(options);
        expect(
            submit(*engine,
                   "import only_here, numpy, sys; print(only_here.value, sys.prefix, numpy.arange(2).sum())")
                .get()
                .empty(),
            "the command succeeds");
        expectConsole("from the environment " + folder.path.string() + " 1\n");
    });
}

TEST_F(EngineStart, TheWorkingFolderIsThatOfTheProcessAndOfImports) {
    const TemporaryFolder folder;
    folder.write("beside.py", "name = 'beside'\n");
    EngineOptions options = withConsole();
    options.workingFolder = folder.path;
    inOwnProcess([&] {
        const auto engine = Engine::start(options);
        expect(submit(*engine, "import beside, os; print(beside.name, os.getcwd())").get().empty(),
               "it succeeds");
        expectConsole("beside " + std::filesystem::canonical(folder.path).string() + "\n");
    });
}

TEST_F(EngineStart, StopInterruptsWhatRunsAndFailsWhatWaits) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        const auto distributor = engine->getCmdDistributor();
        auto running = submit(*engine, "print('runs')\nwhile True: pass");
        while (console() != "runs\n") {
            std::this_thread::yield();
        }
        auto waiting = submit(*engine, "1;");
        engine->stop(deadline);
        expect(running.get() == "yvm.Interrupt", "the running command is interrupted");
        expect(waiting.get() == "yvm:shutDown at shutdown", "the waiting command fails");
        expect(engine->getCmdDistributor() == nullptr, "there is no distributor any more");
        engine->interrupt();
        engine->stop(deadline);
    });
}

TEST_F(EngineStart, StopLeavesAStopInTheDebuggerAndAnswersBreakpointsThatComeTooLate) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        std::promise<void> stopped;
        const std::u16string tag = u"yvm::DebuggerStoppedEvent";
        const auto connection = engine->getEventMgr()->subscribe(
            [&stopped](const foundation::msg_svc::eventmgr::BaseEvent&) { stopped.set_value(); }, &tag,
            &tag + 1);
        auto running = submit(*engine, "breakpoint()");
        expect(stopped.get_future().wait_for(deadline) == std::future_status::ready, "it stops");
        const auto debugger = engine->getDebugger();
        engine->stop(deadline);
        expect(running.get() == "yvm.Interrupt", "the stopped command is interrupted");
        std::promise<std::string> refused;
        debugger->clearAllBreakpoints<void>([&refused](const boost::shared_future<void>& outcome) {
            try {
                outcome.get();
                refused.set_value("done");
            } catch (const std::exception& error) {
                refused.set_value(error.what());
            }
        });
        expect(refused.get_future().get() == "The engine shut down.", "there are no breakpoints any more");
        engine->breakInDebugger();
    });
}

TEST_F(EngineStart, WithTheWaitsEndedNoCommandWaitsForAClientAndTheOthersRun) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        Asked asked(*engine);
        auto waiting = submit(*engine, "input()");
        expect(asked.inTime(), "it asks");
        auto later = submit(*engine, "breakpoint()");
        auto endless = submit(*engine, "import yvm; yvm.pause(float('inf'))");
        auto brief = submit(*engine, "yvm.pause(0.01); print('paused')");
        engine->endWaits();
        expect(waiting.get() == "EOFError", "the wait for a line ends");
        expect(later.get() == "yvm.Interrupt", "a stop in the debugger ends");
        expect(endless.get() == "yvm.Interrupt", "a pause without end ends");
        expect(brief.get().empty() && console().ends_with("paused\n"), "a pause with an end comes to it");
        expect(engine->stop(deadline), "the engine ends");
    });
}

TEST_F(EngineStart, WithTheWaitsEndedTheRequestOfAThreadEndsToo) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        Asked asked(*engine);
        auto joining = submit(*engine,
                              "import threading\n"
                              "def ask():\n"
                              "    try: input()\n"
                              "    except EOFError as error: print(error)\n"
                              "thread = threading.Thread(target=ask); thread.start(); thread.join()");
        expect(asked.inTime(), "it asks");
        engine->endWaits();
        expect(joining.get().empty() && console() == "the engine stops\n", "the thread is told");
        engine->stop(deadline);
    });
}

TEST_F(EngineStart, StopGivesUpAtItsBoundOnWhatCannotBeInterrupted) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        auto running = submit(*engine,
                              "import ctypes\nlibc = ctypes.CDLL(None)\ntold = False\n"
                              "while True:\n    try:\n"
                              "        if not told:\n            told = True\n            print('runs')\n"
                              "        libc.pause()\n    except: pass");
        while (console() != "runs\n") {
            std::this_thread::yield();
        }
        expect(!engine->stop(std::chrono::milliseconds(50)), "it tells so");
        expect(running.wait_for(std::chrono::seconds(0)) != std::future_status::ready,
               "it is left unanswered");
    });
}

TEST_F(EngineStart, StopRunsWhatWasRegisteredForTheExit) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        expect(submit(*engine, "import atexit\natexit.register(print, 'goodbye');").get().empty(),
               "it succeeds");
        engine->stop(deadline);
        expectConsole("goodbye\n");
    });
}

TEST_F(EngineStart, AChildThatIsForkedAtTheExitEndsThere) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        expect(submit(*engine,
                      "import atexit, os\n"
                      "def split():\n"
                      "    pid = os.fork()\n"
                      "    if pid: print(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))\n"
                      "atexit.register(split);")
                   .get()
                   .empty(),
               "it succeeds");
        engine->stop(deadline);
        expectConsole("0\n");
    });
}

TEST_F(EngineStart, AThreadOfTheStartUpScriptThatForksEndsItsChild) {
    const TemporaryFolder folder;
    inOwnProcess([&] {
        auto options = withConsole();
        options.startupFile =
            folder.write("start.py",
                         "import os, threading\n"
                         "def work():\n"
                         "    pid = os.fork()\n"
                         "    if pid: print(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))\n"
                         "t = threading.Thread(target=work); t.start(); t.join()\n");
        const auto engine = Engine::start(options);
        expectConsole("0\n");
        engine->stop(deadline);
    });
}

TEST_F(EngineStart, AThreadOfTheUserDoesNotDisturbTheEndOfTheProcess) {
    inOwnProcess([&] {
        const auto engine = Engine::start(withConsole());
        expect(submit(*engine,
                      "import threading\n"
                      "def chatter():\n    while True: print('chatter')\n"
                      "for i in range(4): threading.Thread(target=chatter).start()")
                   .get()
                   .empty(),
               "it succeeds");
        engine->stop(deadline);
    });
}

TEST_F(EngineStart, ThePromptServesAfterAnEngineThatDidNotStartForABadOption) {
    inOwnProcess([&] {
        EngineOptions bad;
        bad.workingFolder = "/nowhere";
        try {
            Engine::start(bad);
        } catch (const std::runtime_error&) {
            const auto engine = Engine::start(withConsole());
            expect(submit(*engine, "print(1)").get().empty(), "it succeeds");
            expectConsole("1\n");
            return;
        }
        expect(false, "the bad option is refused");
    });
}

/// An engine that takes the descriptors 1 and 2.
class CapturedDescriptors : public EngineStart {
  protected:
    /// Runs a command, and compares all text that it wrote.
    void expectText(const std::string& source, const std::string& expected) {
        auto options = withConsole();
        options.captureDescriptors = true;
        inOwnProcess([&] {
            const auto engine = Engine::start(options);
            const std::string failure = submit(*engine, source).get();
            const std::string text = console();  // Nothing of it comes later than the completion.
            engine->stop(deadline);              // Or the report would be text of the engine.
            expect(failure.empty(), "the command fails: " + failure);
            expect(text == expected, "the console has \"" + text + "\"");
        });
    }
};

TEST_F(CapturedDescriptors, WhatIsWrittenThereIsTextOfTheCommand) {
    expectText("import os\nn = os.write(1, b'out\\n')\n", "out\n");
    expectText("import os\nn = os.write(2, b'bad\\n')\n", "[err]bad\n");
}

TEST_F(CapturedDescriptors, TextInTheBufferOfTheCLibraryLeavesWithTheCommand) {
    expectText("import ctypes\nn = ctypes.CDLL(None).printf(b'in the buffer')\n", "in the buffer");
}

TEST_F(CapturedDescriptors, ProgramsAndForkedChildrenInheritThem) {
    expectText("import subprocess\nn = subprocess.call(['echo', 'program'])\n", "program\n");
    expectText(
        "import os\npid = os.fork()\nif pid == 0: print('child'); os._exit(0)\nr = os.waitpid(pid, 0)\n",
        "child\n");
}

TEST_F(CapturedDescriptors, BadTextAndACutCharacterAreReplaced) {
    expectText("import os\nn = os.write(1, b'\\xff<\\xf0\\x9f\\x98\\x80>\\xf0\\x9f')\n",
               "\uFFFD<\U0001F600>\uFFFD");
}

TEST_F(CapturedDescriptors, ACharacterThatComesInPartsIsWhole) {
    expectText(
        "import os, time\nfor byte in '\U0001F600'.encode(): os.write(1, bytes([byte])); time.sleep(0.001)\n",
        "\U0001F600");
}

TEST_F(CapturedDescriptors, AFloodIsReadWhileTheCommandRuns) {
    // More than the pipe holds: it would never end if nobody read.
    expectText("import os\nfor i in range(300): os.write(1, b'x' * 10_000)\n", std::string(3'000'000, 'x'));
}

TEST_F(CapturedDescriptors, TheLastWordsOfACrashReachTheOriginal) {
    EXPECT_EXIT(
        {
            // Who reads the descriptors is stuck in the console, and cannot read the last words himself.
            int stuck[2];
            ASSERT_EQ(::pipe(stuck), 0);
            EngineOptions options;
            options.captureDescriptors = true;
            options.console = [&stuck](std::string_view, bool) {
                if (::write(stuck[1], "x", 1) == 1) {
                    ::pause();
                }
            };
            const auto engine = Engine::start(options);
            submit(*engine, "import os\nos.write(1, b'first'); os.read(" + std::to_string(stuck[0]) +
                                ", 1); os.write(2, b'last words'); os.abort()")
                .wait();
        },
        testing::KilledBySignal(SIGABRT), "last words");
}

TEST_F(CapturedDescriptors, AProgramThatOutlivesItsCommandHoldsNobodyUp) {
    expectText("import subprocess\nsubprocess.Popen(['sleep', '5']);\nprint('done')", "done\n");
}

}  // namespace
}  // namespace yvm::engine
