#pragma once

#include "foundation/json/Value.hpp"
#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <map>
#include <string>

namespace ylutil::io {

/// A value is displayed, told in one or several media types. Its event name is
/// "ylutil::io::StructuredOutputEvent".
class [[gnu::visibility("default")]] StructuredOutputEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<StructuredOutputEvent> {
  public:
    /// Keyed by media type, for example "text/html".
    using Bundle = std::map<std::string, foundation::json::Value>;

    /// `data` holds the value itself: text as a string, binary data as a string in base64, "application/json"
    /// as any value. `metadata` tells more of some of the types, for example `{"width": 640, "height": 480}`
    /// of "image/png", in pixels.
    StructuredOutputEvent(std::optional<IDType> commandId, Bundle data, Bundle metadata);
    ~StructuredOutputEvent() override;

    const Bundle& data() const noexcept { return data_; }
    const Bundle& metadata() const noexcept { return metadata_; }

  private:
    Bundle data_;
    Bundle metadata_;
};

}  // namespace ylutil::io
