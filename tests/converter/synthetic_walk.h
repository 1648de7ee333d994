// Synthetic takes with known answers for the travel and stance tests: a body of seven joints
// (hips, and thigh, knee, foot of each leg; leg about 0.85 m) moving along a path by a list of
// moves, its feet stepping with the distance travelled (stride 1.4 m, each foot planted 60% of
// its cycle, swings 0.12 m high), or marching on the spot by time.
#pragma once

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "pose_series.h"

namespace knrconvert::testing {

struct Plan {
  std::vector<std::pair<double, double>> moves;  // (seconds, m/s), each ramped 0.4 s from the last
  double fps = 30, unit = 1;                     // frames a second; length unit per metre
  double turn = 0, sway = 0;                     // degrees: turned mid-path; hip sway
  double hipWidth = 0.1, bob = 0, rock = 0;      // m; COG bob; COG rocking sideways at 0.8 Hz
  double jumpAt = -1;                            // second a 0.3 m jump starts
  bool march = false;                            // feet step on the spot, 1.1 s a cycle
};

struct Take {
  PoseSeries pose;
  std::vector<std::vector<bool>> planted;  // left, right: the feet's true stance
};

inline Take Build(const Plan& p) {
  constexpr double kPi = 3.14159265358979323846, kDt = 1e-3, kStride = 1.4, kStance = 0.6;
  double seconds = 0, total = 0, v = p.moves.empty() ? 0 : p.moves[0].second;  // rolling start
  std::vector<double> s = {0};  // distance at every kDt
  for (const auto& [length, speed] : p.moves) {
    const double from = v, ramp = std::min(0.4, length / 2);
    for (double t = 0; t < length; t += kDt) {
      v = t < ramp ? from + (speed - from) * t / ramp : speed;
      s.push_back(total += v * kDt);
    }
    seconds += length;
  }
  auto distance = [&](double t) { return s[std::min(s.size() - 1, size_t(t / kDt + 0.5))]; };
  // The stride that ends the path with both feet planted.
  const double stride = total > 0.1 ? total / (std::round(total / kStride - 0.55) + 0.55) : kStride;
  auto yaw = [&](double d) {
    const double u = std::clamp(total > 0 ? 3 * d / total - 1 : 0.0, 0.0, 1.0);
    return p.turn * kPi / 180 * u * u * (3 - 2 * u);
  };
  std::vector<double> px = {0}, pz = {0};  // path at every millimetre
  for (double d = 0; d < total + 2; d += 1e-3) {
    px.push_back(px.back() + std::sin(yaw(d)) * 1e-3);
    pz.push_back(pz.back() + std::cos(yaw(d)) * 1e-3);
  }
  auto at = [&](double d, double side) {  // a point of the path, `side` m to its left
    const size_t k = std::min(px.size() - 1, size_t(std::max(0.0, d) * 1e3));
    return Vec3f{float(px[k] + side * std::cos(yaw(d))), 0, float(pz[k] - side * std::sin(yaw(d)))};
  };
  Take take;
  PoseSeries& pose = take.pose;
  pose.frameTime = 1 / p.fps;
  pose.frames = static_cast<int>(std::lround(seconds * p.fps)) + 1;
  pose.names = {"Hips",       "LeftThigh", "LeftKnee", "LeftFoot",
                "RightThigh", "RightKnee", "RightFoot"};
  pose.parents = {-1, 0, 1, 2, 0, 4, 5};
  take.planted.assign(2, std::vector<bool>(size_t(pose.frames)));
  for (int f = 0; f < pose.frames; ++f) {
    const double t = f / p.fps, d = distance(t);
    const double cycle = p.march ? t / 1.1 : d / stride,
                 face = yaw(d) + p.sway * kPi / 180 * std::cos(2 * kPi * cycle);
    const double lift = p.jumpAt >= 0 && t > p.jumpAt && t < p.jumpAt + 0.5
                            ? 0.3 * std::sin(kPi * (t - p.jumpAt) / 0.5)
                            : 0;
    Vec3f cog = at(d, p.rock * std::sin(2 * kPi * 0.8 * t));
    cog.y = float(0.9 + lift + p.bob * std::sin(4 * kPi * cycle));
    std::vector<Vec3f> joints = {cog};
    for (int foot = 0; foot < 2; ++foot) {
      const double side = foot == 0 ? 0.1 : -0.1, phase = cycle + 0.5 * foot;
      const double k = std::floor(phase), u = phase - k;
      const double mid = p.march ? 0 : (k - 0.5 * foot + kStance / 2) * stride;
      Vec3f pos = at(mid, side);
      take.planted[size_t(foot)][size_t(f)] = u < kStance && lift == 0;
      if (u >= kStance) {
        const double w = (u - kStance) / (1 - kStance), e = w * w * (3 - 2 * w);
        const Vec3f next = at(p.march ? 0 : mid + stride, side);
        pos = {float(pos.x + (next.x - pos.x) * e), float(0.12 * std::sin(kPi * w)),
               float(pos.z + (next.z - pos.z) * e)};
      }
      pos.y += float(lift);
      const double hip = foot == 0 ? p.hipWidth : -p.hipWidth;
      const Vec3f thigh = {float(cog.x + hip * std::cos(face)), cog.y - 0.05f,
                           float(cog.z - hip * std::sin(face))};
      const Vec3f knee = {float((thigh.x + pos.x) / 2 + 0.1 * std::sin(face)),
                          (thigh.y + pos.y) / 2,
                          float((thigh.z + pos.z) / 2 + 0.1 * std::cos(face))};
      joints.insert(joints.end(), {thigh, knee, pos});
    }
    for (Vec3f& j : joints)
      pose.positions.push_back({float(j.x * p.unit), float(j.y * p.unit), float(j.z * p.unit)});
    pose.topRotation.push_back({0, float(std::sin(face / 2)), 0, float(std::cos(face / 2))});
  }
  return take;
}

}  // namespace knrconvert::testing
