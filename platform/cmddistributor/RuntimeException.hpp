#pragma once

#include "cmddistributor/StackFrame.hpp"
#include "foundation/json/Value.hpp"
#include "ylutil/cmddistributor/inExecutionStatus.hpp"

#include <boost/variant.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cmddistributor {

/// Why a command failed, with everything that the engine knows about it. A value; copies share their
/// fields, so that copying one neither throws nor costs more for a long chain of causes.
///
/// Derives from `std::exception` alone, directly and not virtually: only so does its type survive
/// every way through a Boost future. From any class of the standard hierarchy below it,
/// `boost::current_exception` would copy the base alone.
class [[gnu::visibility("default")]] RuntimeException : public std::exception {
  public:
    using Status = ylutil::cmddistributor::inExecutionStatus;
    using Argument =
        boost::variant<std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t, std::uint32_t,
                       std::int64_t, std::uint64_t, float, double, std::u16string>;
    using Arguments = std::vector<Argument>;

    /// How many levels of causes are kept below an error; the constructors drop what lies deeper. Everybody
    /// who walks the causes, a client's JSON reader included, does so on a stack: a program that wraps its
    /// errors in a loop must not exhaust it.
    static constexpr std::size_t maxCauseDepth = 100;

    RuntimeException(Status status, std::u16string message, std::string identifier = {},
                     std::string functionName = {}, std::vector<StackFrame> stackFrames = {},
                     std::vector<RuntimeException> causes = {}, bool shutdown = false,
                     Arguments arguments = {});
    /// The message is UTF-8; invalid bytes become U+FFFD.
    RuntimeException(Status status, const std::string& message, std::string identifier = {},
                     std::string functionName = {}, std::vector<StackFrame> stackFrames = {},
                     std::vector<RuntimeException> causes = {}, bool shutdown = false,
                     Arguments arguments = {});
    RuntimeException(Status status, std::u16string message, std::string identifier, std::string functionName,
                     std::vector<StackFrame> stackFrames, std::vector<RuntimeException> causes, bool shutdown,
                     Arguments arguments, foundation::json::Object exceptionJson);

    RuntimeException(const RuntimeException&) noexcept;
    RuntimeException& operator=(const RuntimeException&) noexcept;
    ~RuntimeException() override;

    /// The message as UTF-8.
    const char* what() const noexcept override;

    Status getExecutionStatus() const noexcept;
    const std::u16string& GetUnicodeMessageTxt() const noexcept;
    /// The type of the error, for example "ZeroDivisionError"; empty when there is none.
    const std::string& GetID() const noexcept;
    const std::string& getFunctionName() const noexcept;
    const std::vector<StackFrame>& getStackFrames() const noexcept;
    /// The errors that led to this one, the direct cause first.
    const std::vector<RuntimeException>& getCauses() const noexcept;
    /// Whether the engine goes down with this error.
    bool getShutdown() const noexcept;
    const Arguments& GetArguments() const noexcept;
    /// The engine's own description as JSON; empty where it gave none.
    const std::optional<foundation::json::Object>& getExceptionJson() const noexcept;

    /// A copy with all fields but the status.
    RuntimeException withStatus(Status status) const;

  private:
    struct Fields;

    explicit RuntimeException(std::shared_ptr<const Fields> fields) noexcept;

    static std::shared_ptr<const Fields> makeFields(Fields fields);
    /// A copy whose tree of causes has at most `levels` levels below it.
    RuntimeException withCausesCutBelow(std::size_t levels) const;

    std::shared_ptr<const Fields> fields_;
};

}  // namespace cmddistributor
