#include "common/setCurrentMockYvm.hpp"

#include <atomic>

namespace yvm {

namespace {

std::atomic<YVM*> mockYvm = nullptr;

}  // namespace

void unittest::setCurrentMockYvm(YVM* engine) {
    mockYvm.exchange(engine);
}

YVM* JSClient::currentMockYvm() noexcept {
    return mockYvm.load();
}

}  // namespace yvm
