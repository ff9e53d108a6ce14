#include "cmddistributor/FEvalResult.hpp"

#include <stdexcept>
#include <utility>

namespace cmddistributor {

FEvalResult::FEvalResult(std::vector<foundation::yorlabdata::Array> outputs) : outputs_(std::move(outputs)) {}

std::vector<foundation::yorlabdata::Array> FEvalResult::take() {
    if (taken_) {
        throw std::runtime_error("Cannot use FEvalResult results after move.");
    }
    taken_ = true;
    return std::move(outputs_);
}

}  // namespace cmddistributor
