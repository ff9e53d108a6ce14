#include "engine/Engine.hpp"

#include "engine/detail/EngineThread.hpp"
#include "engine/detail/TextFile.hpp"
#include "ylutil/io/ActiveCmdWinSinkBufferProxy.hpp"
#include "ylutil/io/TextBaseEvent.hpp"
#include "yvm/Factory.hpp"

#include <pthread.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace yvm::engine {

namespace {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventHandler;
using foundation::msg_svc::eventmgr::EventMgr;

/// Deep recursion of Python's own C code wants more than the usual stack; unused, it costs address space.
constexpr std::size_t stackSize = std::size_t{64} << 20U;

/// How often a stop asks a command again that swallowed its interrupt.
constexpr std::chrono::milliseconds interruptAgain{500};

std::atomic<bool> hasStarted{false};

void checkOptions(const EngineOptions& options) {
    if (options.workingFolder && !std::filesystem::is_directory(*options.workingFolder)) {
        throw std::runtime_error("the working folder " + options.workingFolder->string() + " is no folder");
    }
    if (options.startupFile && !std::filesystem::is_regular_file(*options.startupFile)) {
        throw std::runtime_error("the start-up script " + options.startupFile->string() + " is no file");
    }
}

/// Detached, as the thread of an engine that does not end in time is left behind. By the C interface, for
/// the sake of the stack's size.
void startThread(std::function<void()> body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    const auto run = [](void* argument) -> void* {
        const std::unique_ptr<std::function<void()>> toRun(static_cast<std::function<void()>*>(argument));
        (*toRun)();
        return nullptr;
    };
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, run, owned.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "the engine's thread does not start");
    }
    static_cast<void>(owned.release());  // It is the thread's now.
}

/// As it stands now: the working folder is about to change.
std::optional<std::filesystem::path> absolute(const std::optional<std::filesystem::path>& path) {
    return path ? std::optional(std::filesystem::absolute(*path)) : std::nullopt;
}

}  // namespace

class Engine::Parts {
  public:
    explicit Parts(const EngineOptions& options)
        : thread(options.console, options.outputGate, options.commandEnded) {
        thread.events().manager()->setCommandHandlerLookup(
            [this, commands = thread.commands()](const IDType& id, const std::u16string& name) {
                const auto command = commands->find(id);
                if (command == nullptr) {
                    return EventHandler();
                }
                const auto& callbacks = command->runOptions().getCallbacks();
                if (const auto callback = callbacks.find(name); callback != callbacks.end()) {
                    return EventHandler(callback->second);
                }
                if (name == u"ylutil::io::TextBaseEvent" && command->runOptions().hasDefaultCallbacks()) {
                    return EventHandler([this](const BaseEvent& event) { showText(event); });
                }
                return EventHandler();
            });
    }

    /// From now on text is copied, where the traits of its sink ask for it, to files of the working folder.
    void startCopyingText() {
        const auto folder = std::filesystem::current_path();
        diary.emplace(folder / "yvm-diary.txt", TextFile::Lines::Plain);
        log.emplace(folder / "yvm-log.txt", TextFile::Lines::WithTimes);
        ylutil::io::ActiveCmdWinSinkBufferProxy::setReceivers(
            [this](std::u16string_view text, bool) { log->write(text); },
            [this](std::u16string_view text, bool) { diary->write(text); });
    }

    /// Text events that nobody takes are shown where text goes that no stream of a command takes.
    void showText(const BaseEvent& event) {
        const auto& text = dynamic_cast<const ylutil::io::TextBaseEvent&>(event);
        thread.output().writeToDefaults(text.stream(), text.text());
    }

    EngineThread thread;
    std::optional<TextFile> diary;
    std::optional<TextFile> log;
    std::promise<void> ready;
    std::promise<void> ended;
    std::future<void> hasEnded = ended.get_future();  // guarded by stopMutex
    std::mutex stopMutex;
    std::atomic<bool> stopped{false};
};

std::shared_ptr<Engine> Engine::start(const EngineOptions& options) {
    if (hasStarted.exchange(true)) {
        throw std::logic_error("an engine was started in this process before; there can be one only");
    }
    try {
        checkOptions(options);
    } catch (...) {
        hasStarted = false;  // Nothing was started.
        throw;
    }
    // Never destroyed: threads of the user may be writing text while the engine and the process end.
    static Parts* parts = nullptr;
    parts = new Parts(options);
    const auto venv = absolute(options.venv);
    const auto startupFile = absolute(options.startupFile);
    if (options.workingFolder) {
        std::filesystem::current_path(*options.workingFolder);
    }
    parts->startCopyingText();
    if (options.captureDescriptors) {
        parts->thread.output().captureDescriptors();
    }
    auto ready = parts->ready.get_future();
    startThread([venv, startupFile] { parts->thread.run(venv, startupFile, parts->ready, parts->ended); });
    try {
        ready.get();
    } catch (...) {
        parts->thread.output().releaseDescriptors();
        throw;
    }
    std::shared_ptr<Engine> engine(new Engine(*parts));
    Factory::setCurrentLocalYVM(engine);
    return engine;
}

Engine::Engine(Parts& parts) : parts_(parts) {}

Engine::~Engine() {
    stop(std::chrono::seconds(5));
}

void Engine::endWaits() {
    parts_.thread.endWaits();
}

bool Engine::stop(std::chrono::milliseconds bound) {
    const std::lock_guard lock(parts_.stopMutex);
    const auto hasEndedBy = [this](EngineThread::Clock::time_point time) {
        return parts_.hasEnded.wait_until(time) == std::future_status::ready;
    };
    if (parts_.stopped.exchange(true)) {
        return hasEndedBy(EngineThread::Clock::now());
    }
    const auto deadline = EngineThread::Clock::now() + bound;
    Factory::setCurrentLocalYVM({});
    parts_.thread.queue()->close();
    parts_.thread.requestStop();
    parts_.thread.output().gate().stop();
    bool hasEnded = false;
    do {
        parts_.thread.interruptAll();
        hasEnded = hasEndedBy(std::min(deadline, EngineThread::Clock::now() + interruptAgain));
    } while (!hasEnded && EngineThread::Clock::now() < deadline);
    parts_.thread.output().releaseDescriptors();
    return hasEnded;
}

std::uint64_t Engine::getIdentifier() const {
    return 1;  // There is one in a process.
}

boost::shared_ptr<cmddistributor::CmdDistributor> Engine::getCmdDistributor() {
    return parts_.stopped ? nullptr : parts_.thread.queue();
}

void Engine::replaceSinks(Sink outSink, Sink errSink) {
    parts_.thread.output().replaceSinks(std::move(outSink), std::move(errSink));
}

foundation::core::util::scope_guard Engine::makeSinkRestorer(std::shared_ptr<YVM> self) {
    const OutputStreams& output = parts_.thread.output().defaults();
    return foundation::core::util::scope_guard(
        [self = std::move(self), out = output.out()->sink(), err = output.err()->sink()] {
            self->replaceSinks(out, err);
        });
}

void Engine::interrupt() {
    parts_.thread.interruptPrompt();
}

std::shared_ptr<ylutil::debugger::Debugger> Engine::getDebugger() {
    return parts_.thread.debugger();
}

void Engine::breakInDebugger() {
    parts_.thread.breakInDebugger();
}

boost::shared_ptr<EventMgr> Engine::getEventMgr() {
    return parts_.thread.events().manager();
}

}  // namespace yvm::engine
