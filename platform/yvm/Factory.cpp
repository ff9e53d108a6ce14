#include "yvm/Factory.hpp"

#include <mutex>

namespace yvm {
namespace {

std::mutex mutex;
std::weak_ptr<YVM> current;  // guarded by mutex

}  // namespace

std::shared_ptr<YVM> Factory::getCurrentLocalYVM() {
    const std::lock_guard lock(mutex);
    return current.lock();
}

void Factory::setCurrentLocalYVM(const std::shared_ptr<YVM>& engine) {
    const std::lock_guard lock(mutex);
    current = engine;
}

}  // namespace yvm
