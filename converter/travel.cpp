// Ground travel, heading, kind and steady stretches of a take (rules in travel.h).
#include "travel.h"

#include <algorithm>
#include <cmath>

namespace knrconvert {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadToDeg = 180.0 / kPi;
constexpr double kUpright = 0.98;

double Ground(const Vec3f& a, const Vec3f& b) { return std::hypot(b.x - a.x, b.z - a.z); }

// `v` rotated by the unit quaternion `q`.
Vec3f Rotate(const Quatf& q, const Vec3f& v) {
  // v + 2w (u x v) + 2 u x (u x v), u the vector part.
  const double cx = q.y * v.z - q.z * v.y, cy = q.z * v.x - q.x * v.z, cz = q.x * v.y - q.y * v.x;
  const double dx = q.y * cz - q.z * cy, dy = q.z * cx - q.x * cz, dz = q.x * cy - q.y * cx;
  return {static_cast<float>(v.x + 2 * (q.w * cx + dx)),
          static_cast<float>(v.y + 2 * (q.w * cy + dy)),
          static_cast<float>(v.z + 2 * (q.w * cz + dz))};
}

// The facing angle (about +y, from +z towards +x) per frame, unwrapped frame to frame.
std::vector<double> Facing(const PoseSeries& pose, int leftHip, int rightHip, double legLength) {
  const int n = pose.frames;
  bool byHips = leftHip >= 0 && rightHip >= 0;
  if (byHips) {
    std::vector<double> apart;
    for (int f = 0; f < n; ++f) apart.push_back(Ground(pose.At(f, leftHip), pose.At(f, rightHip)));
    byHips = Percentile(apart, 0.5) >= kHipsApartLegs * legLength;
  }
  std::vector<double> angles;
  for (int f = 0; f < n; ++f) {
    double x = 0, z = 1;
    if (byHips) {
      const Vec3f &l = pose.At(f, leftHip), &r = pose.At(f, rightHip);
      x = -(l.z - r.z);  // (l - r) x (0, 1, 0), seen from above
      z = l.x - r.x;
    } else if (static_cast<size_t>(f) < pose.topRotation.size()) {
      const Quatf& q = pose.topRotation[static_cast<size_t>(f)];
      Vec3f axis = Rotate(q, {0, 0, 1});
      if (std::fabs(axis.y) > kUpright) axis = Rotate(q, {0, 1, 0});
      x = axis.x;
      z = axis.z;
    }
    double a = std::atan2(x, z);
    if (!angles.empty()) {
      a = angles.back() + std::remainder(a - angles.back(), 2 * kPi);
    }
    angles.push_back(a);
  }
  return angles;
}

double MeanOf(const std::vector<double>& values, size_t from, size_t to) {
  double sum = 0;
  for (size_t i = from; i < to; ++i) sum += values[i];
  return to > from ? sum / static_cast<double>(to - from) : 0;
}

// Largest span of a joint's positions over the take (the diagonal of their box).
double Span(const PoseSeries& pose, int joint) {
  Vec3f lo = pose.At(0, joint), hi = lo;
  for (int f = 1; f < pose.frames; ++f) {
    const Vec3f& p = pose.At(f, joint);
    lo = {std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
    hi = {std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
  }
  return std::sqrt(double(hi.x - lo.x) * (hi.x - lo.x) + double(hi.y - lo.y) * (hi.y - lo.y) +
                   double(hi.z - lo.z) * (hi.z - lo.z));
}

// Maximal runs [first, last] of frames where `keep` holds, at least `minFrames` long.
template <typename Keep>
std::vector<std::pair<int, int>> Runs(int from, int to, int minFrames, Keep keep) {
  std::vector<std::pair<int, int>> runs;
  for (int f = from; f <= to;) {
    if (!keep(f)) {
      ++f;
      continue;
    }
    int g = f;
    while (g + 1 <= to && keep(g + 1)) ++g;
    if (g - f + 1 >= minFrames) runs.emplace_back(f, g);
    f = g + 1;
  }
  return runs;
}

// Frames of a stretch of `seconds`, or of `kShortTakeShare` of a take shorter than that.
int StretchFrames(const PoseSeries& pose, double seconds) {
  const double take = pose.frames * pose.frameTime;
  return std::max(1, static_cast<int>(std::ceil(
                         std::min(seconds, kShortTakeShare * take) / pose.frameTime - 1e-9)));
}

}  // namespace

std::vector<double> GroundSpeed(const PoseSeries& pose, int cog, double legLength) {
  const int n = pose.frames;
  std::vector<double> speed(static_cast<size_t>(std::max(0, n)), 0.0);
  if (n < 2 || cog < 0 || legLength <= 0 || pose.frameTime <= 0) return speed;
  const double window = std::min(kSpeedWindowSeconds, 0.5 * n * pose.frameTime);
  const int half = std::max(1, static_cast<int>(std::lround(0.5 * window / pose.frameTime)));
  for (int f = 0; f < n; ++f) {
    const int a = std::max(0, f - half), b = std::min(n - 1, f + half);
    speed[static_cast<size_t>(f)] =
        Ground(pose.At(a, cog), pose.At(b, cog)) / ((b - a) * pose.frameTime) / legLength;
  }
  return speed;
}

Travel MeasureTravel(const PoseSeries& pose, const BodyJoints& body) {
  Travel travel;
  const int n = pose.frames;
  if (n < 1 || body.cog < 0 || pose.frameTime <= 0) return travel;
  const LegJoints left = FindLeg(pose, body.leftFoot), right = FindLeg(pose, body.rightFoot);

  std::vector<double> cogHeights, footHeights;
  for (int f = 0; f < n; ++f) {
    cogHeights.push_back(pose.At(f, body.cog).y);
    for (int foot : {body.leftFoot, body.rightFoot})
      if (foot >= 0) footHeights.push_back(pose.At(f, foot).y);
  }
  travel.hipHeight = Percentile(cogHeights, 0.5) - Percentile(footHeights, kFloorPercentile);
  const double legs[2] = {LegLength(pose, left), LegLength(pose, right)};
  travel.legLength = legs[0] > 0 && legs[1] > 0 ? 0.5 * (legs[0] + legs[1])
                                                : std::max({legs[0], legs[1], travel.hipHeight});
  const double L = travel.legLength;
  if (L <= 0) {
    travel.warnings.push_back("the take's legs have no length: no travel measured");
    return travel;
  }

  const int step =
      std::max(1, static_cast<int>(std::lround(1 / (kTravelSamplesPerSecond * pose.frameTime))));
  for (int f = 0; f + 1 < n;) {
    const int g = std::min(f + step, n - 1);
    travel.distance += Ground(pose.At(f, body.cog), pose.At(g, body.cog));
    f = g;
  }

  const std::vector<double> facing = Facing(pose, left.hip, right.hip, L);
  const size_t window = std::clamp<size_t>(
      static_cast<size_t>(std::lround(kHeadingWindowSeconds / pose.frameTime)), 1, facing.size());
  travel.headingChange =
      std::fabs(MeanOf(facing, facing.size() - window, facing.size()) - MeanOf(facing, 0, window)) *
      kRadToDeg;

  travel.groundSpeed = GroundSpeed(pose, body.cog, L);
  const std::vector<double>& v = travel.groundSpeed;
  const auto runs =
      Runs(0, n - 1, 1, [&](int f) { return v[static_cast<size_t>(f)] >= kMinGroundSpeedLegs; });
  std::vector<std::pair<int, int>> moving;  // runs joined across short pauses
  const double pause = kMaxPauseSeconds / pose.frameTime;
  for (const auto& run : runs) {
    if (!moving.empty() && run.first - moving.back().second - 1 < pause)
      moving.back().second = run.second;
    else
      moving.push_back(run);
  }
  for (const auto& [first, last] : moving) {
    if (last - first + 1 < StretchFrames(pose, kMinStretchSeconds)) continue;
    double covered = 0;
    for (int f = first; f <= last; ++f) covered += v[static_cast<size_t>(f)] * pose.frameTime;
    if (covered < kMinCoverageLegs) continue;
    travel.locomotion = true;
    const double median =
        Percentile(std::vector<double>(v.begin() + first, v.begin() + last + 1), 0.5);
    const auto steady = Runs(first, last, StretchFrames(pose, kMinSteadySeconds), [&](int f) {
      return std::fabs(v[static_cast<size_t>(f)] - median) <= kSteadyTolerance * median;
    });
    travel.steadyStretches.insert(travel.steadyStretches.end(), steady.begin(), steady.end());
  }

  for (int foot : {body.leftFoot, body.rightFoot})
    travel.stances.push_back(EstimateStance(pose, foot, L));
  const int steps = AlternatingSteps(travel.stances[0], travel.stances[1], pose.frameTime);
  if (!travel.locomotion && travel.distance < kNoTravelLegs * L && steps >= kSteppingSteps) {
    travel.warnings.push_back("the feet take " + std::to_string(steps) +
                              " steps but the body does not travel: the travel may be on another "
                              "joint than the COG " +
                              pose.names[static_cast<size_t>(body.cog)] + ", or taken out");
  }
  bool othersMove = false;
  for (int j = 0; j < pose.Joints() && !othersMove; ++j)
    othersMove = j != body.cog && Span(pose, j) > kMovingJointLegs * L;
  if (othersMove && Span(pose, body.cog) < kStillCogLegs * L) {
    travel.warnings.push_back("the COG " + pose.names[static_cast<size_t>(body.cog)] +
                              " never moves while other joints do: the body's motion may be on "
                              "another joint");
  }
  return travel;
}

}  // namespace knrconvert
