#include "cppmicroservices/detail/BundleManifest.hpp"

#include "cppmicroservices/detail/bundleResource.hpp"
#include "foundation/json/Parser.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace cppmicroservices::detail {
namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

/// The value at a key whose dots are part of it or stand for nesting; null if there is none.
const Value* find(const Object& object, const std::string& key) {
    if (const auto found = object.find(key); found != object.end()) {
        return &found->second;
    }
    for (auto dot = key.find('.'); dot != std::string::npos; dot = key.find('.', dot + 1)) {
        const auto outer = object.find(key.substr(0, dot));
        const auto* inner = outer != object.end() ? outer->second.getIf<Object>() : nullptr;
        if (const Value* value = inner != nullptr ? find(*inner, key.substr(dot + 1)) : nullptr) {
            return value;
        }
    }
    return nullptr;
}

/// Throws if a value is there and of another kind.
template <typename T>
const T* findAs(const Object& object, const std::string& key) {
    const Value* value = find(object, key);
    if (value == nullptr) {
        return nullptr;
    }
    if (!value->is<T>()) {
        throw std::runtime_error("in its manifest, '" + key + "' is of type " + value->typeName() +
                                 "; accepted is " + foundation::json::traits<T>::name);
    }
    return value->getIf<T>();
}

std::string requireText(const Object& object, const std::string& key) {
    const auto* text = findAs<std::string>(object, key);
    if (text == nullptr || text->empty()) {
        throw std::runtime_error("its manifest has no text '" + key + "'");
    }
    return *text;
}

std::vector<std::string> readTexts(const Array& array, const std::string& key) {
    std::vector<std::string> texts;
    for (const Value& element : array) {
        const auto* text = element.getIf<std::string>();
        if (text == nullptr || text->empty()) {
            throw std::runtime_error("in its manifest, '" + key + "' holds an element that is no text");
        }
        texts.push_back(*text);
    }
    return texts;
}

ComponentDescription readComponent(const Object& entry) {
    ComponentDescription component;
    component.implementationClass = requireText(entry, "implementation-class");
    if (const auto* interfaces = findAs<Array>(entry, "service.interfaces")) {
        component.interfaces = readTexts(*interfaces, "service.interfaces");
    }
    if (const auto* properties = findAs<Object>(entry, "properties")) {
        component.properties = *properties;
    }
    const std::string triggers = "yw.embeddedConnector.startTriggers";
    const std::string key = triggers + ".messageServiceChannels";
    const auto* channels = findAs<Array>(component.properties, key);
    if (channels != nullptr || find(component.properties, triggers) != nullptr) {
        // A deferred component without a trigger would never start.
        if (channels == nullptr || channels->empty()) {
            throw std::runtime_error("in its manifest, '" + key + "' names no channel");
        }
        component.startTriggers = readTexts(*channels, key);
    }
    return component;
}

BundleManifest readManifest(const std::filesystem::path& file) {
    const auto resource = readBundleResource(file);
    BundleManifest manifest;
    try {
        // White space around the object is fine in a file, though not to the parser.
        std::string_view text = resource.manifestText;
        constexpr std::string_view blanks = " \t\r\n";
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        text = text.substr(0, text.find_last_not_of(blanks) + 1);
        manifest.json = foundation::json::parseText(text).as<Object>();
    } catch (const std::exception& error) {
        throw std::runtime_error(std::string("its manifest is not a JSON object: ") + error.what());
    }
    manifest.symbolicName = requireText(manifest.json, "bundle.symbolic_name");
    if (manifest.symbolicName != resource.folder) {
        throw std::runtime_error("its manifest lies in the folder '" + resource.folder +
                                 "' but names the bundle '" + manifest.symbolicName + "'");
    }
    const auto* components = findAs<Array>(manifest.json, "scr.components");
    const Value* version = find(manifest.json, "scr.version");
    if (components == nullptr && version == nullptr && find(manifest.json, "scr") == nullptr) {
        return manifest;
    }
    if (version == nullptr || !version->is<double>() || version->get<double>() != 1) {
        throw std::runtime_error("in its manifest, 'scr.version' must be 1");
    }
    if (components != nullptr) {
        for (const Value& entry : *components) {
            if (!entry.is<Object>()) {
                throw std::runtime_error(
                    "in its manifest, 'scr.components' holds an element that is no object");
            }
            manifest.components.push_back(readComponent(entry.get<Object>()));
        }
    }
    return manifest;
}

}  // namespace

BundleManifest readBundleManifest(const std::filesystem::path& file) {
    try {
        return readManifest(file);
    } catch (const std::exception& error) {
        throw std::runtime_error("cannot install the bundle '" + file.string() + "': " + error.what());
    }
}

}  // namespace cppmicroservices::detail
