#include "yvm/YVM.hpp"

#include <stdexcept>
#include <utility>

namespace yvm {
namespace {

/// The stream of work of programs, as opposed to that of the person at the console.
constexpr cmddistributor::IqmStreamID programStream = -2;

}  // namespace

YVM::~YVM() = default;

void YVM::fevalWithCompletion(std::string function, Arrays arguments, std::uint64_t numOutputs,
                              FevalCompletion completion, cmddistributor::RunOptions runOptions, bool flag,
                              const IDType& id, std::string sourceTag) {
    cmddistributor::detail::validateInput(arguments);
    const auto distributor = getCmdDistributor();
    if (!distributor) {
        throw std::runtime_error("The engine has no command distributor to take the call of \"" + function +
                                 "\".");
    }
    auto outSink = runOptions.getOutSink();
    auto errSink = runOptions.getErrSink();
    auto request = std::make_shared<cmddistributor::FEvalCmdRequest>(
        cmddistributor::FEvalIIP{std::move(function), std::move(arguments), numOutputs, flag}, programStream,
        std::move(outSink), std::move(errSink), std::move(sourceTag));
    distributor->enqueueWithFuture<Arrays>(
        std::move(request),
        [completion = std::move(completion)](boost::future<Arrays> outcome) {
            Promise<Arrays> promise;
            try {
                promise.setValue(outcome.get());
            } catch (...) {
                // The standard's pointer keeps the dynamic type, where Boost's would keep a base.
                promise.setException(std::current_exception());
            }
            completion(promise.getFuture());
        },
        std::move(runOptions), id, nullptr);
}

}  // namespace yvm
