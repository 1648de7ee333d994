#include "converter/report/take_file.h"

#include <gtest/gtest.h>

namespace knrconvert {
namespace {

using nlohmann::json;

json Series(size_t count, double scale) {
  json values = json::array();
  for (size_t i = 0; i < count; ++i) values.push_back(scale * static_cast<double>(i % 97));
  return values;
}

bool HasWarning(const TakeReport& take, const std::string& text) {
  for (const std::string& w : take.warnings) {
    if (w.find(text) != std::string::npos) return true;
  }
  return false;
}

TEST(TakeFile, LongSeriesAreThinnedToTheBudget) {
  const size_t count = 90000;
  json frames = json::array();
  for (size_t i = 0; i < count; ++i) frames.push_back(i);
  const json root = {
      {"take", "long"},
      {"status", "ok"},
      {"feet", {{{"joint", "LeftFoot"}, {"found", "name"}}}},
      {"contacts", {{"LeftFoot", {{10, 50}, {150, 190}}}}},
      {"plots",
       {{"frames", frames},
        {"heel", {{"LeftFoot", Series(count, 0.1)}, {"RightFoot", Series(count, 0.2)}}},
        {"heightLimit", {{"LeftFoot", 1.7}}},
        {"path", {{"x", Series(count, 1)}, {"z", Series(count, 2)}}}}}};
  const std::optional<TakeReport> take = ReadTakeJson(root, "long.json");
  ASSERT_TRUE(take);
  const json& contacts = take->plots["contacts"];
  EXPECT_EQ(contacts["frames"].size(), kPlotPointBudget);
  ASSERT_EQ(contacts["feet"].size(), 2u);
  EXPECT_EQ(contacts["feet"][0]["name"], "LeftFoot");
  EXPECT_EQ(contacts["feet"][0]["limit"], 1.7);
  EXPECT_EQ(contacts["feet"][0]["intervals"], json({{10, 50}, {150, 190}}));
  EXPECT_TRUE(contacts["feet"][1]["limit"].is_null());
  EXPECT_EQ(contacts["feet"][1]["heel"].size(), kPlotPointBudget);
  EXPECT_EQ(take->plots["path"]["x"].size(), kPlotPointBudget);
  EXPECT_TRUE(take->warnings.empty());
}

TEST(TakeFile, BadFieldsAreWarnedAboutAndLeftOut) {
  struct Case {
    const char* what;
    json fields;
    const char* warning;
  };
  const Case cases[] = {
      {"frames of the wrong type", {{"frames", "many"}}, "\"frames\" has the wrong type"},
      {"heel shorter than its frames",
       {{"plots", {{"frames", {0, 1, 2, 3}}, {"heel", {{"LeftFoot", {0.5, 0.4}}}}}}},
       "\"heel.LeftFoot\" has 2 points for 4 frames"},
      {"malformed contact interval",
       {{"contacts", {{"LeftFoot", {{1, 2}, {3}}}}},
        {"plots", {{"frames", {0, 1}}, {"heel", {{"LeftFoot", {0, 1}}}}}}},
       "1 contact interval(s) of LeftFoot"},
      {"seam values of the wrong type",
       {{"plots", {{"seam", {{"frames", {0, 1}}, {"before", "x"}, {"after", {1, 2}}}}}}},
       "\"plots.seam.before\" has the wrong type"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    json root = {{"take", "t"}, {"status", "ok"}};
    root.update(c.fields);
    const std::optional<TakeReport> take = ReadTakeJson(root, "t.json");
    ASSERT_TRUE(take);
    EXPECT_TRUE(HasWarning(*take, c.warning)) << (take->warnings.empty() ? "" : take->warnings[0]);
  }
  const std::optional<TakeReport> take = ReadTakeJson(
      {{"take", "t"}, {"plots", {{"frames", {0, 1, 2, 3}}, {"heel", {{"L", {0.5, 0.4}}}}}}},
      "t.json");
  EXPECT_EQ(take->plots["contacts"]["frames"], json({0, 1}));
  EXPECT_TRUE(take->failed) << "a take without a status did not say it converted";
}

TEST(TakeFile, SeamJoinIsWhereTheFramesStartAgain) {
  const json root = {{"take", "t"},
                     {"plots",
                      {{"seam",
                        {{"channel", "Hips.posx"},
                         {"frames", {120, 121, 122, 120, 121, 122}},
                         {"before", {0, 1, 2, 3, 4, 5}},
                         {"after", {0, 1, 2, 2, 4, 5}}}}}}};
  const std::optional<TakeReport> take = ReadTakeJson(root, "t.json");
  ASSERT_TRUE(take);
  const json& seam = take->plots["seam"];
  EXPECT_EQ(seam["joinAt"], 3);
  EXPECT_EQ(seam["x"], json({0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(seam["frame"], json({120, 121, 122, 120, 121, 122}));
}

TEST(TakeFile, PhasesAreListedInRunOrderWithTheTotalApart) {
  const std::optional<TakeReport> take = ReadTakeJson(
      {{"take", "t"},
       {"seconds",
        {{"save", 0.3}, {"total", 1.0}, {"import", 0.4}, {"extra", 0.1}, {"loop", 0.2}}}},
      "t.json");
  ASSERT_TRUE(take);
  std::vector<std::string> phases;
  for (const auto& phase : take->seconds) phases.push_back(phase.first);
  EXPECT_EQ(phases, (std::vector<std::string>{"import", "loop", "save", "extra"}));
  EXPECT_EQ(take->total_seconds, 1.0);
}

// A view of `joints` joints in a chain whose skill clip holds `count` samples.
json ViewOf(size_t joints, size_t count) {
  json parents = json::array();
  for (size_t j = 0; j < joints; ++j) parents.push_back(static_cast<int>(j) - 1);
  const size_t bytes = count * joints * 3 * 2;
  return {{"frameTime", 1.0 / 120},
          {"parents", parents},
          {"feet", {{{"name", "LeftFoot"}, {"joint", joints - 1}}}},
          {"skill",
           {{"first", 0},
            {"step", 1},
            {"count", count},
            {"unit", 0.01},
            {"positions", std::string((bytes + 2) / 3 * 4 - (3 - bytes % 3) % 3, 'A') +
                              std::string((3 - bytes % 3) % 3, '=')}}}};
}

TEST(TakeFile, ViewIsKeptOnlyWhenItHoldsTogetherWithinItsBudget) {
  struct Case {
    const char* what;
    json view;
    const char* warning;  // nullptr: the view is kept
  };
  json parentAfter = ViewOf(3, 4);
  parentAfter["parents"][1] = 2;
  json footOut = ViewOf(3, 4);
  footOut["feet"][0]["joint"] = 3;
  json shortPositions = ViewOf(3, 4);
  shortPositions["skill"]["count"] = 5;
  json badCharacter = ViewOf(3, 4);
  badCharacter["skill"]["positions"].get_ref<std::string&>()[5] = '*';
  json badLoop = ViewOf(3, 4);
  badLoop["loop"] = badLoop["skill"];
  badLoop["loop"]["unit"] = 0;
  // 40 joints x 1025 samples: 328,000 characters, one sample over the budget.
  const json outsized = ViewOf(40, 1025);
  const Case cases[] = {
      {"a view that holds together", ViewOf(3, 4), nullptr},
      {"a view at its largest", ViewOf(40, 1024), nullptr},
      {"a parent after its child", parentAfter, "a parent that is not -1 or an earlier joint"},
      {"a foot out of range", footOut, "a foot whose joint is out of range"},
      {"positions for fewer samples", shortPositions, "is not base64 of 5 x 3 joints"},
      {"a character outside base64", badCharacter, "is not base64"},
      {"a loop clip without a unit", badLoop, "\"loop\" clip needs a positive \"unit\""},
      {"an outsized clip", outsized, "more than 327680"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::optional<TakeReport> take =
        ReadTakeJson({{"take", "t"}, {"status", "ok"}, {"view", c.view}}, "t.json");
    ASSERT_TRUE(take);
    if (c.warning == nullptr) {
      EXPECT_EQ(take->view["skill"]["positions"], c.view["skill"]["positions"]);
      EXPECT_TRUE(take->warnings.empty());
    } else {
      EXPECT_TRUE(take->view.is_null());
      EXPECT_TRUE(HasWarning(*take, c.warning))
          << (take->warnings.empty() ? "" : take->warnings[0]);
    }
  }
}

}  // namespace
}  // namespace knrconvert
