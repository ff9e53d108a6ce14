#include "server/app/TomlFile.hpp"

#include "server/app/Options.hpp"

#include <toml++/toml.h>

namespace server::app {

namespace {

std::string placeOf(const std::filesystem::path& file, const toml::source_region& source) {
    return file.string() + ":" + std::to_string(source.begin.line);
}

/// The value as the command line would have it.
std::string textOf(const toml::node& node, const std::string& place) {
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    if (const auto* number = node.as_integer()) {
        return std::to_string(number->get());
    }
    if (const auto* flag = node.as_boolean()) {
        return flag->get() ? "true" : "false";
    }
    throw OptionError(place + ": a string, a whole number, true or false is expected");
}

std::vector<std::string> valuesOf(const toml::node& node, const std::string& place) {
    std::vector<std::string> values;
    if (const auto* array = node.as_array()) {
        for (const toml::node& element : *array) {
            values.push_back(textOf(element, place));
        }
    } else {
        values.push_back(textOf(node, place));
    }
    return values;
}

std::vector<std::string> featuresOf(const toml::table& table, const std::string& place) {
    std::vector<std::string> values;
    for (const auto& [key, node] : table) {
        const auto* flag = node.as_boolean();
        if (flag == nullptr) {
            throw OptionError(place + ": a feature is true or false");
        }
        values.push_back(std::string(key.str()) + (flag->get() ? "=on" : "=off"));
    }
    return values;
}

}  // namespace

std::vector<Setting> readTomlFile(const std::filesystem::path& file) {
    toml::table table;
    try {
        table = toml::parse_file(file.string());
    } catch (const toml::parse_error& error) {
        if (error.source().begin.line == 0) {
            throw OptionError("cannot read the configuration file '" + file.string() + "'");
        }
        throw OptionError(placeOf(file, error.source()) + ": " + std::string(error.description()));
    }
    std::vector<Setting> settings;
    for (const auto& [key, node] : table) {
        Setting setting{std::string(key.str()), {}, placeOf(file, node.source())};
        const auto* features = setting.name == "feature" ? node.as_table() : nullptr;
        setting.values =
            features != nullptr ? featuresOf(*features, setting.place) : valuesOf(node, setting.place);
        settings.push_back(std::move(setting));
    }
    return settings;
}

}  // namespace server::app
