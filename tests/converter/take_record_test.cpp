#include "take_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace knrconvert {
namespace {

// Long series are cut to the plot's budget without losing a short spike or dip, and the frames
// kept stay in order and inside the take.
TEST(TakeRecord, LongSeriesKeepTheirExtremes) {
  for (size_t count : {size_t{3}, size_t{4000}, size_t{4001}, size_t{90220}}) {
    std::vector<double> series(count);
    for (size_t i = 0; i < count; ++i) series[i] = std::sin(static_cast<double>(i) * 0.01);
    series[count / 3] = 50;   // a one-frame spike
    series[count - 1] = -50;  // and a dip on the very last frame
    const std::vector<size_t> indices = PlotIndices(count);
    const std::vector<double> heel = DecimateSeries(series, true);
    const std::vector<double> path = DecimateSeries(series, false);
    EXPECT_LE(indices.size(), kMaxPlotPoints) << count;
    EXPECT_EQ(heel.size(), indices.size()) << count;
    EXPECT_EQ(path.size(), indices.size()) << count;
    EXPECT_TRUE(std::is_sorted(indices.begin(), indices.end())) << count;
    EXPECT_LT(indices.back(), count) << count;
    EXPECT_EQ(*std::max_element(heel.begin(), heel.end()), 50) << count;
    EXPECT_EQ(*std::min_element(heel.begin(), heel.end()), -50) << count;
    for (size_t k = 0; k < indices.size(); ++k) EXPECT_EQ(path[k], series[indices[k]]) << count;
  }
}

}  // namespace
}  // namespace knrconvert
