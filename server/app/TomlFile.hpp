#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace server::app {

/// One setting of a configuration file: the name of an option and its values, as the command line would
/// have them.
struct Setting {
    std::string name;
    std::vector<std::string> values;
    /// "<file>:<line>", for messages.
    std::string place;
};

/// Reads a TOML file whose keys are the long names of options. A value is a string, a number, a boolean,
/// or an array of these; a table `[feature]` of booleans stands for `feature = ["<key>=on", ...]`.
///
/// Throws `OptionError`, "<file>:<line>: <what>".
std::vector<Setting> readTomlFile(const std::filesystem::path& file);

}  // namespace server::app
