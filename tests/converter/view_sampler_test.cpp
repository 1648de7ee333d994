#include "view_sampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

namespace knrconvert {
namespace {

// A chain of `joints` joints whose positions wave with the frame, travelling along x.
PoseSeries Chain(int frames, int joints) {
  PoseSeries poses;
  poses.frameTime = 1.0 / 120;
  poses.frames = frames;
  for (int j = 0; j < joints; ++j) {
    poses.names.push_back("j" + std::to_string(j));
    poses.parents.push_back(j - 1);
  }
  for (int f = 0; f < frames; ++f) {
    for (int j = 0; j < joints; ++j) {
      poses.positions.push_back(
          {0.5f * f + std::sin(0.1f * f + j) * 10, 90.0f - 3 * j, std::cos(0.05f * f) * j});
    }
    poses.topRotation.push_back({});
  }
  return poses;
}

// Decodes a clip's positions (an independent reading of the base64 and the int16 layout).
std::vector<double> Decode(const ViewClip& clip) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::vector<uint8_t> bytes;
  uint32_t bits = 0;
  int have = 0;
  for (char c : clip.positions) {
    if (c == '=') break;
    bits = (bits << 6) | static_cast<uint32_t>(alphabet.find(c));
    if ((have += 6) >= 8) bytes.push_back(static_cast<uint8_t>(bits >> (have -= 8)));
  }
  std::vector<double> values;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2)
    values.push_back(static_cast<int16_t>(bytes[i] | (bytes[i + 1] << 8)) * clip.unit);
  return values;
}

TEST(ViewSampler, SkillIsThinnedWithinItsBudgetAndReadsBackAsThePoses) {
  struct Case {
    int frames, joints;
  };
  for (const Case c : {Case{90000, 60}, Case{9000, 200}, Case{300, 20}}) {
    SCOPED_TRACE(std::to_string(c.frames) + " frames, " + std::to_string(c.joints) + " joints");
    const PoseSeries poses = Chain(c.frames, c.joints);
    const ViewRecord view = SampleView(poses, 7, {{"LeftFoot", c.joints - 1}, {"Nothing", -1}});
    const ViewClip& clip = view.skill;
    EXPECT_LE(clip.positions.size(), kViewClipBytes);
    // The smallest step that fits: one frame less between samples would not.
    const size_t perSample = static_cast<size_t>(c.joints) * 3 * 2;
    const auto chars = [&](int step) {
      return ((static_cast<size_t>((c.frames - 1) / step) + 1) * perSample + 2) / 3 * 4;
    };
    if (clip.step > 1) EXPECT_GT(chars(clip.step - 1), kViewClipBytes);
    EXPECT_EQ(clip.count, (c.frames - 1) / clip.step + 1);
    EXPECT_EQ(clip.first, 7);
    ASSERT_EQ(view.feet.size(), 1u);
    const std::vector<double> values = Decode(clip);
    ASSERT_EQ(values.size(), static_cast<size_t>(clip.count) * c.joints * 3);
    for (int s : {0, clip.count / 2, clip.count - 1}) {
      for (int j : {0, c.joints - 1}) {
        const Vec3f& p = poses.At(s * clip.step, j);
        const size_t at = (static_cast<size_t>(s) * c.joints + j) * 3;
        EXPECT_NEAR(values[at], p.x, clip.unit);
        EXPECT_NEAR(values[at + 1], p.y, clip.unit);
        EXPECT_NEAR(values[at + 2], p.z, clip.unit);
      }
    }
  }
}

TEST(ViewSampler, LoopShowsTheMadeLoopOnlyWhenTheSceneMatchesTheTake) {
  const PoseSeries poses = Chain(400, 4);
  const int start = 100, end = 220, frames = end - start + 1;
  // The scene's window, relative to the COG (joint 0; no rotation), before and after the loop
  // was made; the made loop lifts joint 3 by 5.
  RelativePoses source, made;
  for (RelativePoses* r : {&source, &made}) {
    r->frames = frames;
    r->joints = 4;
  }
  for (int f = 0; f < frames; ++f) {
    for (int j = 0; j < 4; ++j) {
      const Vec3f &p = poses.At(start + f, j), &c = poses.At(start + f, 0);
      source.positions.push_back({p.x - c.x, p.y - c.y, p.z - c.z});
      made.positions.push_back({p.x - c.x, p.y - c.y + (j == 3 ? 5.0f : 0.0f), p.z - c.z});
    }
  }
  const std::vector<std::string> names = {"j0", "j1", "j2", "j3"};
  struct Case {
    const char* what;
    float sceneScale;  // the scene's window against the take's
    bool made;
  };
  for (const Case c : {Case{"matching scene", 1, true}, Case{"scene in other units", 10, false}}) {
    SCOPED_TRACE(c.what);
    RelativePoses scaled = source;
    for (Vec3f& p : scaled.positions)
      p = {p.x * c.sceneScale, p.y * c.sceneScale, p.z * c.sceneScale};
    ViewRecord view = SampleView(poses, 0, {});
    AddLoopView(view, poses, 3, {start, end, &scaled, &made, &names});
    ASSERT_TRUE(view.loop);
    EXPECT_EQ(view.loop->made, c.made);
    EXPECT_EQ(view.loop->first, 3 + start);
    EXPECT_EQ(view.loop->count, frames) << "a short loop keeps every frame";
    const std::vector<double> values = Decode(*view.loop);
    const Vec3f& take = poses.At(start + 10, 3);
    EXPECT_NEAR(values[(10 * 4 + 3) * 3 + 1], take.y + (c.made ? 5 : 0), view.loop->unit);
  }
  ViewRecord view = SampleView(poses, 0, {});
  AddLoopView(view, poses, 0, {350, 420, &source, &made, &names});
  EXPECT_FALSE(view.loop) << "a window past the take's end";
}

}  // namespace
}  // namespace knrconvert
