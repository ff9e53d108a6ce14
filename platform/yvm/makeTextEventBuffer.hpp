#pragma once

#include "ylutil/io/StreamTypeEnum.hpp"

#include <boost/shared_ptr.hpp>

#include <streambuf>

namespace yvm {

/// A stream buffer that fires what is written to it as `ylutil::io::TextBaseEvent`s on the event manager of
/// the current engine, synchronously, each with the identity of the command that wrote it.
///
/// Text is collected until `pubsync`, until another command writes, or beyond 8192 units. While there is no
/// engine, or it has no event manager, it is kept. The end-of-file value and NUL are dropped when they are
/// put singly. Destruction drops what is still collected. One writer at a time.
boost::shared_ptr<std::basic_streambuf<char16_t>> makeTextEventBuffer(ylutil::io::StreamTypeEnum streamType);

}  // namespace yvm
