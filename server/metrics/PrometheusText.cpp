#include "server/metrics/PrometheusText.hpp"

namespace server::metrics {

namespace {

enum class Quote { Plain, Escaped };

std::string escaped(std::string_view text, Quote quote) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else {
            if (c == '\\' || (c == '"' && quote == Quote::Escaped)) {
                result += '\\';
            }
            result += c;
        }
    }
    return result;
}

}  // namespace

void PrometheusText::family(std::string_view name, std::string_view type, std::string_view help) {
    family_ = name;
    text_ += "# HELP " + family_ + ' ' + escaped(help, Quote::Plain) + '\n';
    text_ += "# TYPE " + family_ + ' ' + std::string(type) + '\n';
}

void PrometheusText::sample(Labels labels, std::uint64_t value) {
    line("", labels, "", std::to_string(value));
}

void PrometheusText::sample(Labels labels, const Histogram& histogram) {
    const Histogram::Reading reading = histogram.read();
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < reading.counts.size(); ++i) {
        count += reading.counts[i];
        line("_bucket", labels, i < Histogram::kBounds.size() ? secondsText(Histogram::kBounds[i]) : "+Inf",
             std::to_string(count));
    }
    line("_sum", labels, "", secondsText(reading.sum));
    line("_count", labels, "", std::to_string(count));
}

void PrometheusText::line(std::string_view suffix, Labels labels, std::string_view bound,
                          std::string_view value) {
    text_ += family_;
    text_ += suffix;
    char separator = '{';
    const auto add = [&](const Label& label) {
        text_ += separator;
        text_ += label.name;
        text_ += "=\"" + escaped(label.value, Quote::Escaped) + '"';
        separator = ',';
    };
    for (const Label& label : labels) {
        add(label);
    }
    if (!bound.empty()) {
        add({"le", bound});
    }
    text_ += separator == ',' ? "} " : " ";
    text_ += value;
    text_ += '\n';
}

std::string secondsText(std::chrono::nanoseconds duration) {
    constexpr std::int64_t kPerSecond = 1'000'000'000;
    std::string text = std::to_string(duration.count() / kPerSecond);
    // With a 1 in front, so that the zeros behind the point stay.
    std::string fraction = std::to_string(kPerSecond + duration.count() % kPerSecond);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    if (fraction.size() > 1) {
        text += '.' + fraction.substr(1);
    }
    return text;
}

}  // namespace server::metrics
