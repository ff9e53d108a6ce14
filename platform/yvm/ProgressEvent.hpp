#pragma once

#include "foundation/msg_svc/eventmgr/CommandEvent.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace yvm {

/// A loop that shows its progress has moved. Its event name is "yvm::ProgressEvent".
class [[gnu::visibility("default")]] ProgressEvent final
    : public foundation::msg_svc::eventmgr::CommandEvent<ProgressEvent> {
  public:
    /// `id` is the same in all events of one loop. `done` and `total` count the loop's steps, `rate` is in
    /// steps a second, `remaining` in seconds; empty is what is not known. `finished` tells the last event.
    ProgressEvent(std::optional<IDType> commandId, std::uint64_t id, std::u16string label, double done,
                  std::optional<double> total, std::optional<double> rate, std::optional<double> remaining,
                  bool finished);
    ~ProgressEvent() override;

    std::uint64_t id() const noexcept { return id_; }
    const std::u16string& label() const noexcept { return label_; }
    double done() const noexcept { return done_; }
    std::optional<double> total() const noexcept { return total_; }
    std::optional<double> rate() const noexcept { return rate_; }
    std::optional<double> remaining() const noexcept { return remaining_; }
    bool finished() const noexcept { return finished_; }

  private:
    std::uint64_t id_;
    std::u16string label_;
    double done_;
    std::optional<double> total_;
    std::optional<double> rate_;
    std::optional<double> remaining_;
    bool finished_;
};

}  // namespace yvm
