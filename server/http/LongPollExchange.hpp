#pragma once

#include "server/bayeux/Connection.hpp"

#include <functional>
#include <string>

namespace server::http {

/// One request of a long-polling client, and the one answer it gets: at once, or, when it holds a connect
/// only, as soon as there is something to tell.
class LongPollExchange final : public bayeux::Connection {
  public:
    /// `answer` is called once, with the HTTP status and either a JSON array (200) or a plain text.
    using Answer = std::function<void(unsigned status, std::string body)>;

    LongPollExchange(std::string peerAddress, bool isAuthenticated, Answer answer)
        : Connection(std::move(peerAddress)), isAuthenticated_(isAuthenticated), answer_(std::move(answer)) {}

    void send(bayeux::FrameText frame) override;
    void refuseFrame(bayeux::FrameText frame, const bayeux::Refusal& why) override;
    void close(bayeux::CloseCode code, std::string reason) override;
    void supersede() override;
    bool isWritable() const override { return !isAnswered_; }
    bool isStreaming() const override { return false; }
    bool isAuthenticated() const override { return isAuthenticated_; }

  private:
    void answer(unsigned status, std::string body);

    const bool isAuthenticated_;
    const Answer answer_;
    bool isAnswered_ = false;
};

}  // namespace server::http
