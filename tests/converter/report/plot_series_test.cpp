#include "converter/report/plot_series.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace knrconvert {
namespace {

std::vector<double> Ramp(size_t count) {
  std::vector<double> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<double>(i);
  return values;
}

TEST(PlotSeries, TimeSeriesKeepTheirExtremesAndStayAligned) {
  struct Case {
    size_t count;
    size_t budget;
    size_t expected;
  };
  const Case cases[] = {{10, 10, 10}, {90000, 4000, 4000}, {90001, 3999, 3998}, {5, 1, 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.count) + " points, budget " + std::to_string(c.budget));
    std::vector<double> frames = Ramp(c.count);
    std::vector<double> wave(c.count), spike(c.count, 0.0);
    for (size_t i = 0; i < c.count; ++i) wave[i] = std::sin(0.01 * static_cast<double>(i));
    spike[c.count / 3] = 7.0;
    spike[c.count / 2] = -3.0;
    ThinTimeSeries(frames, {&wave, &spike}, c.budget);

    ASSERT_EQ(frames.size(), c.expected);
    ASSERT_EQ(wave.size(), frames.size());
    ASSERT_EQ(spike.size(), frames.size());
    EXPECT_EQ(frames.front(), 0.0);
    EXPECT_EQ(frames.back(), static_cast<double>(c.count - 1));
    EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end()));
    EXPECT_EQ(*std::max_element(spike.begin(), spike.end()), 7.0);
    EXPECT_EQ(*std::min_element(spike.begin(), spike.end()), -3.0);
    // The spikes stay within one bucket of where they were.
    const auto near = [&](double value, size_t frame) {
      const size_t at =
          static_cast<size_t>(std::find(spike.begin(), spike.end(), value) - spike.begin());
      const double bucket = 2.0 * static_cast<double>(c.count) / static_cast<double>(c.expected);
      return std::fabs(frames[at] - static_cast<double>(frame)) <= bucket;
    };
    EXPECT_TRUE(near(7.0, c.count / 3));
    EXPECT_TRUE(near(-3.0, c.count / 2));
    if (c.count > 1000) {
      EXPECT_NEAR(*std::max_element(wave.begin(), wave.end()), 1.0, 1e-4);
      EXPECT_NEAR(*std::min_element(wave.begin(), wave.end()), -1.0, 1e-4);
    }
  }
}

TEST(PlotSeries, MissingValuesStayGaps) {
  std::vector<double> frames = Ramp(8);
  const double nan = std::nan("");
  std::vector<double> values = {nan, nan, nan, nan, 1, nan, 5, nan};
  ThinTimeSeries(frames, {&values}, 4);
  ASSERT_EQ(values.size(), 4u);
  EXPECT_TRUE(std::isnan(values[0]) && std::isnan(values[1]));
  EXPECT_EQ(values[2], 1.0);
  EXPECT_EQ(values[3], 5.0);
}

TEST(PlotSeries, PathKeepsItsEndsAndOrder) {
  std::vector<double> x = Ramp(90000), z(90000);
  for (size_t i = 0; i < z.size(); ++i) z[i] = -x[i] * 2.0;
  ThinPath(x, z, 4000);
  ASSERT_EQ(x.size(), 4000u);
  ASSERT_EQ(z.size(), 4000u);
  EXPECT_EQ(x.front(), 0.0);
  EXPECT_EQ(x.back(), 89999.0);
  EXPECT_TRUE(std::is_sorted(x.begin(), x.end()));
  for (size_t i = 0; i < x.size(); ++i) ASSERT_EQ(z[i], -2.0 * x[i]) << i;
}

}  // namespace
}  // namespace knrconvert
