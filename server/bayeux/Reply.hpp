#pragma once

#include "server/bayeux/DeliveryQueue.hpp"
#include "server/bayeux/Envelope.hpp"
#include "server/bayeux/FrameText.hpp"
#include "server/bayeux/Refusal.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace server::bayeux {

/// What a client is to do next. All fields always travel together, since one stock client fills what
/// is missing with defaults of its own.
std::string retryAdvice(std::chrono::milliseconds timeout);
inline constexpr std::string_view kStopAdvice = R"({"reconnect":"none"})";
inline constexpr std::string_view kHandshakeAdvice = R"({"reconnect":"handshake","interval":0})";

/// Collects the replies and events of one frame as the text of a JSON array.
class Frame {
  public:
    /// Appends the reply to the message with this channel and id (JSON text, or empty). `fields` are
    /// further members, each with a comma in front.
    void addReply(std::string_view channel, std::string_view id, std::string_view fields = {});
    void addFailure(std::string_view channel, std::string_view id, const Refusal& refusal,
                    std::string_view fields = {});
    void addEvent(const Event& event);

    bool empty() const { return text_.empty(); }
    /// How many messages it holds.
    std::size_t count() const { return count_; }

    /// The array, which leaves this frame empty.
    FrameText take();

  private:
    void open(std::string_view channel, std::string_view id);

    FrameText text_;
    std::size_t count_ = 0;
};

}  // namespace server::bayeux
