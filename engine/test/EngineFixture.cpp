#include "engine/test/EngineFixture.hpp"

#include "fl/i18n/ustring.hpp"

#include <boost/make_shared.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace yvm::engine::test {

namespace {

class TranscriptBuffer final : public std::basic_streambuf<char16_t> {
  public:
    TranscriptBuffer(std::shared_ptr<Transcript> transcript, std::string mark)
        : transcript_(std::move(transcript)), mark_(std::move(mark)) {}

  protected:
    std::streamsize xsputn(const char16_t* text, std::streamsize count) override {
        transcript_->append(mark_, {text, static_cast<std::size_t>(count)});
        return count;
    }
    int_type overflow(int_type character) override {
        const auto unit = traits_type::to_char_type(character);
        xsputn(&unit, 1);
        return character;
    }
    int sync() override {
        transcript_->noteSynchronised();
        return 0;
    }

  private:
    const std::shared_ptr<Transcript> transcript_;
    const std::string mark_;
};

std::mutex consoleMutex;
std::string consoleText;  // guarded by consoleMutex

/// Removed when the program ends.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "engine-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;  // The tests have been judged by now.
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// The pipe on which `occupy` blocks.
int occupation[2];

}  // namespace

void Transcript::append(const std::string& mark, std::u16string_view text) {
    {
        const std::lock_guard lock(mutex_);
        if (mark != lastMark_) {
            lastMark_ = mark;
            text_ += mark;
        }
        text_ += fl::i18n::to_string(text);
        units_ += text;
        ++writes_;
        hasUnsynchronised_ = true;
    }
    changed_.notify_all();
}

void Transcript::noteSynchronised() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(hasUnsynchronised_, false)) {
            ++synchronised_;
            synchronisedText_ = text_;
        }
    }
    changed_.notify_all();
}

std::string Transcript::text() const {
    const std::lock_guard lock(mutex_);
    return text_;
}

std::u16string Transcript::units() const {
    const std::lock_guard lock(mutex_);
    return units_;
}

int Transcript::synchronised() const {
    const std::lock_guard lock(mutex_);
    return synchronised_;
}

std::string Transcript::synchronisedText() const {
    const std::lock_guard lock(mutex_);
    return synchronisedText_;
}

int Transcript::writes() const {
    const std::lock_guard lock(mutex_);
    return writes_;
}

void Transcript::waitFor(const std::string& part) const {
    waitFor(part, text_);
}

void Transcript::waitForSynchronised(const std::string& part) const {
    waitFor(part, synchronisedText_);
}

void Transcript::waitFor(const std::string& part, const std::string& text) const {
    std::unique_lock lock(mutex_);
    const bool found =
        changed_.wait_for(lock, deadline, [&] { return text.find(part) != std::string::npos; });
    ASSERT_TRUE(found) << "no \"" << part << "\" in: " << text;
}

Arrays Submitted::get() {
    if (outcome.wait_for(deadline) != std::future_status::ready) {
        throw std::runtime_error("the command did not end; its text so far: " + transcript->text());
    }
    if (const auto* failure = std::get_if<RuntimeException>(&outcome.get())) {
        throw *failure;
    }
    return std::get<Arrays>(outcome.get());
}

RuntimeException Submitted::error() {
    try {
        get();
    } catch (const RuntimeException& failure) {
        return failure;
    }
    throw std::runtime_error("the command succeeded; its text: " + transcript->text());
}

bool Submitted::isDone() const {
    return outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

const std::shared_ptr<Engine>& EngineTest::engine() {
    static const TemporaryFolder folder;  // Outlives the engine.
    static const std::shared_ptr<Engine> instance = [] {
        EngineOptions options;
        options.workingFolder = folder.path();
        options.console = [](std::string_view text, bool error) {
            const std::lock_guard lock(consoleMutex);
            consoleText += error ? "[err]" : "";
            consoleText += text;
        };
        options.outputGate = std::shared_ptr<OutputGate>(&gate(), [](OutputGate*) {});
        return Engine::start(options);
    }();
    return instance;
}

FakeGate& EngineTest::gate() {
    static auto& instance = *new FakeGate;
    return instance;
}

std::pair<YVM::Sink, YVM::Sink> EngineTest::makeSinks(const std::shared_ptr<Transcript>& transcript) {
    const auto make = [&](const char* mark) {
        return boost::make_shared<ylutil::io::YLSink>(boost::make_shared<TranscriptBuffer>(transcript, mark),
                                                      ylutil::io::SinkTraits());
    };
    return {make(""), make("[err]")};
}

std::string EngineTest::takeConsoleText() {
    const std::lock_guard lock(consoleMutex);
    return std::exchange(consoleText, {});
}

namespace {

template <typename Result>
std::function<void(boost::future<Result>)> makeCompletion(
    const std::shared_ptr<std::promise<Submitted::Outcome>>& promise, std::function<void()> inCompletion) {
    return [promise, inCompletion = std::move(inCompletion)](boost::future<Result> result) {
        Submitted::Outcome outcome;
        try {
            if constexpr (std::is_void_v<Result>) {
                result.get();
            } else {
                outcome = result.get();
            }
        } catch (const RuntimeException& failure) {
            outcome = failure;
        }
        if (inCompletion) {
            inCompletion();
        }
        promise->set_value(std::move(outcome));
    };
}

void giveStreams(Submission& submission, const std::shared_ptr<Transcript>& transcript) {
    if (submission.ownStreams) {
        const auto traits = RunOptions::getDefaultSinkTraits();
        submission.runOptions.setOutStream(boost::make_shared<TranscriptBuffer>(transcript, ""), traits);
        submission.runOptions.setErrStream(boost::make_shared<TranscriptBuffer>(transcript, "[err]"), traits);
    }
}

}  // namespace

Submitted EngineTest::submitEval(const std::string& source, Submission submission) {
    Submitted result;
    giveStreams(submission, result.transcript);
    const auto promise = std::make_shared<std::promise<Submitted::Outcome>>();
    result.outcome = promise->get_future().share();
    auto request = std::make_shared<cmddistributor::EvalCmdRequest>(
        submission.isUserEval, -2, submission.runOptions.getOutSink(), submission.runOptions.getErrSink(),
        fl::i18n::to_ustring(source), "test");
    distributor()->enqueueWithFuture<void>(std::move(request),
                                           makeCompletion<void>(promise, std::move(submission.inCompletion)),
                                           std::move(submission.runOptions), result.id, nullptr);
    return result;
}

Submitted EngineTest::submitFeval(const std::string& function, Arrays arguments, std::uint64_t numOutputs,
                                  Submission submission) {
    Submitted result;
    giveStreams(submission, result.transcript);
    const auto promise = std::make_shared<std::promise<Submitted::Outcome>>();
    result.outcome = promise->get_future().share();
    auto request = std::make_shared<cmddistributor::FEvalCmdRequest>(
        cmddistributor::FEvalIIP{function, std::move(arguments), numOutputs}, -2,
        submission.runOptions.getOutSink(), submission.runOptions.getErrSink(), "test");
    distributor()->enqueueWithFuture<Arrays>(
        std::move(request), makeCompletion<Arrays>(promise, std::move(submission.inCompletion)),
        std::move(submission.runOptions), result.id, nullptr);
    return result;
}

std::string EngineTest::eval(const std::string& source) {
    Submitted submitted = submitEval(source);
    submitted.get();
    return submitted.transcript->text();
}

Array EngineTest::feval(const std::string& function, Arrays arguments) {
    return submitFeval(function, std::move(arguments)).get().at(0);
}

RunOptions EngineTest::withMode(DequeueMode mode) {
    RunOptions options;
    options.setDequeueMode(mode);
    return options;
}

Submission EngineTest::inMode(DequeueMode mode) {
    Submission submission;
    submission.runOptions = withMode(mode);
    return submission;
}

CancelStatus EngineTest::cancel(const IDType& id, bool interrupt) {
    auto future = distributor()->cancel(id, interrupt);
    if (future.wait_for(boost::chrono::seconds(deadline.count())) != boost::future_status::ready) {
        throw std::runtime_error("the cancel was not answered");
    }
    return future.get();
}

Submitted EngineTest::occupy() {
    if (::pipe2(occupation, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    Submitted submitted = submitEval("print('occupied', flush=True)\nimport os\nos.read(" +
                                     std::to_string(occupation[0]) + ", 1);");
    submitted.transcript->waitFor("occupied");
    return submitted;
}

void EngineTest::release() {
    if (::write(occupation[1], "x", 1) != 1) {
        throw std::runtime_error("the gate does not open");
    }
}

Array text(const std::string& utf8) {
    return Array(fl::i18n::to_ustring(utf8));
}

std::string utf8(const Array& text) {
    return fl::i18n::to_string(text.text());
}

}  // namespace yvm::engine::test
