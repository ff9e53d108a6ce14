#include "yvm/json_serializers/serialize.hpp"

#include "fl/i18n/ustring.hpp"
#include "foundation/yorlabdata/json/conversion.hpp"

#include <cmath>
#include <concepts>
#include <string>
#include <utility>

namespace yvm::json_serializers {
namespace {

using cmddistributor::RuntimeException;
using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

/// A number as JSON's own where a reader whose numbers are doubles gets it whole, else as a typed array.
class ArgumentToJson : public boost::static_visitor<Value> {
  public:
    template <std::integral T>
    Value operator()(T number) const {
        if constexpr (sizeof(T) == 8) {
            return Object{{"ywtype", std::signed_integral<T> ? "int64" : "uint64"},
                          {"ywsize", Array{}},
                          {"ywdata", Array{Value(std::to_string(number))}}};
        } else {
            return number;
        }
    }

    template <std::floating_point T>
    Value operator()(T number) const {
        if (std::isfinite(number)) {
            return number;
        }
        const foundation::yorlabdata::ArrayFactory factory;
        return foundation::yorlabdata::json::yorlabdata_to_json(
            factory.createScalar(number), foundation::yorlabjson::ToJsonMode::alwaysYDALong);
    }

    Value operator()(const std::u16string& text) const { return fl::i18n::to_string(text); }
};

Array stackFramesToJson(const std::vector<cmddistributor::StackFrame>& frames) {
    Array array;
    array.reserve(frames.size());
    for (const auto& frame : frames) {
        array.emplace_back(Object{{"fileName", frame.fileName},
                                  {"functionName", frame.functionName},
                                  {"lineNumber", frame.lineNumber},
                                  {"sourceLine", frame.sourceLine}});
    }
    return array;
}

}  // namespace

Object serialize(const RuntimeException& exception) {
    Array causes;
    causes.reserve(exception.getCauses().size());
    for (const auto& cause : exception.getCauses()) {
        causes.emplace_back(serialize(cause));
    }
    Array arguments;
    arguments.reserve(exception.GetArguments().size());
    for (const auto& argument : exception.GetArguments()) {
        arguments.push_back(boost::apply_visitor(ArgumentToJson(), argument));
    }
    const auto& exceptionJson = exception.getExceptionJson();
    return {{"status", static_cast<int>(exception.getExecutionStatus())},
            {"message", fl::i18n::to_string(exception.GetUnicodeMessageTxt())},
            {"identifier", exception.GetID()},
            {"functionName", exception.getFunctionName()},
            {"stackFrames", stackFramesToJson(exception.getStackFrames())},
            {"causes", std::move(causes)},
            {"shutdown", exception.getShutdown()},
            {"arguments", std::move(arguments)},
            {"exceptionJson", exceptionJson ? Value(*exceptionJson) : Value(foundation::json::Null())}};
}

}  // namespace yvm::json_serializers
