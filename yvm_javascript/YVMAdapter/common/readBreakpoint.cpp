#include "common/readBreakpoint.hpp"

#include "fl/i18n/ustring.hpp"
#include "foundation/json/toUnsigned64.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace yvm::JSClient {

namespace {

using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;

/// Null when it is absent.
const foundation::json::Value* find(const JsonObject& object, const std::string& key) {
    const auto member = object.find(key);
    return member == object.end() ? nullptr : &member->second;
}

/// A member that has to be there. Absent, it is undefined, and fails as one of the wrong type does.
template <typename T>
T read(const JsonObject& object, const std::string& key) {
    const auto* member = find(object, key);
    return (member != nullptr ? *member : foundation::json::Value()).as<T>();
}

std::uint64_t readNumber(const JsonObject& object, const std::string& key) {
    return foundation::json::toUnsigned64(read<double>(object, key));
}

LineBreakpoint::Location readLocation(const JsonObject& object) {
    if (const auto* localFunction = find(object, "localFunction")) {
        return LineBreakpoint::Location(localFunction->as<std::string>());
    }
    const auto lineNumber = readNumber(object, "lineNumber");
    if (find(object, "anonymousIndex") != nullptr) {
        return {lineNumber, readNumber(object, "anonymousIndex")};
    }
    return LineBreakpoint::Location(lineNumber);
}

}  // namespace

GlobalBreakpoint readGlobalBreakpoint(const JsonObject& object, std::span<const ConditionName> names) {
    const auto type = read<std::string>(object, "type");
    const auto name = std::ranges::find(names, type, &ConditionName::text);
    if (name == names.end()) {
        throw std::runtime_error("Unknown GlobalBreakpoint type");
    }
    if (const auto* messageId = find(object, "messageId")) {
        return {name->condition, messageId->as<std::string>()};
    }
    return GlobalBreakpoint(name->condition);
}

LineBreakpoint readLineBreakpoint(const JsonObject& object) {
    auto fileName = fl::i18n::to_ustring(read<std::string>(object, "fileName"));
    std::optional<LineBreakpoint::Location> location;
    if (const auto* member = find(object, "location")) {
        location = readLocation(member->as<JsonObject>());
    }
    const auto* member = find(object, "expression");
    if (member == nullptr) {
        return location ? LineBreakpoint(std::move(fileName), *std::move(location))
                        : LineBreakpoint(std::move(fileName));
    }
    auto expression = fl::i18n::to_ustring(member->as<std::string>());
    return location ? LineBreakpoint(std::move(fileName), *std::move(location), std::move(expression))
                    : LineBreakpoint(std::move(fileName), std::move(expression));
}

}  // namespace yvm::JSClient
