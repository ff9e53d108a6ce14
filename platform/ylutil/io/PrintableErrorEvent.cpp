#include "ylutil/io/PrintableErrorEvent.hpp"

#include <utility>

namespace ylutil::io {

PrintableErrorEvent::PrintableErrorEvent(std::optional<IDType> commandId, std::string identifier,
                                         std::u16string message, std::vector<Frame> stack)
    : CommandEvent(commandId),
      identifier_(std::move(identifier)),
      message_(std::move(message)),
      stack_(std::move(stack)) {}

PrintableErrorEvent::~PrintableErrorEvent() = default;

}  // namespace ylutil::io
