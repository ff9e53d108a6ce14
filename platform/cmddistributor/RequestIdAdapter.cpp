#include "cmddistributor/RequestIdAdapter.hpp"

namespace cmddistributor {
namespace {

using foundation::msg_svc::exchange::IDType;

thread_local IDType innermost = IDType::null();

}  // namespace

IDType RequestIdAdapter::getRequestId() const noexcept {
    return innermost;
}

RequestIdScope::RequestIdScope(const IDType& id) noexcept : outer_(innermost) {
    innermost = id;
}

RequestIdScope::~RequestIdScope() {
    innermost = outer_;
}

}  // namespace cmddistributor
