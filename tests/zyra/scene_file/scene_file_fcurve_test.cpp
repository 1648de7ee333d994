// Function curves in scene files: long curves of every storage form survive save and open key
// for key and give the same bytes again, in the column form; a file that keys a long curve key
// by key still opens; malformed columns are refused at the item at fault; long ones show progress.
#include "scene_file/scene_file_fcurve.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>

#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "scene_file/scene_file_progress.h"

namespace {

namespace rt = Zyra::rt;

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

rt::FCurveKey Key(double frame, double value, int code = 0) {
  rt::FCurveKey k;
  k.frame = frame;
  k.value = value;
  k.interpolation = code;
  return k;
}

rt::FCurveObject& Curve(const wchar_t* path) {
  auto param = std::dynamic_pointer_cast<rt::Parameter>(rt::Resolve(path));
  EXPECT_TRUE(param && param->fcurve);
  return *param->fcurve;
}

class SceneFileFCurve : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    path_ = "/tmp/zyra_fcurve_" + std::to_string(::getpid()) + ".zyra";
  }
  void TearDown() override { std::remove(path_.c_str()); }
  std::string path_;
};

TEST_F(SceneFileFCurve, LongCurvesRoundTripByColumnsWithTheSameBytes) {
  struct Case {
    const wchar_t* channel;
    const char* column;  // a member only this curve's form writes
    std::function<rt::FCurveKey(size_t)> key;
  };
  const std::vector<Case> cases = {
      {L"posx", "\"floatValues\": \"-3 -2.9", [](size_t i) { return Key(0.5 * i, -3 + 0.1f * i); }},
      {L"posy", "\"values\": \"0 0.1 ", [](size_t i) { return Key(1 + i, 0.1 * i); }},
      {L"posz", "\"frames\": \"0 1 4 ", [](size_t i) { return Key(i * i, 1.5, 0); }},
      {L"rotx", "\"keyInterpolations\": \"0123", [](size_t i) { return Key(i, 2, i % 4); }},
      {L"roty", "\"tangents\": [[0, -1.0, 2.0, 1.0, -0.5], [7, ",
       [](size_t i) {
         rt::FCurveKey k = Key(i, i % 3 ? 1e300 : -0.0);
         k.hasTangents = i % 7 == 0;
         k.leftTanX = k.hasTangents ? -1 : 0;
         k.leftTanY = k.hasTangents ? 2 : 0;
         k.rightTanX = k.hasTangents ? 1 : 0;
         k.rightTanY = k.hasTangents ? -0.5 : 0;
         return k;
       }},
  };
  auto ball = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Ball");
  std::vector<std::vector<rt::FCurveKey>> written;
  for (const Case& c : cases) {
    auto curve = ball->local->FindParam(c.channel)->AddFCurve();
    std::vector<rt::FCurveKey> keys;
    for (size_t i = 0; i < 1500; ++i) keys.push_back(c.key(i));  // columns of several KiB
    curve->keys = keys;
    written.push_back(keys);
  }
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  const std::string first = ReadBytes(path_);
  ASSERT_TRUE(rt::OpenSceneFile(path_).Succeeded());
  for (size_t c = 0; c < cases.size(); ++c) {
    SCOPED_TRACE(cases[c].column);
    EXPECT_NE(first.find(cases[c].column), std::string::npos);
    std::vector<rt::FCurveKey> read =
        Curve((std::wstring(L"Ball.kine.local.") + cases[c].channel).c_str()).keys;
    ASSERT_EQ(read.size(), written[c].size());
    for (size_t i = 0; i < read.size(); ++i) {
      const rt::FCurveKey &a = read[i], &b = written[c][i];
      EXPECT_TRUE(a.frame == b.frame && a.value == b.value &&
                  std::signbit(a.value) == std::signbit(b.value) &&
                  a.interpolation == b.interpolation && a.hasTangents == b.hasTangents &&
                  a.rightTanY == b.rightTanY)
          << "key " << i;
    }
  }
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  EXPECT_EQ(ReadBytes(path_), first);
}

// A take of a million keys shows a bar while it saves and while it opens, and it ends full and
// hidden; a small scene shows none.
TEST_F(SceneFileFCurve, LongSavesAndOpensShowProgress) {
  auto& runs = rt::Host::Get().ui().progressRuns;
  runs.clear();
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  ASSERT_TRUE(rt::OpenSceneFile(path_).Succeeded());
  EXPECT_TRUE(runs.empty());
  auto ball = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Ball");
  std::vector<double> frames(rt::kProgressFrom), values(rt::kProgressFrom, 0.5);
  for (size_t i = 0; i < frames.size(); ++i) frames[i] = static_cast<double>(i);
  ball->local->FindParam(L"posx")->AddFCurve()->keys.Assign(frames.data(), values.data(),
                                                            frames.size(), 0);
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  ASSERT_TRUE(rt::OpenSceneFile(path_).Succeeded());
  const std::string name = path_.substr(path_.rfind('/') + 1);
  ASSERT_EQ(runs.size(), 2u);
  for (size_t r = 0; r < 2; ++r) {
    ASSERT_FALSE(runs[r].captions.empty());
    EXPECT_EQ(Zyra::ToUtf8(runs[r].captions.back()), (r == 0 ? "Saving " : "Opening ") + name);
    EXPECT_EQ(runs[r].value, runs[r].maximum);
    EXPECT_FALSE(runs[r].visible);
  }
}

TEST_F(SceneFileFCurve, AFileKeyedKeyByKeyStillOpens) {
  ASSERT_TRUE(rt::OpenSceneFile(ZYRA_TEST_DATA_DIR "/scene_keys_by_key.zyra").Succeeded());
  const rt::FCurveObject& curve = Curve(L"Ball.kine.local.posx");
  ASSERT_EQ(curve.keys.size(), 12u);
  EXPECT_EQ(curve.keys.Frame(11), 12.0);
  EXPECT_EQ(curve.keys.Value(11), 0.25);
  EXPECT_EQ(curve.keys.Interpolation(3), 2);
  ASSERT_NE(curve.keys.TangentsOf(5), nullptr);
  EXPECT_EQ(curve.keys.TangentsOf(5)->rightY, -0.5);
}

TEST_F(SceneFileFCurve, BadColumnsAreRefusedAtTheItem) {
  struct Case {
    const char* curve;
    const char* message;
  };
  for (
      const Case& c : {
          Case{
              R"({"interpolation": 2, "start": 0, "step": 1, "values": "1 2 x", "keyInterpolation": 0})",
              "at c.values[2]: expected a number, found \"x\""},
          Case{
              R"({"interpolation": 2, "start": 0, "step": 1, "values": "1 1e999", "keyInterpolation": 0})",
              "at c.values[1]: number 1e999 out of range"},
          Case{
              R"({"interpolation": 2, "frames": "0 2 2", "values": "1 2 3", "keyInterpolation": 0})",
              "at c.frames[2]: keys must be in increasing frame order"},
          Case{
              R"({"interpolation": 2, "frames": "0 2", "floatValues": "1 2 3", "keyInterpolation": 0})",
              "at c.frames: 2 frames for 3 values"},
          Case{
              R"({"interpolation": 2, "start": 0, "step": 0, "values": "1 2", "keyInterpolation": 0})",
              "at c.step: the step must be a positive number"},
          Case{
              R"({"interpolation": 2, "start": 1e300, "step": 1, "values": "1 2", "keyInterpolation": 0})",
              "at c.step: keys must be in increasing frame order"},
          Case{
              R"({"interpolation": 2, "start": 0, "step": 1, "values": "1 2", "keyInterpolations": "04"})",
              "at c.keyInterpolations[1]: a key interpolation is 0, 1, 2 or 3"},
          Case{
              R"({"interpolation": 2, "start": 0, "step": 1, "values": "1 2", "keyInterpolation": 0,
                    "tangents": [[2, 0, 0, 0, 0]]})",
              "at c.tangents[0][0]: integer 2 out of range 0..1"},
          Case{R"({"interpolation": 2, "start": 0, "step": 1, "keyInterpolation": 0})",
               "at c: a curve has either \"values\" or \"floatValues\""},
      }) {
    rt::scene_reading::Path root;
    rt::scene_reading::Path at = root / "c";
    try {
      rt::scene_reading::ReadFCurveJson(rt::scene_reading::Json::parse(c.curve), at);
      ADD_FAILURE() << "accepted " << c.curve;
    } catch (const rt::scene_reading::FormatError& e) {
      EXPECT_EQ("at " + e.where + ": " + e.what, c.message);
    }
  }
}

}  // namespace
