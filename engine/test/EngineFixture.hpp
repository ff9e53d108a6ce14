#pragma once

#include "engine/Engine.hpp"
#include "engine/test/FakeGate.hpp"
#include "foundation/yorlabdata/ArrayFactory.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <streambuf>
#include <string>
#include <variant>
#include <vector>

namespace yvm::engine::test {

using cmddistributor::CmdDistributor;
using cmddistributor::RunOptions;
using cmddistributor::RuntimeException;
using foundation::yorlabdata::Array;
using IDType = CmdDistributor::IDType;
using CancelStatus = CmdDistributor::CancelStatus;
using DequeueMode = RunOptions::DequeueMode;
using Arrays = std::vector<Array>;

/// Bounds a failure; nothing that works takes this long.
inline constexpr std::chrono::seconds deadline{60};

/// What was written, in order, of both streams: shared by the two buffers of a command. Safe from any thread.
class Transcript {
  public:
    void append(const std::string& mark, std::u16string_view text);
    void noteSynchronised();

    /// All text as UTF-8, each piece behind the mark of its stream whenever that changes.
    std::string text() const;
    std::u16string units() const;
    /// Number of synchronisations that had text to bring out.
    int synchronised() const;
    /// The text that had come when the latest of those began, as `text` shows it.
    std::string synchronisedText() const;
    /// Number of writes.
    int writes() const;
    /// Waits until the text contains `part`. Fails the test at the deadline.
    void waitFor(const std::string& part) const;
    /// Waits until the synchronised text contains `part`. Fails the test at the deadline.
    void waitForSynchronised(const std::string& part) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    void waitFor(const std::string& part, const std::string& text) const;

    std::string text_;
    std::string synchronisedText_;
    std::u16string units_;
    std::string lastMark_;
    int writes_ = 0;
    int synchronised_ = 0;
    bool hasUnsynchronised_ = false;
};

/// One command on its way, and what becomes of it.
class Submitted {
  public:
    using Outcome = std::variant<Arrays, RuntimeException>;

    IDType id;
    std::shared_ptr<Transcript> transcript = std::make_shared<Transcript>();

    /// Waits for the completion. Throws the command's RuntimeException.
    Arrays get();
    /// Waits for the failure of the command. Fails the test if there is none.
    RuntimeException error();
    bool isDone() const;

    std::shared_future<Outcome> outcome;
};

/// How a command is submitted.
struct Submission {
    RunOptions runOptions;
    bool isUserEval = false;
    bool ownStreams = true;
    /// Runs inside the completion, on its thread.
    std::function<void()> inCompletion;
};

/// One engine for all tests of the program, since a process can have one. The tests run in its working
/// folder, which is temporary.
class EngineTest : public ::testing::Test {
  public:
    static const std::shared_ptr<Engine>& engine();
    static boost::shared_ptr<CmdDistributor> distributor() { return engine()->getCmdDistributor(); }
    /// The gate of that engine. Open; a test that closes it opens it again.
    static FakeGate& gate();
    /// A pair of sinks of which the second marks its text with `[err]`.
    static std::pair<YVM::Sink, YVM::Sink> makeSinks(const std::shared_ptr<Transcript>& transcript);
    /// What went to the console since the last call.
    static std::string takeConsoleText();

    /// Takes the test to the working folder.
    void SetUp() override { engine(); }

    static Submitted submitEval(const std::string& source, Submission submission = {});
    static Submitted submitFeval(const std::string& function, Arrays arguments, std::uint64_t numOutputs = 1,
                                 Submission submission = {});

    /// Runs a command and returns its text.
    static std::string eval(const std::string& source);
    static RuntimeException evalError(const std::string& source) { return submitEval(source).error(); }
    /// Calls a function for one output.
    static Array feval(const std::string& function, Arrays arguments = {});

    static RunOptions withMode(DequeueMode mode);
    static Submission inMode(DequeueMode mode);
    static CancelStatus cancel(const IDType& id, bool interrupt);

    /// Runs a Python block that blocks until `release()`, so that other commands queue behind it. Returns
    /// when it runs.
    static Submitted occupy();
    static void release();
};

template <foundation::yorlabdata::Element T>
Array scalar(T value) {
    return foundation::yorlabdata::ArrayFactory().createScalar(value);
}

/// A text array.
Array text(const std::string& utf8);
std::string utf8(const Array& text);

}  // namespace yvm::engine::test
