#include "take_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "converter/report/take_file.h"

namespace knrconvert {
namespace {

namespace fs = std::filesystem;

// Long series are cut to the plot's budget in the take file without losing a short spike or
// dip, the frames kept stay in order and inside the take, and the path keeps its ends.
TEST(TakeRecord, LongSeriesKeepTheirExtremes) {
  const fs::path dir = fs::temp_directory_path() / "knrconvert_take_record_test";
  fs::remove_all(dir);
  fs::create_directories(dir);
  for (size_t count : {size_t{3}, size_t{2400}, size_t{2401}, size_t{90220}}) {
    std::vector<double> series(count);
    for (size_t i = 0; i < count; ++i) series[i] = std::sin(static_cast<double>(i) * 0.01);
    series[count / 3] = 50;   // a one-frame spike
    series[count - 1] = -50;  // and a dip on the very last frame
    TakeRecord record;
    record.take = "long";
    record.ok = true;
    record.firstFrame = 7;
    record.heel["LeftFoot"] = series;
    record.pathX = series;
    record.pathZ = series;
    std::string error;
    ASSERT_TRUE(WriteTakeRecord(record, dir, error)) << error;
    std::ifstream in(dir / "long.json");
    const nlohmann::json plots = nlohmann::json::parse(in)["plots"];
    const auto frames = plots["frames"].get<std::vector<int>>();
    const auto heel = plots["heel"]["LeftFoot"].get<std::vector<double>>();
    const auto path = plots["path"]["x"].get<std::vector<double>>();
    EXPECT_LE(frames.size(), kPlotPointBudget) << count;
    EXPECT_LE(path.size(), kPlotPointBudget) << count;
    EXPECT_EQ(heel.size(), frames.size()) << count;
    EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end())) << count;
    EXPECT_GE(frames.front(), 7) << count;
    EXPECT_LT(frames.back(), 7 + static_cast<int>(count)) << count;
    EXPECT_EQ(*std::max_element(heel.begin(), heel.end()), 50) << count;
    EXPECT_EQ(*std::min_element(heel.begin(), heel.end()), -50) << count;
    EXPECT_EQ(path.front(), series.front()) << count;
    EXPECT_EQ(path.back(), series.back()) << count;
  }
  fs::remove_all(dir);
}

}  // namespace
}  // namespace knrconvert
