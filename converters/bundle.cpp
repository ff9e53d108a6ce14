#include "converters/TextBaseEventConverter.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_JsonEventConverter);

CPPMICROSERVICES_EXPORT_COMPONENT(converters_TextBaseEventConverter, converters::TextBaseEventConverter,
                                  event_json_converter::EventToJsonConverter);
