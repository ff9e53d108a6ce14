#pragma once

#include "common/JsonObject.hpp"
#include "ylutil/io/SinkTraits.hpp"

#include <utility>

namespace yvm::JSClient::r24a0 {

/// Reads `{"supportsMore": b, "supportsHotlinks": b, "useDiary": b, "useEcho": b,
/// "needsFormattingForDisplay": b, "useLogging": b}`. An absent key keeps the default of `SinkTraits`,
/// unknown keys are ignored, those of r22a0, which begin with an underscore, among them. Throws
/// `boost::bad_get` for a value that is no boolean.
ylutil::io::SinkTraits readSinkTraits(const JsonObject& object);

/// The traits of the out and of the err stream, out first, from the members `outSinkTraits` and
/// `errSinkTraits` of `enclosing`. An absent member gives default traits. Throws `boost::bad_get` for a
/// member, or an `enclosing`, that is no object.
std::pair<ylutil::io::SinkTraits, ylutil::io::SinkTraits> readSinkTraitsPair(
    const foundation::json::Value& enclosing);

}  // namespace yvm::JSClient::r24a0
