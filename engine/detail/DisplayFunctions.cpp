#include "engine/detail/DisplayFunctions.hpp"

#include "engine/detail/Command.hpp"
#include "engine/detail/EngineEvents.hpp"
#include "engine/detail/Gil.hpp"
#include "engine/detail/JsonConversion.hpp"
#include "ylutil/io/StructuredOutputEvent.hpp"

#include <string>
#include <utility>

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

/// Whether the command of this thread has the capability. Code that belongs to no command has each.
bool may(const std::string& capability) {
    const auto& command = CommandScope::current();
    return command == nullptr || command->runOptions().getCapabilities().allows(capability);
}

void tellValue(EngineEvents& events, const py::dict& data, const py::dict& metadata) {
    auto dataJson = toJson(data);
    auto metadataJson = toJson(metadata);
    const WithoutGil released;
    events.fire<StructuredOutputEvent>(std::move(dataJson.get<foundation::json::Object>()),
                                       std::move(metadataJson.get<foundation::json::Object>()));
}

}  // namespace

void addDisplayFunctions(py::module_& module, EngineEvents& events) {
    module.def("may", &may);
    module.def("wants_values", [&events] { return events.isWanted<StructuredOutputEvent>(); });
    module.def("takes_values", &takesValues);
    module.def("tell_value", [&events](const py::dict& data, const py::dict& metadata) {
        tellValue(events, data, metadata);
    });
}

}  // namespace yvm::engine
