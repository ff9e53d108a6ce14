#include "check.hpp"
#include "foundation/json/Serializer.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"
#include "fuzzJson.hpp"

#include <stdexcept>
#include <string>

void fuzzArrays(std::string_view text) {
    using foundation::json::Serializer;
    using foundation::yorlabjson::ToJsonMode;
    namespace conversion = foundation::yorlabdata::json;

    const foundation::yorlabdata::ArrayFactory factory;
    foundation::yorlabdata::Array array;
    try {
        array = conversion::string_to_yorlabdata(text, factory);
    } catch (const std::runtime_error& error) {
        check(error.what()[0] != '\0', "a refusal says why", text);
        return;
    }
    for (const ToJsonMode mode : {ToJsonMode::alwaysYDALong, ToJsonMode::preferYDAShort}) {
        const std::string written = Serializer::serialize(conversion::yorlabdata_to_json(array, mode));
        const auto again = conversion::string_to_yorlabdata(written, factory);
        // Records come back ordered by key, so the texts are compared.
        check(Serializer::serialize(conversion::yorlabdata_to_json(again, mode)) == written,
              "what was written reads back to the same", text);
    }
}
