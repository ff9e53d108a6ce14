#include "engine/detail/ReleaseQueue.hpp"

#include "engine/detail/ForkedChild.hpp"

namespace yvm::engine {

void ReleaseQueue::put(PyObject* object) {
    if (ForkedChild::isThis()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        objects_.push_back(object);
    }
    wake_();
}

bool ReleaseQueue::isEmpty() const {
    const std::lock_guard lock(mutex_);
    return objects_.empty();
}

void ReleaseQueue::drain() {
    std::vector<PyObject*> objects;
    {
        const std::lock_guard lock(mutex_);
        objects.swap(objects_);
    }
    // Outside the mutex: releasing runs code of the user, which may come back here.
    for (PyObject* object : objects) {
        Py_DECREF(object);
    }
}

}  // namespace yvm::engine
