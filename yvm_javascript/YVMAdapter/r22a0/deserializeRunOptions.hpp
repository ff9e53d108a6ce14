#pragma once

#include "cmddistributor/RunOptions.hpp"
#include "common/JsonObject.hpp"

#include <functional>
#include <memory>
#include <string>

namespace yvm::JSClient::r22a0 {

class EventManagerConnection;

/// Publishes a message on a channel below the client's prefix, for example "/output". Safe to call from
/// an engine thread.
using PublishTextCallback = std::function<void(std::string, JsonObject)>;

/// Builds the run options of one command from the object `runOptions` of its request. Every key is optional,
/// an absent key leaves the default of `RunOptions`, unknown keys are ignored:
///
/// - `dequeueMode`, string: the mode of that name; a text that names no mode is ignored.
/// - `queueName`, string: the queue.
/// - `capabilitiesList`, array of strings: allows these alone.
/// - `groupNames`, array of strings: adds the groups, in order.
/// - `suppressDebugControlOutput`, boolean.
/// - `commandWindowWidth`, `commandWindowHeight`, number: truncated to 64 bits, unchecked. Clients of this
///   version rely on the width being the size of rows and the height that of columns.
/// - `outSinkTraits`, `errSinkTraits`, object: see readSinkTraits.hpp; used by the next two.
/// - `useNullOutSink`, `useNullErrSink`, boolean: true drops the stream's text, false publishes it.
/// - `eventConnections`, object: of each member the name is the identifier under which the client gets the
///   events, and the value, a string, their type. Members are taken in the order of their names. One whose
///   identifier is in use, or whose type has no converter, is passed over. A connection for
///   "ylutil::io::TextBaseEvent" overrides the streams and traits above: the text leaves as events only.
///
/// Text goes out as `{"requestID": R, "stream": 0 or 1, "text": "..."}` on "/output" or "/error",
/// through `publishTextCallback` on the thread that writes it. `requestID` is the R.
///
/// `eventConnection` is the client's event bridge, which keeps the identifiers reserved. It is not kept, and
/// may be null where `eventConnections` is absent or empty.
///
/// Differs from the function of r24a0 in the sizes of the window, the keys of the traits, the channels of
/// text, and in that the traits of diary and logging have no effect on text that is published.
///
/// Throws `boost::bad_get` when a key has a value of another type than the list says, and what keeps the
/// converters' module from starting. Starts nothing else.
cmddistributor::RunOptions deserializeRunOptions(
    const JsonObject& options, const std::shared_ptr<EventManagerConnection>& eventConnection,
    const std::string& requestID, PublishTextCallback publishTextCallback);

}  // namespace yvm::JSClient::r22a0
