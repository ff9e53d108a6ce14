#pragma once

#include <pybind11/pybind11.h>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace yvm::engine {

/// Python objects that somebody has done with who may not touch the interpreter. The engine thread lets go
/// of them when it comes by.
///
/// Safe from any thread. What is put in after the engine's end is never released, nor what a forked child
/// puts in: the end of the process makes it good.
class ReleaseQueue {
  public:
    /// `wake` brings the engine thread to call `drain` soon; called with no lock held, from any thread.
    explicit ReleaseQueue(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// Takes over one reference. Without the GIL or with it.
    void put(PyObject* object);

    /// Whether `drain` would find something; a glance without the GIL.
    bool isEmpty() const;

    /// Lets go of everything. On the engine thread, with the GIL held.
    void drain();

  private:
    const std::function<void()> wake_;
    mutable std::mutex mutex_;
    std::vector<PyObject*> objects_;  // guarded by mutex_
};

}  // namespace yvm::engine
