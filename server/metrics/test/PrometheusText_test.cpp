#include "server/metrics/PrometheusText.hpp"

#include <gtest/gtest.h>

namespace server::metrics {
namespace {

TEST(PrometheusText, WritesFamiliesAndSamples) {
    PrometheusText text;
    text.family("a", "gauge", "One.");
    text.sample({}, 5);
    text.family("b_total", "counter", "Two.");
    text.sample({{"x", "y"}}, 0);
    text.sample({{"x", "z"}, {"k", "v"}}, 18446744073709551615U);
    EXPECT_EQ(text.take(),
              "# HELP a One.\n"
              "# TYPE a gauge\n"
              "a 5\n"
              "# HELP b_total Two.\n"
              "# TYPE b_total counter\n"
              "b_total{x=\"y\"} 0\n"
              "b_total{x=\"z\",k=\"v\"} 18446744073709551615\n");
}

TEST(PrometheusText, EscapesWhatWouldEndALineOrAValue) {
    PrometheusText text;
    text.family("a", "gauge", "back\\slash \"quoted\"\nnext");
    text.sample({{"x", "back\\slash \"quoted\"\nnext"}}, 1);
    EXPECT_EQ(text.take(),
              "# HELP a back\\\\slash \"quoted\"\\nnext\n"
              "# TYPE a gauge\n"
              "a{x=\"back\\\\slash \\\"quoted\\\"\\nnext\"} 1\n");
}

TEST(PrometheusText, CumulatesTheBucketsOfAHistogram) {
    Histogram histogram;
    histogram.observe(std::chrono::microseconds(10));
    histogram.observe(std::chrono::microseconds(11));
    histogram.observe(std::chrono::seconds(1));
    histogram.observe(std::chrono::hours(2));
    PrometheusText text;
    text.family("h_seconds", "histogram", "Three.");
    text.sample({{"kind", "eval"}}, histogram);
    EXPECT_EQ(text.take(),
              "# HELP h_seconds Three.\n"
              "# TYPE h_seconds histogram\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.00001\"} 1\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.000025\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.00005\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.0001\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.00025\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.0005\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.001\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.0025\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.005\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.01\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.025\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.1\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"0.25\"} 2\n"
              "h_seconds_bucket{kind=\"eval\",le=\"1\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"2.5\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"10\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"60\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"300\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"900\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"3600\"} 3\n"
              "h_seconds_bucket{kind=\"eval\",le=\"+Inf\"} 4\n"
              "h_seconds_sum{kind=\"eval\"} 7201.000021\n"
              "h_seconds_count{kind=\"eval\"} 4\n");
}

TEST(PrometheusText, WritesSecondsExactly) {
    using std::chrono::nanoseconds;
    EXPECT_EQ(secondsText(nanoseconds(0)), "0");
    EXPECT_EQ(secondsText(nanoseconds(1)), "0.000000001");
    EXPECT_EQ(secondsText(nanoseconds(1'500'000'000)), "1.5");
    EXPECT_EQ(secondsText(std::chrono::hours(1)), "3600");
    EXPECT_EQ(secondsText(nanoseconds(10'000'000'001)), "10.000000001");
}

}  // namespace
}  // namespace server::metrics
