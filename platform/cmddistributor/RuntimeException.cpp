#include "cmddistributor/RuntimeException.hpp"

#include "fl/i18n/ustring.hpp"

#include <algorithm>
#include <utility>

namespace cmddistributor {

struct RuntimeException::Fields {
    Status status;
    std::u16string message;
    std::string what;
    std::string identifier;
    std::string functionName;
    std::vector<StackFrame> stackFrames;
    std::vector<RuntimeException> causes;
    bool shutdown;
    Arguments arguments;
    std::optional<foundation::json::Object> exceptionJson;
    std::size_t causeDepth = 0;  ///< levels of causes; filled in by makeFields
};

RuntimeException::RuntimeException(Status status, std::u16string message, std::string identifier,
                                   std::string functionName, std::vector<StackFrame> stackFrames,
                                   std::vector<RuntimeException> causes, bool shutdown, Arguments arguments)
    : fields_(makeFields({status,
                          std::move(message),
                          {},
                          std::move(identifier),
                          std::move(functionName),
                          std::move(stackFrames),
                          std::move(causes),
                          shutdown,
                          std::move(arguments),
                          {}})) {}

RuntimeException::RuntimeException(Status status, const std::string& message, std::string identifier,
                                   std::string functionName, std::vector<StackFrame> stackFrames,
                                   std::vector<RuntimeException> causes, bool shutdown, Arguments arguments)
    : RuntimeException(status, fl::i18n::to_ustring(message), std::move(identifier), std::move(functionName),
                       std::move(stackFrames), std::move(causes), shutdown, std::move(arguments)) {}

RuntimeException::RuntimeException(Status status, std::u16string message, std::string identifier,
                                   std::string functionName, std::vector<StackFrame> stackFrames,
                                   std::vector<RuntimeException> causes, bool shutdown, Arguments arguments,
                                   foundation::json::Object exceptionJson)
    : fields_(makeFields({status,
                          std::move(message),
                          {},
                          std::move(identifier),
                          std::move(functionName),
                          std::move(stackFrames),
                          std::move(causes),
                          shutdown,
                          std::move(arguments),
                          std::move(exceptionJson)})) {}

RuntimeException::RuntimeException(std::shared_ptr<const Fields> fields) noexcept
    : fields_(std::move(fields)) {}

RuntimeException::RuntimeException(const RuntimeException&) noexcept = default;
RuntimeException& RuntimeException::operator=(const RuntimeException&) noexcept = default;
RuntimeException::~RuntimeException() = default;

std::shared_ptr<const RuntimeException::Fields> RuntimeException::makeFields(Fields fields) {
    fields.what = fl::i18n::to_string(fields.message);
    fields.causeDepth = 0;
    for (auto& cause : fields.causes) {
        if (cause.fields_->causeDepth >= maxCauseDepth) {
            cause = cause.withCausesCutBelow(maxCauseDepth - 1);
        }
        fields.causeDepth = std::max(fields.causeDepth, cause.fields_->causeDepth + 1);
    }
    return std::make_shared<const Fields>(std::move(fields));
}

RuntimeException RuntimeException::withCausesCutBelow(std::size_t levels) const {
    if (fields_->causeDepth <= levels) {
        return *this;
    }
    Fields cut = *fields_;
    if (levels == 0) {
        cut.causes.clear();
    } else {
        for (auto& cause : cut.causes) {
            cause = cause.withCausesCutBelow(levels - 1);
        }
    }
    return RuntimeException(makeFields(std::move(cut)));
}

const char* RuntimeException::what() const noexcept {
    return fields_->what.c_str();
}
RuntimeException::Status RuntimeException::getExecutionStatus() const noexcept {
    return fields_->status;
}
const std::u16string& RuntimeException::GetUnicodeMessageTxt() const noexcept {
    return fields_->message;
}
const std::string& RuntimeException::GetID() const noexcept {
    return fields_->identifier;
}
const std::string& RuntimeException::getFunctionName() const noexcept {
    return fields_->functionName;
}
const std::vector<StackFrame>& RuntimeException::getStackFrames() const noexcept {
    return fields_->stackFrames;
}
const std::vector<RuntimeException>& RuntimeException::getCauses() const noexcept {
    return fields_->causes;
}
bool RuntimeException::getShutdown() const noexcept {
    return fields_->shutdown;
}
const RuntimeException::Arguments& RuntimeException::GetArguments() const noexcept {
    return fields_->arguments;
}
const std::optional<foundation::json::Object>& RuntimeException::getExceptionJson() const noexcept {
    return fields_->exceptionJson;
}

RuntimeException RuntimeException::withStatus(Status status) const {
    Fields changed = *fields_;
    changed.status = status;
    return RuntimeException(makeFields(std::move(changed)));
}

}  // namespace cmddistributor
