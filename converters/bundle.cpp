#include "converters/BreakpointsChangedEventConverter.hpp"
#include "converters/CLCEventConverter.hpp"
#include "converters/DebuggerResumedEventConverter.hpp"
#include "converters/DebuggerStoppedEventConverter.hpp"
#include "converters/HomeEventConverter.hpp"
#include "converters/InputRequestEventConverter.hpp"
#include "converters/PrintableErrorEventConverter.hpp"
#include "converters/ProgressEventConverter.hpp"
#include "converters/PromptEventConverter.hpp"
#include "converters/SinkTextEventConverter.hpp"
#include "converters/StructuredOutputEventConverter.hpp"
#include "converters/TextBaseEventConverter.hpp"
#include "converters/WorkspaceEventConverter.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_JsonEventConverter);

CPPMICROSERVICES_EXPORT_COMPONENT(converters_TextBaseEventConverter, converters::TextBaseEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_SinkTextEventConverter, converters::SinkTextEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_StructuredOutputEventConverter,
                                  converters::StructuredOutputEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_PrintableErrorEventConverter,
                                  converters::PrintableErrorEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_PromptEventConverter, converters::PromptEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_InputRequestEventConverter,
                                  converters::InputRequestEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_CLCEventConverter, converters::CLCEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_HomeEventConverter, converters::HomeEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_ProgressEventConverter, converters::ProgressEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_WorkspaceEventConverter, converters::WorkspaceEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_DebuggerStoppedEventConverter,
                                  converters::DebuggerStoppedEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_DebuggerResumedEventConverter,
                                  converters::DebuggerResumedEventConverter,
                                  event_json_converter::EventToJsonConverter);
CPPMICROSERVICES_EXPORT_COMPONENT(converters_BreakpointsChangedEventConverter,
                                  converters::BreakpointsChangedEventConverter,
                                  event_json_converter::EventToJsonConverter);
