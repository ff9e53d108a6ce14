#include "server/metrics/Histogram.hpp"

#include <gtest/gtest.h>

namespace server::metrics {
namespace {

using std::chrono::nanoseconds;

TEST(Histogram, PutsADurationIntoTheFirstBucketThatTakesIt) {
    for (std::size_t i = 0; i < Histogram::kBounds.size(); ++i) {
        Histogram histogram;
        histogram.observe(Histogram::kBounds[i]);
        EXPECT_EQ(histogram.read().counts[i], 1U) << "a bound belongs to its bucket: " << i;
        histogram.observe(Histogram::kBounds[i] + nanoseconds(1));
        EXPECT_EQ(histogram.read().counts[i + 1], 1U) << "what is longer, to the next: " << i;
        EXPECT_EQ(histogram.read().counts[i], 1U);
    }
}

TEST(Histogram, TakesWhatIsShorterAndLongerThanAllBounds) {
    Histogram histogram;
    histogram.observe(nanoseconds(0));
    histogram.observe(std::chrono::hours(100));
    const auto reading = histogram.read();
    EXPECT_EQ(reading.counts.front(), 1U);
    EXPECT_EQ(reading.counts.back(), 1U);
    EXPECT_EQ(reading.sum, std::chrono::hours(100));
}

TEST(Histogram, SumsExactly) {
    Histogram histogram;
    for (int i = 0; i < 1000; ++i) {
        histogram.observe(nanoseconds(333'333'333));
    }
    EXPECT_EQ(histogram.read().sum, nanoseconds(333'333'333'000));
}

}  // namespace
}  // namespace server::metrics
