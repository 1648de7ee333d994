#include "take_conditioning.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <map>

#include "real_world_takes.h"

namespace knrconvert {
namespace {

using V = std::array<double, 3>;
using M = std::array<V, 3>;

M Rot(int axis, double degrees) {
  const double c = std::cos(degrees * M_PI / 180), s = std::sin(degrees * M_PI / 180);
  if (axis == 0) return {{{1, 0, 0}, {0, c, -s}, {0, s, c}}};
  if (axis == 1) return {{{c, 0, s}, {0, 1, 0}, {-s, 0, c}}};
  return {{{c, -s, 0}, {s, c, 0}, {0, 0, 1}}};
}
M Mul(const M& a, const M& b) {
  M r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i][j] += a[i][k] * b[k][j];
  return r;
}
V Mv(const M& a, const V& v) {
  return {a[0][0] * v[0] + a[0][1] * v[1] + a[0][2] * v[2],
          a[1][0] * v[0] + a[1][1] * v[1] + a[1][2] * v[2],
          a[2][0] * v[0] + a[2][1] * v[1] + a[2][2] * v[2]};
}

// The plug-in's reading of a file: Rz * Rx * Ry by channel name whatever the order, position
// channels replacing the OFFSET, beyond the first frame on the top joint only.
std::map<std::string, std::vector<V>> PluginReading(const BvhTake& t) {
  std::map<std::string, std::vector<V>> out;
  for (int f = 0; f < t.frames; ++f) {
    std::vector<V> p(t.joints.size());
    std::vector<M> r(t.joints.size());
    for (size_t j = 0; j < t.joints.size(); ++j) {
      const BvhJoint& joint = t.joints[j];
      V local = {joint.offset[0], joint.offset[1], joint.offset[2]}, angle = {0, 0, 0};
      for (size_t c = 0; c < joint.channels.size(); ++c) {
        const int axis = ChannelAxis(joint.channels[c]);
        if (IsRotation(joint.channels[c]))
          angle[axis] = t.Row(f)[joint.column + c];
        else
          local[axis] = t.Row(joint.parent < 0 ? f : 0)[joint.column + c];
      }
      const M rj = Mul(Mul(Rot(2, angle[2]), Rot(0, angle[0])), Rot(1, angle[1]));
      r[j] = joint.parent < 0 ? rj : Mul(r[joint.parent], rj);
      p[j] = local;
      if (joint.parent >= 0) {
        const V d = Mv(r[joint.parent], local);
        for (int i = 0; i < 3; ++i) p[j][i] = p[joint.parent][i] + d[i];
      }
      out[joint.name].push_back(p[j]);
    }
  }
  return out;
}

// A small body; `layout` gives each joint's channels: 'p' three positions, then rotation axes.
// `joints` names parent:name:offset; rotations swing by the frame, positions move around their
// OFFSET by `sway`.
BvhTake Body(std::vector<std::string> layout, double sway = 0, bool zUp = false) {
  struct J {
    int parent;
    const char* name;
    V offset;
  };
  static const J kJoints[] = {
      {-1, "Hips", {0, 0, 0}},       {0, "LeftUpLeg", {10, 0, 0}},   {1, "LeftLeg", {0, -40, 0}},
      {2, "LeftFoot", {0, -40, 0}},  {0, "RightUpLeg", {-10, 0, 0}}, {4, "RightLeg", {0, -40, 0}},
      {5, "RightFoot", {0, -40, 0}}, {0, "Spine", {0, 20, 0}},       {7, "Head", {0, 40, 0}}};
  BvhTake t;
  for (size_t j = 0; j < std::size(kJoints); ++j) {
    BvhJoint joint;
    joint.name = kJoints[j].name;
    joint.parent = kJoints[j].parent;
    const V o = zUp ? Mv(Rot(0, 90), kJoints[j].offset) : kJoints[j].offset;
    std::copy(o.begin(), o.end(), joint.offset);
    joint.hasEndSite = j == 3 || j == 6 || j == 8;
    joint.endSite[2] = 8;
    const std::string& l = layout[std::min(j, layout.size() - 1)];
    for (const char c : l) {
      if (c == 'p')
        joint.channels.insert(joint.channels.end(), {BvhChannel::kXposition, BvhChannel::kYposition,
                                                     BvhChannel::kZposition});
      else
        joint.channels.push_back(static_cast<BvhChannel>(3 + c - 'X'));
    }
    t.joints.push_back(joint);
  }
  t.AssignColumns();
  t.frames = 40;
  t.frameTime = 1 / 30.0;
  t.values.resize(t.frames * t.columns);
  for (int f = 0; f < t.frames; ++f)
    for (const BvhJoint& j : t.joints)
      for (size_t c = 0; c < j.channels.size(); ++c) {
        const int axis = ChannelAxis(j.channels[c]);
        const double wave = std::sin(0.1 * f * (c + 1));  // 0 in the first frame
        double v = (j.parent >= 0 ? 80 : j.channels[c] == BvhChannel::kYrotation ? 170 : 30) * wave;
        if (!IsRotation(j.channels[c]))
          v = j.parent < 0 ? (axis == (zUp ? 2 : 1) ? 90 : f) : j.offset[axis] + sway * wave;
        t.Row(f)[j.column + c] = static_cast<float>(v);
      }
  return t;
}

TEST(ConditionTake, PosesSurviveThePluginsReading) {
  const auto kept = [](BvhTake t) { return t; };
  const auto folded = [](BvhTake t, bool rotate) {  // a carrier above the hips
    BvhJoint top;
    top.name = "joint_Root";
    top.channels = {BvhChannel::kZposition, BvhChannel::kYrotation, BvhChannel::kXrotation};
    for (BvhJoint& j : t.joints) j.parent += 1;
    t.joints.insert(t.joints.begin(), top);
    const int columns = t.columns;
    t.AssignColumns();
    std::vector<float> values;
    for (int f = 0; f < t.frames; ++f) {
      values.insert(values.end(), {3.0f * f, rotate ? 5.0f * f : 0, rotate ? -90.0f : 0});
      values.insert(values.end(), t.values.data() + f * columns,
                    t.values.data() + (f + 1) * columns);
    }
    t.values = values;
    return t;
  };
  BvhTake added = Body({"pZXY", "ZXY"});  // the root's channels sit on an OFFSET at hip height
  added.joints[0].offset[1] = 85;
  for (int f = 0; f < added.frames; ++f) added.Row(f)[1] -= 85;
  const auto absolute = [](BvhTake t) {
    for (int f = 0; f < t.frames; ++f) t.Row(f)[1] += t.joints[0].offset[1];
    return t;
  };
  const struct {
    const char* name;
    BvhTake take;
    std::function<BvhTake(BvhTake)> truth;  // the take as the file means it
    const char* note;
    bool zUp = false, firstFrameOnly = false;
  } cases[] = {
      {"X Y Z", Body({"pXYZ", "XYZ"}), kept, "(X Y Z)"},
      {"X Z Y", Body({"pXZY", "XZY"}), kept, "(X Z Y)"},
      {"Y X Z", Body({"pYXZ", "YXZ"}), kept, "(Y X Z)"},
      {"Y Z X", Body({"pYZX", "YZX"}), kept, "(Y Z X)"},
      {"Z Y X", Body({"pZYX", "ZYX"}), kept, "(Z Y X)"},
      {"Z X Y untouched", Body({"pZXY", "ZXY"}), kept, nullptr},
      {"mixed", Body({"pZYX", "ZXY", "ZY", "X", "YX", "ZX", "XYZ"}), kept,
       "on 6 joints (X Y Z, Y X, Z Y, Z Y X)"},
      {"static top", folded(Body({"pZXY", "ZXY"}), false), kept, "joint_Root folded into Hips"},
      {"rotating top", folded(Body({"ZYX", "ZXY"}, 0, true), true), kept, "folded"},
      {"added root", added, absolute, "read as added"},
      {"steady 6 channels", Body({"pZXY", "pZXY"}), kept, "of 8 joints made offsets"},
      {"moving 6 channels", Body({"pZXY", "pZXY"}, 2.5), kept, "varies by up to", false, true},
      {"Z up", Body({"pZXY", "ZXY"}, 0, true), kept, "up axis Z turned to Y", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BvhTake source = c.take, take = c.take;
    if (c.truth) source = c.truth(source);
    PoseSeries poses;  // composed while conditioning: those of the result
    const ConditionReport report = ConditionTake(take, &poses);
    const PoseSeries result = ComputePoses(take);
    ASSERT_EQ(poses.positions.size(), result.positions.size());
    for (size_t i = 0; i < poses.positions.size(); ++i) {
      const Vec3f &a = poses.positions[i], &b = result.positions[i];
      ASSERT_NEAR(std::hypot(a.x - b.x, a.y - b.y, a.z - b.z), 0, 1e-5 * 100) << i;
    }
    std::string said;
    for (const std::string& s : report.notes) said += s + "; ";
    for (const std::string& s : report.warnings) said += s + "; ";
    EXPECT_EQ(report.changed, c.note != nullptr) << said;
    if (c.note) {
      EXPECT_NE(said.find(c.note), std::string::npos) << said;
    }
    const std::string path = ::testing::TempDir() + "conditioned.bvh";
    std::string error;
    ASSERT_TRUE(WriteBvhTake(take, path, error)) << error;
    ASSERT_TRUE(ParseBvhTake(path, take, error)) << error;
    const PoseSeries truth = ComputePoses(source);
    const auto read = PluginReading(take);
    double worst = 0;
    for (const auto& [name, positions] : read)
      for (int f = 0; f < (c.firstFrameOnly ? 1 : truth.frames); ++f) {
        const Vec3f& p = truth.At(f, truth.Find(name));
        const V want = Mv(Rot(0, c.zUp ? -90 : 0), {p.x, p.y, p.z});
        for (int i = 0; i < 3; ++i) worst = std::max(worst, std::fabs(positions[f][i] - want[i]));
      }
    EXPECT_LT(worst, 1e-4 * 100) << said;  // the body is about 100 units tall
    double jump = 0;                       // re-expressed angles run on without whole-turn jumps
    for (const BvhJoint& j : take.joints)
      for (size_t k = 0; k < j.channels.size(); ++k)
        for (int f = 1; f < take.frames && IsRotation(j.channels[k]); ++f)
          jump = std::max<double>(
              jump, std::fabs(take.Row(f)[j.column + k] - take.Row(f - 1)[j.column + k]));
    EXPECT_LT(jump, 150) << said;
    EXPECT_EQ(read.size(), 9u);
  }
}

TEST(ConditionTake, UnitsAndUpAxisFromTheSkeleton) {
  const struct {
    double scale;  // of the 80-unit thigh-to-ankle body
    const char* units;
    double metresPerUnit;
  } cases[] = {{1, "centimetres", 0.01},
               {0.01, "metres", 1},
               {10, "millimetres", 0.001},
               {0.45, "inches", 0.0254},
               {0.19, "unknown units", 0.85 / (80 * 0.19)}};
  for (const auto& c : cases) {
    BvhTake take = Body({"pZXY", "ZXY"});
    for (BvhJoint& j : take.joints)
      for (double& v : j.offset) v *= c.scale;
    const ConditionReport report = ConditionTake(take);
    EXPECT_EQ(report.units, c.units) << c.scale;
    EXPECT_NEAR(report.metresPerUnit, c.metresPerUnit, 1e-9) << c.scale;
  }
  // A head 39 degrees off Z (cos 0.777) is up along Z; at 44 degrees (cos 0.719) no axis is.
  for (const double lean : {39.0, 44.0}) {
    BvhTake take = Body({"pZXY", "ZXY"}, 0, true);
    const double a = lean * M_PI / 180, head[3] = {0, 60 * std::sin(a), 60 * std::cos(a) - 20};
    std::copy_n(head, 3, take.joints[8].offset);
    EXPECT_EQ(ConditionTake(take).changed, lean < 40) << lean;
  }
}

TEST(ConditionTake, RealTakes) {
  const struct {
    const char* file;
    const char* notes;  // expected in the notes, in order
    const char* units;
  } cases[] = {
      {"bandai1_kick_normal_001.bvh", "joint_Root folded into Hips|20 joints made offsets",
       "centimetres"},
      {"bandai1_dash_normal_001.bvh", "joint_Root folded into Hips|", "centimetres"},
      {"cmu_02_03_run_iclone.bvh", "RL_BoneRoot folded into CC_Base_Hip|(Z Y X)", "centimetres"},
      {"cmu_02_04_jump_iclone.bvh", "CC_Base_Hip read as added|(Z Y X)", "centimetres"},
      {"cmu_05_02_dance_iclone.bvh", "CC_Base_Hip read as added|(Z Y X)", "centimetres"},
      {"cmu_01_01_jumps-turn_poselib.bvh", "root folded into pelvis|up axis Z|(X Y Z)", "metres"},
      {"cmu_02_01_walk_vreng.bvh", "on 1 joints (Z Y X)", "centimetres"},
      {"cmu_02_01_walk_bvhmatlab.bvh", "on 31 joints (Z Y X)", "unknown units"},
      {"karate_inches_vreng.bvh", "", "inches"},
      {"xsens_S02_walk-turn-stand_gaittoolbox.bvh", "(Y X Z)", "millimetres"},
      {"milad_standing_bvhmatlab.bvh", "made offsets|(X Y Z)", "centimetres"},
  };
  for (const auto& c : cases) {
    const std::string path = RealWorldTake(c.file);
    if (path.empty()) continue;  // not in the checkout, and no shared data beside it
    BvhTake take;
    std::string error, notes;
    ASSERT_TRUE(ParseBvhTake(path, take, error)) << error;
    const ConditionReport report = ConditionTake(take);
    for (const std::string& n : report.notes) notes += n + "|";
    size_t at = 0;
    for (std::string want = c.notes; !want.empty() && at != std::string::npos;) {
      const std::string part = want.substr(0, want.find('|'));
      at = notes.find(part, at);
      want = want.find('|') == std::string::npos ? "" : want.substr(want.find('|') + 1);
    }
    EXPECT_NE(at, std::string::npos) << c.file << ": " << notes;
    EXPECT_EQ(report.changed, *c.notes != 0) << c.file;
    EXPECT_EQ(report.units, c.units) << c.file;
    EXPECT_EQ(report.warnings.empty(), std::string(c.file).find("milad") != 0) << c.file;
  }
}

}  // namespace
}  // namespace knrconvert
