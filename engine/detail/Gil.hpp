#pragma once

#include <pybind11/pybind11.h>

namespace yvm::engine {

/// Gives up the interpreter's lock while the scope lasts. The calling thread must hold it.
class WithoutGil {
  public:
    WithoutGil() : state_(PyEval_SaveThread()) {}
    ~WithoutGil() { PyEval_RestoreThread(state_); }
    WithoutGil(const WithoutGil&) = delete;
    WithoutGil& operator=(const WithoutGil&) = delete;

  private:
    PyThreadState* state_;
};

/// Takes the interpreter's lock while the scope lasts. Take it with no other lock held.
class WithGil {
  public:
    WithGil() : state_(PyGILState_Ensure()) {}
    ~WithGil() { PyGILState_Release(state_); }
    WithGil(const WithGil&) = delete;
    WithGil& operator=(const WithGil&) = delete;

  private:
    PyGILState_STATE state_;
};

}  // namespace yvm::engine
