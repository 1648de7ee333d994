// Conditioning a take for the plug-in's reader (steps in take_conditioning.h).
#include "take_conditioning.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>

namespace knrconvert {
namespace {

using Vec = std::array<double, 3>;

constexpr int kSmoothBlock = 256;  // frames smoothed for every joint in turn

double Length(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Format(const char* format, double value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, format, value);
  return buf;
}

// The joint's local transform as the take means it: `add` puts position channels on its OFFSET.
void MeantLocal(const BvhJoint& joint, const float* row, bool add, double p[3], Mat3& r) {
  LocalPose(joint, row, p, r);
  if (add)
    for (const BvhChannel c : joint.channels)
      if (!IsRotation(c)) p[ChannelAxis(c)] += joint.offset[ChannelAxis(c)];
}

// The joint's position relative to its parent in the frame `row` (LocalPose without the turn).
void LocalPosition(const BvhJoint& joint, const float* row, double p[3]) {
  std::copy_n(joint.offset, 3, p);
  for (size_t c = 0; c < joint.channels.size(); ++c)
    if (!IsRotation(joint.channels[c])) p[ChannelAxis(joint.channels[c])] = row[joint.column + c];
}

// Global transforms of every joint in one frame.
struct Pose {
  std::vector<Vec> p;
  std::vector<Mat3> r;
};

Pose WorldPose(const BvhTake& take, int frame, const std::vector<char>& add) {
  const size_t n = take.joints.size();
  Pose pose{std::vector<Vec>(n), std::vector<Mat3>(n)};
  for (size_t j = 0; j < n; ++j) {
    const BvhJoint& joint = take.joints[j];
    double local[3];
    MeantLocal(joint, take.Row(frame), add[j], local, pose.r[j]);
    if (joint.parent < 0) {
      std::copy_n(local, 3, pose.p[j].data());
      continue;
    }
    Apply(pose.r[joint.parent], local, pose.p[j].data());
    for (int k = 0; k < 3; ++k) pose.p[j][k] += pose.p[joint.parent][k];
    pose.r[j] = pose.r[joint.parent] * pose.r[j];
  }
  return pose;
}

// Step 1 for `joint`: true when its position channels add to its OFFSET.
bool PositionsAdd(const BvhTake& take, int joint, const std::vector<char>& add) {
  const BvhJoint& j = take.joints[joint];
  double masked[3] = {0, 0, 0};
  for (const BvhChannel c : j.channels)
    if (!IsRotation(c)) masked[ChannelAxis(c)] = j.offset[ChannelAxis(c)];
  const double length = Length(masked);
  if (length == 0) return false;
  const int frames = std::min(take.frames, kDecisionFrames);
  double lowest = 0;
  for (int f = 0; f < frames; ++f) {
    const Pose pose = WorldPose(take, f, add);
    double d[3];
    if (j.parent < 0)
      std::copy_n(masked, 3, d);
    else
      Apply(pose.r[j.parent], masked, d);
    double low = INFINITY;
    for (size_t k = 0; k < take.joints.size(); ++k) {
      double end[3];
      Apply(pose.r[k], take.joints[k].endSite, end);
      for (int i = 0; i < 3; ++i) end[i] += pose.p[k][i];
      const double* points[] = {pose.p[k].data(), end};
      for (const double* q : points)
        low = std::min(low, (q[0] * d[0] + q[1] * d[1] + q[2] * d[2]) / length);
    }
    lowest += low / frames;
  }
  return lowest < -length / 2;
}

// Step 5: one rotation channel, or "Z X", or "Z X Y".
bool RotationsReadRight(const std::vector<BvhChannel>& channels) {
  constexpr BvhChannel kOrder[] = {BvhChannel::kZrotation, BvhChannel::kXrotation,
                                   BvhChannel::kYrotation};
  size_t n = 0;
  for (const BvhChannel c : channels)
    if (IsRotation(c) && (n++ >= 3 || c != kOrder[n - 1])) return channels.size() == 1;
  return true;
}

std::string RotationOrder(const std::vector<BvhChannel>& channels) {
  std::string s;
  for (const BvhChannel c : channels)
    if (IsRotation(c)) s += std::string(s.empty() ? "" : " ") + ChannelName(c)[0];
  return s;
}

// Step 3: the turn that makes the take Y up, and the up axis found ("Y" when kept).
Mat3 UpTurn(const BvhTake& take, int top, const Pose& pose, std::string& up) {
  up = "Y";
  int head = -1;
  for (const char* word : {"head", "neck"})
    for (size_t j = 0; j < take.joints.size() && head < 0; ++j)
      if (Lower(take.joints[j].name).find(word) != std::string::npos) head = static_cast<int>(j);
  if (head < 0 || head == top) return Mat3();
  double v[3];
  for (int i = 0; i < 3; ++i) v[i] = pose.p[head][i] - pose.p[top][i];
  const int axis = static_cast<int>(
      std::max_element(v, v + 3, [](double a, double b) { return std::fabs(a) < std::fabs(b); }) -
      v);
  if (std::fabs(v[axis]) < kUpAxisShare * Length(v) || (axis == 1 && v[1] > 0)) return Mat3();
  up = std::string(v[axis] < 0 ? "-" : "") + "XYZ"[axis];
  if (axis == 0) return AxisRotation(2, v[0] > 0 ? 90 : -90);
  if (axis == 2) return AxisRotation(0, v[2] > 0 ? -90 : 90);
  return AxisRotation(2, 180);
}

// Step 5's smoothing of the Z X Y angles at columns [column, column + 3) over frames [begin, end),
// `prev` holding the previous frame's angles.
void SmoothEuler(BvhTake& take, int column, int begin, int end, double prev[3]) {
  for (int f = begin; f < end; ++f) {
    float* v = take.Row(f) + column;
    if (std::fabs(v[0] - prev[0]) + std::fabs(v[1] - prev[1]) + std::fabs(v[2] - prev[2]) <
        90) {  // within a quarter turn: the other triple lies at least half a turn away
      for (int i = 0; i < 3; ++i) prev[i] = v[i] += 0.0f;  // and -0 written as 0
      continue;
    }
    const double a[2][3] = {{v[0], v[1], v[2]}, {v[0] + 180.0, 180.0 - v[1], v[2] + 180.0}};
    double best[3] = {0, 0, 0}, bestCost = INFINITY;
    for (const auto& candidate : a) {
      double c[3], cost = 0;
      for (int i = 0; i < 3; ++i) {
        c[i] = candidate[i] + 360.0 * std::round((prev[i] - candidate[i]) / 360.0);
        cost += std::fabs(c[i] - prev[i]);
      }
      if (cost < bestCost) bestCost = cost, std::copy_n(c, 3, best);
    }
    for (int i = 0; i < 3; ++i) v[i] = static_cast<float>(prev[i] = best[i] + 0.0);
  }
}

// Step 6.
void InferUnits(const BvhTake& take, const Pose& first, ConditionReport& report) {
  double length = 0, human = kHumanLeg;
  int foot = -1;
  for (size_t j = 0; j < take.joints.size() && foot < 0; ++j) {
    const std::string name = Lower(take.joints[j].name);
    if ((name.find("foot") != std::string::npos || name.find("ankle") != std::string::npos) &&
        name.find("toe") == std::string::npos)
      foot = static_cast<int>(j);
  }
  if (foot >= 0) {
    for (int j = foot, bones = 0; j > 0 && bones < 2; j = take.joints[j].parent) {
      const double bone = Length(take.joints[j].offset);
      length += bone;
      bones += bone > 0;
    }
  } else {
    int low = 0;
    for (size_t j = 0; j < take.joints.size(); ++j)
      if (first.p[j][1] < first.p[low][1]) low = static_cast<int>(j);
    for (int j = low; j > 0; j = take.joints[j].parent) length += Length(take.joints[j].offset);
    human = kHumanHipHeight;
  }
  report.units = "unknown units";
  report.metresPerUnit = length > 0 ? human / length : 0;
  const std::pair<const char*, double> units[] = {
      {"metres", 1}, {"centimetres", 0.01}, {"millimetres", 0.001}, {"inches", 0.0254}};
  for (const auto& [name, metres] : units) {
    if (length > 0 &&
        std::fabs(std::log(report.metresPerUnit / metres)) < std::log(kUnitTolerance)) {
      report.units = name;
      report.metresPerUnit = metres;
      return;
    }
  }
}

}  // namespace

ConditionReport ConditionTake(BvhTake& take, PoseSeries* poses) {
  ConditionReport report;
  const int joints = static_cast<int>(take.joints.size());
  std::vector<std::vector<int>> children(joints);
  for (int j = 1; j < joints; ++j) children[take.joints[j].parent].push_back(j);

  // Steps 1 and 2: the chain of top joints, the last of which becomes the top.
  std::vector<char> add(joints, 0);
  std::vector<int> chain = {0};
  for (;;) {
    const int top = chain.back();
    if ((add[top] = PositionsAdd(take, top, add)))
      report.notes.push_back("position of " + take.joints[top].name +
                             " read as added to its offset");
    if (children[top].size() != 1 || children[children[top][0]].size() < 2) break;
    report.notes.push_back("top joint " + take.joints[top].name + " folded into " +
                           take.joints[children[top][0]].name);
    chain.push_back(children[top][0]);
  }
  const int top = chain.back();
  const Pose first = WorldPose(take, 0, add);

  // Step 3.
  std::string up;
  const Mat3 turn = UpTurn(take, top, first, up);
  if (up != "Y") report.notes.push_back("up axis " + up + " turned to Y");

  // Steps 4 and 5: the new joints and what each one's columns are made of.
  std::vector<double> reach(joints, 0);  // OFFSET length from the new top joint
  double size = 0;
  for (int j = top + 1; j < joints; ++j) {
    reach[j] = reach[take.joints[j].parent] + Length(take.joints[j].offset);
    size = std::max(size, reach[j] + Length(take.joints[j].endSite));
  }
  const bool rebuildTop =
      chain.size() > 1 || up != "Y" || !RotationsReadRight(take.joints[top].channels);
  const bool addTop = add[top] && !rebuildTop;
  BvhTake out;
  std::vector<int> index(joints, -1), reexpressed;  // new index; joints given Z X Y angles
  std::vector<char> fine(joints, 1);  // rotation channels the reader takes as they are
  std::map<std::string, int> orders;
  int steadied = 0;
  for (int j = top; j < joints; ++j) {
    const BvhJoint& old = take.joints[j];
    BvhJoint joint = old;
    index[j] = static_cast<int>(out.joints.size());
    joint.parent = j == top ? -1 : index[old.parent];
    fine[j] = RotationsReadRight(old.channels);
    if (!fine[j]) ++orders[RotationOrder(old.channels)];
    if (j == top && rebuildTop) {
      using C = BvhChannel;
      joint.channels = {C::kXposition, C::kYposition, C::kZposition,
                        C::kZrotation, C::kXrotation, C::kYrotation};
      Apply(turn, first.p[top].data(), joint.offset);
      reexpressed.push_back(index[j]);
    } else if (j != top) {
      joint.channels.clear();
      for (const BvhChannel c : old.channels)
        if (IsRotation(c) && fine[j]) joint.channels.push_back(c);
      if (!fine[j]) {
        joint.channels = {BvhChannel::kZrotation, BvhChannel::kXrotation, BvhChannel::kYrotation};
        reexpressed.push_back(index[j]);
      }
      if (std::count_if(old.channels.begin(), old.channels.end(), IsRotation) <
          static_cast<long>(old.channels.size())) {
        double moved = 0, p0[3], p[3];
        LocalPosition(old, take.Row(0), p0);
        for (int f = 1; f < take.frames; ++f) {
          LocalPosition(old, take.Row(f), p);
          moved = std::max(moved, std::hypot(p[0] - p0[0], p[1] - p0[1], p[2] - p0[2]));
        }
        std::copy_n(p0, 3, joint.offset);
        if (moved > kSteadyTranslation * size)
          report.warnings.push_back("the translation of " + old.name + " varies by up to " +
                                    Format("%.3g", moved) + " and was dropped");
        else
          ++steadied;
      }
    }
    out.joints.push_back(joint);
  }
  if (steadied > 0)
    report.notes.push_back("position channels of " + std::to_string(steadied) +
                           " joints made offsets");
  if (!orders.empty()) {
    int count = 0;
    std::string list;
    for (const auto& [order, n] : orders) {
      count += n;
      list += (list.empty() ? "" : ", ") + order;
    }
    report.notes.push_back("rotations re-expressed as Z X Y on " + std::to_string(count) +
                           " joints (" + list + ")");
  }
  InferUnits(take, first, report);
  report.changed = !report.notes.empty() || !report.warnings.empty();
  if (!report.changed) {
    if (poses) *poses = ComputePoses(take);
    return report;
  }

  // The frames, rebuilt in place when the row keeps its width (each row is read whole before
  // it is written), else into fresh memory; the poses are composed in the same pass from the
  // rotations the angles are taken from.
  out.AssignColumns();
  out.frames = take.frames;
  out.frameTime = take.frameTime;
  const bool inPlace = out.columns == take.columns;
  if (inPlace)
    out.values = std::move(take.values);
  else
    ResizeFresh(out.values, static_cast<size_t>(out.frames) * out.columns);
  const int outJoints = static_cast<int>(out.joints.size());
  if (poses) {
    *poses = PoseSeries();
    poses->frameTime = out.frameTime;
    poses->frames = out.frames;
    for (const BvhJoint& j : out.joints) {
      poses->names.push_back(j.name);
      poses->parents.push_back(j.parent);
    }
    ResizeFresh(poses->positions, static_cast<size_t>(out.frames) * outJoints);
    ResizeFresh(poses->topRotation, static_cast<size_t>(out.frames));
  }
  ForFrameRanges(take.frames, joints, [&](int begin, int end) {
    std::vector<float> copy(inPlace ? take.columns : 0);
    std::vector<Mat3> globalR(outJoints);
    std::vector<Vec> globalP(outJoints);
    for (int f = begin; f < end; ++f) {
      float* to = out.Row(f);
      const float* row =
          inPlace ? static_cast<const float*>(std::memcpy(copy.data(), to, copy.size() * 4))
                  : take.Row(f);
      for (int j = top; j < joints; ++j) {
        const BvhJoint& old = take.joints[j];
        const BvhJoint& joint = out.joints[index[j]];
        double p[3], angles[3];
        Mat3 r;
        if (j == top && rebuildTop) {
          Mat3 local;
          double at[3] = {0, 0, 0}, step[3];
          r = turn;
          for (const int k : chain) {
            MeantLocal(take.joints[k], row, add[k], p, local);
            Apply(r, p, step);
            for (int i = 0; i < 3; ++i) at[i] += step[i];
            r = r * local;
          }
          ZxyAngles(r, angles);
          for (int i = 0; i < 3; ++i) to[i] = static_cast<float>(at[i]);
          for (int i = 0; i < 3; ++i) to[3 + i] = static_cast<float>(angles[i]);
          for (int i = 0; i < 3; ++i) p[i] = to[i];
        } else if (!fine[j]) {
          MeantLocal(old, row, false, p, r);
          ZxyAngles(r, angles);
          for (int i = 0; i < 3; ++i) to[joint.column + i] = static_cast<float>(angles[i]);
          std::copy_n(joint.offset, 3, p);
        } else {
          float* v = to + joint.column;
          for (size_t c = 0; c < old.channels.size(); ++c) {
            const BvhChannel ch = old.channels[c];
            const double value = row[old.column + c];
            if (j == top && addTop && !IsRotation(ch))
              *v++ = static_cast<float>(value + old.offset[ChannelAxis(ch)]);
            else if (j == top || IsRotation(ch))
              *v++ = static_cast<float>(value);
          }
          if (poses) LocalPose(joint, to, p, r);
        }
        if (!poses) continue;
        const int n = index[j];
        if (joint.parent < 0) {
          std::copy_n(p, 3, globalP[n].data());
          globalR[n] = r;
        } else {
          Apply(globalR[joint.parent], p, globalP[n].data());
          for (int k = 0; k < 3; ++k) globalP[n][k] += globalP[joint.parent][k];
          globalR[n] = globalR[joint.parent] * r;
        }
        poses->positions[static_cast<size_t>(f) * outJoints + n] = {
            float(globalP[n][0]), float(globalP[n][1]), float(globalP[n][2])};
      }
      if (poses) {
        double q[4];
        ToQuaternion(globalR[0], q);
        poses->topRotation[f] = {float(q[0]), float(q[1]), float(q[2]), float(q[3])};
      }
    }
  });
  // Smoothing runs along the frames, a block of frames at a time (that stays in the cache) for
  // every joint; the joints are shared between two threads.
  auto smooth = [&](size_t begin, size_t end) {
    std::vector<int> columns;
    std::vector<std::array<double, 3>> prev;
    for (size_t i = begin; i < end; ++i) {
      const BvhJoint& joint = out.joints[reexpressed[i]];
      columns.push_back(joint.column + static_cast<int>(joint.channels.size()) - 3);
      const float* v = out.Row(0) + columns.back();
      prev.push_back({v[0], v[1], v[2]});
    }
    for (int f = 1; f < out.frames; f += kSmoothBlock)
      for (size_t i = 0; i < columns.size(); ++i)
        SmoothEuler(out, columns[i], f, std::min(out.frames, f + kSmoothBlock), prev[i].data());
  };
  std::thread worker(smooth, 0, reexpressed.size() / 2);
  smooth(reexpressed.size() / 2, reexpressed.size());
  worker.join();
  take = std::move(out);
  return report;
}

}  // namespace knrconvert
