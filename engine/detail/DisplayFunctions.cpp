#include "engine/detail/DisplayFunctions.hpp"

#include "engine/detail/Command.hpp"
#include "engine/detail/EngineThread.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/JsonConversion.hpp"
#include "engine/detail/PythonText.hpp"
#include "ylutil/io/StructuredOutputEvent.hpp"
#include "yvm/ProgressEvent.hpp"
#include "yvm/WorkspaceEvent.hpp"

#include <pybind11/stl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace yvm::engine {

namespace py = pybind11;
using ylutil::io::StructuredOutputEvent;

namespace {

/// Whether the command of this thread has a handler of its own for displayed values.
bool takesValues() {
    const auto& command = CommandScope::current();
    return command != nullptr &&
           command->runOptions().getCallbacks().contains(u"ylutil::io::StructuredOutputEvent");
}

/// Images in a loop are a flood as text is.
void tellValue(EngineThread& engine, const py::dict& data, const py::dict& metadata) {
    auto dataJson = toJson(data);
    auto metadataJson = toJson(metadata);
    const WithoutGil released;
    engine.output().writeOtherwise([&] {
        engine.events().fire<StructuredOutputEvent>(std::move(dataJson.get<foundation::json::Object>()),
                                                    std::move(metadataJson.get<foundation::json::Object>()));
    });
}

void tellProgress(EngineEvents& events, std::uint64_t id, const py::str& label, double done,
                  std::optional<double> total, std::optional<double> rate, std::optional<double> remaining,
                  bool finished) {
    std::u16string text = toUtf16(label);
    const WithoutGil released;
    events.fire<ProgressEvent>(id, std::move(text), done, total, rate, remaining, finished);
}

std::vector<std::string> toTexts(const py::list& names) {
    std::vector<std::string> texts;
    for (const py::handle name : names) {
        texts.push_back(toUtf8(name));
    }
    return texts;
}

void tellWorkspace(EngineEvents& events, const py::list& appeared, const py::list& changed,
                   const py::list& gone) {
    auto appearedNames = toTexts(appeared);
    auto changedNames = toTexts(changed);
    auto goneNames = toTexts(gone);
    const WithoutGil released;
    events.fire<WorkspaceEvent>(std::move(appearedNames), std::move(changedNames), std::move(goneNames));
}

}  // namespace

void addDisplayFunctions(py::module_& module, EngineThread& engine) {
    EngineEvents& events = engine.events();
    module.def("may", &CommandScope::allows);
    module.def("wants_values", [&events] { return events.isWanted<StructuredOutputEvent>(); });
    module.def("takes_values", &takesValues);
    module.def("tell_value", [&engine](const py::dict& data, const py::dict& metadata) {
        tellValue(engine, data, metadata);
    });
    module.def("wants_progress", [&events] { return events.isWanted<ProgressEvent>(); });
    module.def("tell_progress",
               [&events](std::uint64_t id, const py::str& label, double done, std::optional<double> total,
                         std::optional<double> rate, std::optional<double> remaining, bool finished) {
                   tellProgress(events, id, label, done, total, rate, remaining, finished);
               });
    module.def("tell_workspace",
               [&events](const py::list& appeared, const py::list& changed, const py::list& gone) {
                   tellWorkspace(events, appeared, changed, gone);
               });
}

}  // namespace yvm::engine
