// Stance estimate and contact threshold of a take's feet (rules in stance.h).
#include "stance.h"

#include <algorithm>
#include <cmath>

#include "knrexport/skill/contact_detector.h"

namespace knrconvert {
namespace {

double Distance(const Vec3f& a, const Vec3f& b) {
  return std::sqrt(double(a.x - b.x) * (a.x - b.x) + double(a.y - b.y) * (a.y - b.y) +
                   double(a.z - b.z) * (a.z - b.z));
}

// The first ancestor of `joint` that stands apart from it in the first frame, or -1.
int ApartAncestor(const PoseSeries& pose, int joint, double apart) {
  for (int i = pose.parents[static_cast<size_t>(joint)]; i >= 0;
       i = pose.parents[static_cast<size_t>(i)]) {
    if (Distance(pose.At(0, i), pose.At(0, joint)) > apart) return i;
  }
  return -1;
}

// Flips runs of `value` shorter than `minFrames` (or of one frame) that have both neighbours.
void DropShortRuns(Stance& stance, bool value, int minFrames) {
  const int n = static_cast<int>(stance.size());
  for (int i = 0; i < n;) {
    int j = i;
    while (j < n && stance[static_cast<size_t>(j)] == stance[static_cast<size_t>(i)]) ++j;
    const bool inside = i > 0 && j < n;
    if (stance[static_cast<size_t>(i)] == value && inside && (j - i < minFrames || j - i == 1)) {
      for (int k = i; k < j; ++k) stance[static_cast<size_t>(k)] = !value;
    }
    i = j;
  }
}

Stance PerFrame(const std::vector<Interval>& intervals, int frames) {
  Stance planted(static_cast<size_t>(std::max(0, frames)), false);
  for (const Interval& in : intervals) {
    for (int f = std::max(0, in.first); f <= std::min(frames - 1, in.second); ++f)
      planted[static_cast<size_t>(f)] = true;
  }
  return planted;
}

// Planted frames of `foot` after which the other foot has stood `support` frames: its plants.
std::vector<int> PlantStarts(const Stance& foot, const Stance& other, int support) {
  std::vector<int> starts;
  for (size_t f = 1; f < foot.size() && f < other.size(); ++f) {
    if (!foot[f] || foot[f - 1]) continue;
    int stood = 0;
    for (size_t k = f; k-- > 0 && other[k] && stood < support;) ++stood;
    if (stood >= support) starts.push_back(static_cast<int>(f));
  }
  return starts;
}

}  // namespace

LegJoints FindLeg(const PoseSeries& pose, int foot) {
  LegJoints leg;
  if (foot < 0 || foot >= pose.Joints() || pose.frames < 1) return leg;
  leg.foot = foot;
  int top = foot;
  while (pose.parents[static_cast<size_t>(top)] >= 0) top = pose.parents[static_cast<size_t>(top)];
  const double apart = kApartShare * Distance(pose.At(0, top), pose.At(0, foot));
  leg.knee = ApartAncestor(pose, foot, apart);
  if (leg.knee >= 0) leg.hip = ApartAncestor(pose, leg.knee, apart);
  return leg;
}

double LegLength(const PoseSeries& pose, const LegJoints& leg) {
  if (leg.foot < 0 || leg.knee < 0 || leg.hip < 0) return 0;
  std::vector<double> lengths;
  for (int f = 0; f < pose.frames; ++f) {
    lengths.push_back(Distance(pose.At(f, leg.foot), pose.At(f, leg.knee)) +
                      Distance(pose.At(f, leg.knee), pose.At(f, leg.hip)));
  }
  return Percentile(lengths, 0.5);
}

double Percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const size_t k = static_cast<size_t>(std::clamp(share, 0.0, 1.0) * (values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + static_cast<long>(k), values.end());
  return values[k];
}

Stance EstimateStance(const PoseSeries& pose, int foot, double legLength) {
  const int n = pose.frames;
  Stance planted(static_cast<size_t>(std::max(0, n)), false);
  if (n < 1 || foot < 0 || legLength <= 0 || pose.frameTime <= 0) return planted;
  std::vector<double> heights;
  for (int f = 0; f < n; ++f) heights.push_back(pose.At(f, foot).y);
  const double floor = Percentile(heights, kFloorPercentile);
  const int span =
      std::max(1, static_cast<int>(std::lround(kSpeedHalfSpanSeconds / pose.frameTime)));
  for (int f = 0; f < n; ++f) {
    const int a = std::max(0, f - span), b = std::min(n - 1, f + span);
    const double speed =
        b > a ? Distance(pose.At(a, foot), pose.At(b, foot)) / ((b - a) * pose.frameTime) : 0;
    planted[static_cast<size_t>(f)] =
        heights[static_cast<size_t>(f)] - floor < kPlantedHeightLegs * legLength &&
        speed < kPlantedSpeedLegs * legLength;
  }
  const int minFrames = static_cast<int>(std::ceil(kFlickerSeconds / pose.frameTime - 1e-9));
  DropShortRuns(planted, false, minFrames);
  DropShortRuns(planted, true, minFrames);
  return planted;
}

std::vector<Interval> PredictContacts(const PoseSeries& pose, int foot, double threshold) {
  const int n = pose.frames;
  if (n < 1 || foot < 0) return {};
  std::vector<float> height, speed2;
  for (int f = 0; f < n; ++f) height.push_back(pose.At(f, foot).y);
  for (int f = 0; f + 1 < n; ++f) {
    const Vec3f &a = pose.At(f, foot), &b = pose.At(f + 1, foot);
    speed2.push_back((b.z - a.z) * (b.z - a.z) + (b.y - a.y) * (b.y - a.y));
  }
  const ContactKeys keys = DetectContacts(height, speed2, static_cast<float>(threshold), 0, n);
  std::vector<ContactKeyValue> values;
  for (const ContactKey& key : keys.keys) values.push_back({double(key.frame), double(key.value)});
  return ContactIntervals(values, 0, n - 1);
}

double ContactAgreement(const std::vector<Interval>& intervals, const Stance& stance) {
  if (stance.empty()) return 0;
  const Stance keyed = PerFrame(intervals, static_cast<int>(stance.size()));
  size_t same = 0;
  for (size_t f = 0; f < stance.size(); ++f) same += keyed[f] == stance[f];
  return static_cast<double>(same) / static_cast<double>(stance.size());
}

std::vector<Interval> PlantedIntervals(const Stance& stance) {
  std::vector<Interval> runs;
  for (size_t f = 0; f < stance.size(); ++f) {
    if (!stance[f]) continue;
    if (!runs.empty() && runs.back().second == static_cast<int>(f) - 1) {
      runs.back().second = static_cast<int>(f);
    } else {
      runs.emplace_back(static_cast<int>(f), static_cast<int>(f));
    }
  }
  return runs;
}

std::vector<int> OneFrameContacts(const std::vector<Interval>& intervals) {
  std::vector<int> frames;
  for (const Interval& in : intervals)
    if (in.first == in.second) frames.push_back(in.first);
  return frames;
}

ContactChoice ChooseContactThreshold(const PoseSeries& pose, const std::vector<int>& feet,
                                     const std::vector<Stance>& stances) {
  ContactChoice best;
  bool first = true;
  const int steps = static_cast<int>(std::lround((kThresholdMax - kThresholdMin) / kThresholdStep));
  for (int s = 0; s <= steps; ++s) {
    ContactChoice choice;
    // Rounded to the grid's own digits, so that the page and the take file say "0.225".
    choice.threshold = std::round((kThresholdMin + s * kThresholdStep) * 1e4) / 1e4;
    double sum = 0;
    for (size_t i = 0; i < feet.size() && i < stances.size(); ++i) {
      FootContacts foot;
      foot.intervals = PredictContacts(pose, feet[i], choice.threshold);
      foot.agreement = ContactAgreement(foot.intervals, stances[i]);
      sum += foot.agreement;
      choice.feet.push_back(std::move(foot));
    }
    choice.agreement = choice.feet.empty() ? 0 : sum / static_cast<double>(choice.feet.size());
    constexpr double kSame = 1e-9;
    const bool better = choice.agreement > best.agreement + kSame;
    const bool tie =
        std::fabs(choice.agreement - best.agreement) <= kSame &&
        std::fabs(choice.threshold - kUsualThreshold) < std::fabs(best.threshold - kUsualThreshold);
    if (first || better || tie) best = std::move(choice);
    first = false;
  }
  for (size_t i = 0; i < best.feet.size(); ++i) {
    for (const int frame : OneFrameContacts(best.feet[i].intervals)) {
      best.warnings.push_back("a one-frame contact of the foot " +
                              pose.names[static_cast<size_t>(feet[i])] + " at frame " +
                              std::to_string(frame) + " (threshold " +
                              std::to_string(best.threshold).substr(0, 5) + ")");
    }
  }
  return best;
}

int AlternatingSteps(const Stance& left, const Stance& right, double frameTime) {
  const int support =
      std::max(1, static_cast<int>(std::lround(kStepSupportSeconds / std::max(frameTime, 1e-9))));
  std::vector<std::pair<int, int>> plants;  // frame, foot
  for (int f : PlantStarts(left, right, support)) plants.emplace_back(f, 0);
  for (int f : PlantStarts(right, left, support)) plants.emplace_back(f, 1);
  std::sort(plants.begin(), plants.end());
  int steps = 0;
  for (size_t i = 0; i < plants.size(); ++i)
    steps += i == 0 || plants[i].second != plants[i - 1].second;
  return steps;
}

}  // namespace knrconvert
