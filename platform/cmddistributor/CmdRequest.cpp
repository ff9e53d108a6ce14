#include "cmddistributor/CmdRequest.hpp"

#include <algorithm>
#include <stdexcept>

namespace cmddistributor {

CmdRequest::CmdRequest(std::shared_ptr<const IIP> iip, IqmStreamID streamID, Sink outSink, Sink errSink,
                       std::string sourceTag)
    : iip_(std::move(iip)),
      streamID_(streamID),
      outSink_(std::move(outSink)),
      errSink_(std::move(errSink)),
      sourceTag_(std::move(sourceTag)) {}

CmdRequest::~CmdRequest() = default;

EvalCmdRequest::EvalCmdRequest(bool isUserEval, IqmStreamID streamID, Sink outSink, Sink errSink,
                               std::u16string command, std::string sourceTag)
    : CmdRequest(std::make_shared<const IIP>(EvalIIP{std::move(command), isUserEval}), streamID,
                 std::move(outSink), std::move(errSink), std::move(sourceTag)) {}

EvalCmdRequest::~EvalCmdRequest() = default;

FEvalCmdRequest::FEvalCmdRequest(FEvalIIP iip, IqmStreamID streamID, Sink outSink, Sink errSink,
                                 std::string sourceTag)
    : CmdRequest(std::make_shared<const IIP>(std::move(iip)), streamID, std::move(outSink),
                 std::move(errSink), std::move(sourceTag)) {}

FEvalCmdRequest::~FEvalCmdRequest() = default;

namespace detail {
namespace {

using foundation::yorlabdata::Array;
using foundation::yorlabdata::Kind;

/// Recursive: whoever makes arrays from a client's text bounds how deep lists and records nest.
bool holdsItsElements(const Array& array) {
    if (array.kind() == Kind::list) {
        return std::ranges::all_of(array.list(), holdsItsElements);
    }
    if (array.kind() == Kind::record) {
        return std::ranges::all_of(array.record(),
                                   [](const auto& member) { return holdsItsElements(member.second); });
    }
    return !isNumeric(array.kind()) || array.size() == 0 || array.data() != nullptr;
}

}  // namespace

void validateInput(const std::vector<Array>& arguments) {
    const auto bad =
        std::ranges::find_if(arguments, [](const Array& argument) { return !holdsItsElements(argument); });
    if (bad != arguments.end()) {
        throw std::invalid_argument("argument " + std::to_string(bad - arguments.begin() + 1) +
                                    " of the function holds an array without memory for its elements.");
    }
}

}  // namespace detail
}  // namespace cmddistributor
