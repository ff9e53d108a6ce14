#pragma once

#include "foundation/yorlabdata/Array.hpp"
#include "ylutil/io/YLSink.hpp"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace cmddistributor {

/// Which of the engine's streams of work a command belongs to. The numbers are the engine's: 0 is
/// the stream of the person at the console, -2 that of a program.
using IqmStreamID = int;

/// A piece of source text that goes into the interpreter.
struct EvalIIP {
    std::u16string command;
    bool isUserEval = false;  ///< typed by a person: enters the history
};

/// A call of a named function that goes into the interpreter.
struct FEvalIIP {
    std::string function;  ///< UTF-8; a name of the workspace, a builtin, or a dotted import
    std::vector<foundation::yorlabdata::Array> arguments;
    /// 0 discards the outputs, 1 takes the value, n takes a tuple or list of at least n. Never
    /// reserve by it: clients can ask for 2^64-1.
    std::uint64_t numOutputs = 0;
    bool flag = false;  ///< what the caller of `fevalWithCompletion` gave; nothing reads it
};

/// The in-interpreter part of a request: what the engine runs.
using IIP = std::variant<EvalIIP, FEvalIIP>;

/// One piece of work for the engine, and where its text goes.
class [[gnu::visibility("default")]] CmdRequest {
  public:
    using Sink = boost::shared_ptr<ylutil::io::YLSink>;

    CmdRequest(std::shared_ptr<const IIP> iip, IqmStreamID streamID, Sink outSink, Sink errSink,
               std::string sourceTag);
    virtual ~CmdRequest();

    /// May be empty, in which case no distributor takes the request.
    const std::shared_ptr<const IIP>& getIIP() const noexcept { return iip_; }
    IqmStreamID getStreamID() const noexcept { return streamID_; }
    /// Null where the request has no stream of its own.
    const Sink& getOutSink() const noexcept { return outSink_; }
    const Sink& getErrSink() const noexcept { return errSink_; }
    /// Who submitted the request, for the log.
    const std::string& getSourceTag() const noexcept { return sourceTag_; }

  private:
    std::shared_ptr<const IIP> iip_;
    IqmStreamID streamID_;
    Sink outSink_;
    Sink errSink_;
    std::string sourceTag_;
};

class [[gnu::visibility("default")]] EvalCmdRequest final : public CmdRequest {
  public:
    EvalCmdRequest(bool isUserEval, IqmStreamID streamID, Sink outSink, Sink errSink, std::u16string command,
                   std::string sourceTag);
    ~EvalCmdRequest() override;
};

class [[gnu::visibility("default")]] FEvalCmdRequest final : public CmdRequest {
  public:
    FEvalCmdRequest(FEvalIIP iip, IqmStreamID streamID, Sink outSink, Sink errSink, std::string sourceTag);
    ~FEvalCmdRequest() override;
};

namespace detail {

/// Throws `std::invalid_argument`, which counts the arguments from 1, when an argument or an array within
/// it claims elements and holds no memory for them. Null is a value like any other.
void validateInput(const std::vector<foundation::yorlabdata::Array>& arguments);

}  // namespace detail
}  // namespace cmddistributor
