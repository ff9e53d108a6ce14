#pragma once

#include <string>
#include <vector>

namespace yvm::engine {

/// One module of the engine's Python side, as it was in the source tree when this binary was built.
struct EmbeddedSource {
    const char* name;  ///< dotted
    bool isPackage;
    std::string text;
};

const std::vector<EmbeddedSource>& embeddedSources();

/// The script that makes them importable. It expects `sources`, a dictionary from name to (text, isPackage).
extern const char* const bootstrapSource;

}  // namespace yvm::engine
