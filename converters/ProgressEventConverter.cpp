#include "converters/ProgressEventConverter.hpp"

#include "converters/eventAs.hpp"
#include "fl/i18n/ustring.hpp"
#include "yvm/ProgressEvent.hpp"

#include <optional>

namespace converters {

namespace {

foundation::json::Value numberOrNull(std::optional<double> number) {
    return number ? foundation::json::Value(*number) : foundation::json::Value(foundation::json::Null());
}

}  // namespace

std::map<std::string, foundation::json::Value> ProgressEventConverter::convert(
    const foundation::msg_svc::eventmgr::BaseEvent& event) const {
    const auto& progress = eventAs<yvm::ProgressEvent>(event);
    return {{"id", progress.id()},
            {"label", fl::i18n::to_string(progress.label())},
            {"done", progress.done()},
            {"total", numberOrNull(progress.total())},
            {"rate", numberOrNull(progress.rate())},
            {"remaining", numberOrNull(progress.remaining())},
            {"finished", progress.finished()}};
}

}  // namespace converters
