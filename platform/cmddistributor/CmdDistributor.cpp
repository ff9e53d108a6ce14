#include "cmddistributor/CmdDistributor.hpp"

#include <stdexcept>

namespace cmddistributor {

CmdDistributor::~CmdDistributor() = default;

boost::future<void> CmdDistributor::enqueueBound(std::shared_ptr<CmdRequest> request,
                                                 std::unique_ptr<PromiseDelegate> delegate,
                                                 RunOptions runOptions, const IDType& id,
                                                 std::shared_ptr<void> context) {
    Submission submission{id, std::move(request), std::move(runOptions), std::move(delegate),
                          std::move(context)};
    try {
        if (!submission.request) {
            throw std::invalid_argument("request cannot be null.");
        }
        if (!submission.request->getIIP()) {
            throw std::invalid_argument("request must contain an IIP.");
        }
        auto done = submission.delegate->getDone();
        enqueueImpl(submission);
        return done;
    } catch (...) {
        // The caller hears of the failure by the exception, and must not hear of it a second time.
        if (submission.delegate) {
            submission.delegate->dismiss();
        }
        throw;
    }
}

}  // namespace cmddistributor
