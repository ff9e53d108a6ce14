#pragma once

#include "server/metrics/Histogram.hpp"

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace server::metrics {

/// Writes metrics in Prometheus' text format 0.0.4:
///
///     # HELP name text
///     # TYPE name counter|gauge|histogram
///     name{label="value",...} number
///
/// In the help `\` and line feeds are escaped, in values of labels the quote too. All samples of a family
/// stand together, behind its two lines.
class PrometheusText {
  public:
    static constexpr const char* kContentType = "text/plain; version=0.0.4; charset=utf-8";

    struct Label {
        std::string_view name;
        std::string_view value;
    };
    using Labels = std::initializer_list<Label>;

    /// Begins a family, whose samples follow. Names are in due form.
    void family(std::string_view name, std::string_view type, std::string_view help);

    void sample(Labels labels, std::uint64_t value);
    /// The cumulated buckets, the sum in seconds, and the count.
    void sample(Labels labels, const Histogram& histogram);

    std::string take() { return std::move(text_); }

  private:
    void line(std::string_view suffix, Labels labels, std::string_view bound, std::string_view value);

    std::string text_;
    std::string family_;
};

/// A duration that is not negative in seconds, exactly: "0.00025", "60".
std::string secondsText(std::chrono::nanoseconds duration);

}  // namespace server::metrics
