#include "r22a0/readSinkTraits.hpp"

#include <string>

namespace yvm::JSClient::r22a0 {

using ylutil::io::SinkTraits;

SinkTraits readSinkTraits(const JsonObject& object) {
    const auto read = [&object](const std::string& key, bool defaultValue) {
        const auto member = object.find(key);
        return member == object.end() ? defaultValue : member->second.get<bool>();
    };
    const SinkTraits defaults;
    const bool supportsMore = read("_supportsMore", defaults.supportsMore());
    const bool supportsHotlinks = read("_supportsHotlinks", defaults.supportsHotlinks());
    const bool useDiary = read("_useDiary", defaults.useDiary());
    const bool useEcho = read("_useEcho", defaults.useEcho());
    const bool needsFormatting = read("_needsFormattingForDisplay", defaults.needsFormattingForDisplay());
    const bool useLogging = read("_useLogging", defaults.useLogging());
    return {supportsMore, supportsHotlinks, needsFormatting, useDiary, useEcho, useLogging};
}

std::pair<SinkTraits, SinkTraits> readSinkTraitsPair(const foundation::json::Value& enclosing) {
    const auto& object = enclosing.get<JsonObject>();
    const auto read = [&object](const std::string& key) {
        const auto member = object.find(key);
        return member == object.end() ? SinkTraits() : readSinkTraits(member->second.get<JsonObject>());
    };
    SinkTraits outTraits = read("outSinkTraits");
    SinkTraits errTraits = read("errSinkTraits");
    return {outTraits, errTraits};
}

}  // namespace yvm::JSClient::r22a0
