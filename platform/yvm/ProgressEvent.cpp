#include "yvm/ProgressEvent.hpp"

#include <utility>

namespace yvm {

ProgressEvent::ProgressEvent(std::optional<IDType> commandId, std::uint64_t id, std::u16string label,
                             double done, std::optional<double> total, std::optional<double> rate,
                             std::optional<double> remaining, bool finished)
    : CommandEvent(commandId),
      id_(id),
      label_(std::move(label)),
      done_(done),
      total_(total),
      rate_(rate),
      remaining_(remaining),
      finished_(finished) {}

ProgressEvent::~ProgressEvent() = default;

}  // namespace yvm
