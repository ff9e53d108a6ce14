#include "engine/detail/Insistence.hpp"

#include "engine/detail/Command.hpp"
#include "engine/detail/EngineModule.hpp"
#include "engine/detail/ImportFrames.hpp"

namespace yvm::engine {

namespace py = pybind11;

namespace {

int raiseBeforeLine(PyObject* target, PyFrameObject* frame, int event, PyObject* /*argument*/) {
    const auto& command = CommandScope::current();
    if (event != PyTrace_LINE || command == nullptr || !command->isInterruptible() ||
        command.get() != PyCapsule_GetPointer(target, nullptr) || isOfImportSystem(frame)) {
        return 0;
    }
    setInterrupt();
    return -1;
}

}  // namespace

Insistence::Insistence(Command& command)
    : functionBefore_(PyThreadState_Get()->c_tracefunc),
      argumentBefore_(py::reinterpret_borrow<py::object>(PyThreadState_Get()->c_traceobj)) {
    const py::capsule target(&command);
    PyEval_SetTrace(&raiseBeforeLine, target.ptr());
}

Insistence::~Insistence() {
    PyEval_SetTrace(functionBefore_, argumentBefore_.ptr());
}

}  // namespace yvm::engine
