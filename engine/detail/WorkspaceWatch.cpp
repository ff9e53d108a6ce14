#include "engine/detail/WorkspaceWatch.hpp"

#include "engine/detail/EngineEvents.hpp"
#include "yvm/WorkspaceEvent.hpp"

#include <utility>

namespace yvm::engine {

namespace py = pybind11;

namespace {

py::handle lookUp(const char* name) {
    return py::module_::import("yvm._workspace").attr(name).cast<py::object>().release();
}

void call(py::handle function) {
    try {
        function();
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable(py::reinterpret_borrow<py::object>(function));
    }
}

}  // namespace

WorkspaceWatch::WorkspaceWatch(const EngineEvents& events, py::dict workspace)
    : events_(events),
      workspace_(workspace.release()),
      begin_(lookUp("begin")),
      noteAssignments_(lookUp("note_assignments")),
      end_(lookUp("end")),
      forget_(lookUp("forget")) {}

void WorkspaceWatch::begin() {
    const bool isWanted = events_.isWanted<WorkspaceEvent>();
    if (isWanted != isWatching_) {
        call(isWanted ? begin_ : forget_);
        isWatching_ = isWanted;
        version_ = version();
    }
}

void WorkspaceWatch::noteAssignments(py::handle code) {
    if (isWatching_ && noteAssignments_(code).cast<bool>()) {
        // What is assigned to itself, as by `x += y`, is no change of the namespace.
        version_ = noVersion;
    }
}

void WorkspaceWatch::end() {
    // Many commands only read, and the names may be many.
    if (events_.isWanted<WorkspaceEvent>() && (!isWatching_ || version() != version_)) {
        call(end_);
        isWatching_ = true;
        version_ = version();
    }
}

std::uint64_t WorkspaceWatch::version() const {
    // Every change of any dictionary gives it a number of its own, in this version of Python.
    return reinterpret_cast<const PyDictObject*>(workspace_.ptr())->ma_version_tag;
}

}  // namespace yvm::engine
