// Relative poses, seams, loop windows and pops (rules in loop_window.h).
#include "loop_window.h"

#include <algorithm>
#include <cmath>

namespace knrconvert {
namespace {

struct Vec3d {
  double x = 0, y = 0, z = 0;
};

double Distance(const Vec3f& a, const Vec3f& b) {
  const double dx = double(a.x) - b.x, dy = double(a.y) - b.y, dz = double(a.z) - b.z;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

// v rotated by the inverse of unit quaternion q: q* v q.
Vec3d InverseRotate(const Quatf& q, const Vec3d& v) {
  const double x = -q.x, y = -q.y, z = -q.z, w = q.w;
  // t = 2 (u x v), result = v + w t + u x t, with u = (x, y, z).
  const double tx = 2 * (y * v.z - z * v.y), ty = 2 * (z * v.x - x * v.z),
               tz = 2 * (x * v.y - y * v.x);
  return {v.x + w * tx + (y * tz - z * ty), v.y + w * ty + (z * tx - x * tz),
          v.z + w * tz + (x * ty - y * tx)};
}

int Frames(double seconds, double frameTime) {
  return frameTime > 0 ? static_cast<int>(std::lround(seconds / frameTime)) : 1;
}

// Mean over joints of the one-frame move of the relative positions, from f to f + 1.
std::vector<double> MeanSteps(const RelativePoses& poses, int first, int last) {
  std::vector<double> steps;
  for (int f = first; f < last; ++f) {
    double sum = 0;
    for (int j = 0; j < poses.joints; ++j) sum += Distance(poses.At(f, j), poses.At(f + 1, j));
    steps.push_back(poses.joints > 0 ? sum / poses.joints : 0);
  }
  return steps;
}

double Drift(const PoseSeries& series, int start, int end) {
  double drift = 0;
  for (int j = 0; j < series.Joints(); ++j)
    drift = std::max(drift, Distance(series.At(start, j), series.At(end, j)));
  return drift;
}

// The largest one-frame change of any joint seen so far, and where.
struct Step {
  double size = 0;
  int joint = -1, frame = -1;
};
void Widen(Step& step, const RelativePoses& poses, int a, int b, int frame) {
  for (int j = 0; j < poses.joints; ++j) {
    const double d = Distance(poses.At(a, j), poses.At(b, j));
    if (step.joint < 0 || d > step.size) step = {d, j, frame};
  }
}

// Lower score first; then the longer window (it repeats less visibly), then the earlier.
bool Better(const LoopWindow& a, const LoopWindow& b) {
  if (a.score != b.score) return a.score < b.score;
  if (a.end - a.start != b.end - b.start) return a.end - a.start > b.end - b.start;
  return a.start < b.start;
}

}  // namespace

std::vector<Interval> ContactIntervals(const std::vector<ContactKeyValue>& keys, int first,
                                       int last) {
  std::vector<Interval> intervals;
  int openAt = 0;
  bool open = false;
  for (const ContactKeyValue& key : keys) {
    const int frame = static_cast<int>(std::lround(key.frame));
    const bool planted = key.value > 0.5;
    if (planted && !open) {
      open = true;
      openAt = std::max(frame, first);
    } else if (!planted && open) {
      open = false;
      if (frame - 1 >= openAt) intervals.emplace_back(openAt, std::min(frame - 1, last));
    }
  }
  if (open && openAt <= last) intervals.emplace_back(openAt, last);
  return intervals;
}

RelativePoses RelativeToCog(double frameTime, int joints, const std::vector<Vec3f>& positions,
                            const std::vector<Quatf>& cogRotation, int cog) {
  RelativePoses poses;
  poses.frameTime = frameTime;
  poses.joints = joints;
  poses.frames = joints > 0 ? static_cast<int>(positions.size()) / joints : 0;
  poses.frames = std::min(poses.frames, static_cast<int>(cogRotation.size()));
  poses.positions.resize(static_cast<size_t>(poses.frames) * static_cast<size_t>(joints));
  for (int f = 0; f < poses.frames; ++f) {
    const size_t row = static_cast<size_t>(f) * static_cast<size_t>(joints);
    const Vec3f& c = positions[row + static_cast<size_t>(cog)];
    for (int j = 0; j < joints; ++j) {
      const Vec3f& p = positions[row + static_cast<size_t>(j)];
      const Vec3d r = InverseRotate(cogRotation[static_cast<size_t>(f)],
                                    {double(p.x) - c.x, double(p.y) - c.y, double(p.z) - c.z});
      poses.positions[row + static_cast<size_t>(j)] = {float(r.x), float(r.y), float(r.z)};
    }
  }
  return poses;
}

RelativePoses RelativeToCog(const PoseSeries& series) {
  const auto top = std::find(series.parents.begin(), series.parents.end(), -1);
  const int cog = top == series.parents.end() ? 0 : static_cast<int>(top - series.parents.begin());
  return RelativeToCog(series.frameTime, series.Joints(), series.positions, series.topRotation,
                       cog);
}

SeamMeasure Seam(const RelativePoses& poses, int start, int end) {
  SeamMeasure seam;
  for (int j = 0; j < poses.joints; ++j) {
    const double d = Distance(poses.At(start, j), poses.At(end, j));
    if (seam.joint < 0 || d > seam.distance) seam = {d, j};
  }
  return seam;
}

int BlendFrames(int length) {
  return std::max(1, static_cast<int>(std::floor(kBlendShare * length)));
}

std::vector<LoopWindow> LocomotionWindows(const RelativePoses& poses,
                                          const std::vector<std::vector<Interval>>& contacts,
                                          const std::vector<Interval>& steady, int firstFrame) {
  const int minFrames = std::max(2, Frames(kMinCycleSeconds, poses.frameTime));
  std::vector<LoopWindow> windows;
  // Whether start..end, with its blend frames before, lies in `stretch` and is long enough.
  auto fits = [&](int start, int end, const Interval& stretch) {
    const int from = start - BlendFrames(end - start);
    return end - start >= minFrames && from >= std::max({0, firstFrame, stretch.first}) &&
           end <= std::min(stretch.second, poses.frames - 1);
  };
  for (size_t foot = 0; foot < contacts.size(); ++foot) {
    const auto& planted = contacts[foot];
    for (size_t i = 0; i + 1 < planted.size(); ++i) {
      const int start = planted[i].first, end = planted[i + 1].first;
      const auto stretch = std::find_if(steady.begin(), steady.end(),
                                        [&](const Interval& s) { return fits(start, end, s); });
      if (stretch == steady.end()) continue;
      LoopWindow w;
      w.loco = true;
      w.foot = static_cast<int>(foot);
      w.start = start;
      w.end = end;
      w.seam = Seam(poses, start, end);
      // Contacts are found a frame or few off: each end moves within the slack to where the
      // poses meet best.
      const int slack = static_cast<int>(std::lround(kCycleSlack * (end - start)));
      for (int s = start - slack; s <= start + slack; ++s) {
        for (int e = end - slack; e <= end + slack; ++e) {
          if (!fits(s, e, *stretch)) continue;
          const SeamMeasure seam = Seam(poses, s, e);
          if (seam.distance < w.seam.distance) w.start = s, w.end = e, w.seam = seam;
        }
      }
      w.smooth = BlendFrames(w.end - w.start);
      const double half = std::max(1.0, (stretch->second - stretch->first) / 2.0);
      const double offCentre = std::min(
          1.0, std::fabs((w.start + w.end - stretch->first - stretch->second) / 2.0) / half);
      w.score = w.seam.distance * (1 + kMiddlePreference * offCentre);
      windows.push_back(w);
    }
  }
  std::sort(windows.begin(), windows.end(), Better);
  return windows;
}

std::vector<LoopWindow> CalmWindows(const PoseSeries& series, const RelativePoses& poses, int first,
                                    int last) {
  first = std::max(first, 0);
  last = std::min(last, poses.frames - 1);
  if (last - first + 1 < kMinLoopFrames) return {};
  const double dt = poses.frameTime > 0 ? poses.frameTime : 1;
  // prefix[k]: summed mean joint steps from `first` to `first + k`.
  const std::vector<double> steps = MeanSteps(poses, first, last);
  std::vector<double> prefix(steps.size() + 1, 0);
  for (size_t k = 0; k < steps.size(); ++k) prefix[k + 1] = prefix[k] + steps[k];

  auto make = [&](int start, int end) {
    LoopWindow w;
    w.start = start;
    w.end = end;
    w.smooth = BlendFrames(end - start);
    w.seam = Seam(poses, start, end);
    w.drift = Drift(series, start, end);
    w.motion =
        (prefix[static_cast<size_t>(end - first)] - prefix[static_cast<size_t>(start - first)]) /
        ((end - start) * dt);
    w.score = w.motion + std::max(w.seam.distance, w.drift) / (w.smooth * dt);
    return w;
  };

  const int span = last - first;
  const int shortest = Frames(kBasicSeconds[0], dt);
  std::vector<int> lengths;
  if (span < shortest) lengths.push_back(span);
  for (double seconds : kBasicSeconds) {
    const int length = std::max(2, Frames(seconds, dt));
    if (length <= span) lengths.push_back(length);
  }
  if (span >= shortest && span <= Frames(kBasicSeconds[std::size(kBasicSeconds) - 1], dt))
    lengths.push_back(span);

  const int step = std::max(1, Frames(kCoarseStepSeconds, dt));
  std::vector<LoopWindow> coarse;
  for (int length : lengths) {
    for (int start = first; start + length <= last; start += step)
      coarse.push_back(make(start, start + length));
    if ((span - length) % step != 0) coarse.push_back(make(last - length, last));
  }
  std::sort(coarse.begin(), coarse.end(), Better);

  // Best first, each refined within a step; a window that overlaps a kept one by more than half
  // is passed over (asked before refining, to save the work, and after).
  auto overlapping = [](const LoopWindow& a, const LoopWindow& b) {
    const int shared = std::min(a.end, b.end) - std::max(a.start, b.start);
    return 2 * shared > std::min(a.end - a.start, b.end - b.start);
  };
  const auto [minLength, maxLength] = std::minmax_element(lengths.begin(), lengths.end());
  std::vector<LoopWindow> kept;
  for (const LoopWindow& candidate : coarse) {
    if (static_cast<int>(kept.size()) == kLoopTries) break;
    if (std::any_of(kept.begin(), kept.end(),
                    [&](const LoopWindow& k) { return overlapping(k, candidate); }))
      continue;
    LoopWindow best = candidate;
    for (int s = std::max(first, candidate.start - step); s <= candidate.start + step; ++s) {
      for (int e = std::max(s + *minLength, candidate.end - step);
           e <= std::min({last, candidate.end + step, s + *maxLength}); ++e) {
        const LoopWindow w = make(s, e);
        if (Better(w, best)) best = w;
      }
    }
    if (std::none_of(kept.begin(), kept.end(),
                     [&](const LoopWindow& k) { return overlapping(k, best); }))
      kept.push_back(best);
  }
  std::sort(kept.begin(), kept.end(), Better);
  return kept;
}

LoopChoice ChooseLoopWindows(const PoseSeries& series, const RelativePoses& poses, bool travels,
                             const std::vector<std::vector<Interval>>& contacts,
                             const std::vector<Interval>& steady, int first, int last) {
  LoopChoice choice;
  if (travels) {
    choice.windows = LocomotionWindows(poses, contacts, steady, first);
    if (choice.windows.size() > static_cast<size_t>(kLoopTries)) choice.windows.resize(kLoopTries);
    if (!choice.windows.empty()) return choice;
    choice.note =
        "no gait cycle lies in a stretch of steady travel (a foot must plant twice, half a second "
        "apart or more, with frames to blend before): the calmest stretch is looped instead";
  }
  choice.windows = CalmWindows(series, poses, first, last);
  if (choice.windows.empty())
    choice.note =
        "the take has fewer than " + std::to_string(kMinLoopFrames) + " frames: it cannot loop";
  return choice;
}

PopMeasure MeasurePops(const RelativePoses& loop, const RelativePoses& source, int start, int end) {
  PopMeasure pops;
  const int length = loop.frames - 1;
  if (length < 1) return pops;
  Step loopStep;
  for (int f = 0; f < length; ++f) Widen(loopStep, loop, f, f + 1, f);
  Widen(loopStep, loop, length, 0, length);
  Step sourceStep;
  double reach = 0;
  for (int f = start; f <= end; ++f) {
    if (f < end) Widen(sourceStep, source, f, f + 1, f);
    for (int j = 0; j < source.joints; ++j) reach = std::max(reach, Distance(source.At(f, j), {}));
  }
  pops.loopStep = loopStep.size;
  pops.sourceStep = sourceStep.size;
  pops.joint = loopStep.joint;
  pops.frame = loopStep.frame;
  const double floor = std::max({sourceStep.size, kPopFloorShare * reach, 1e-12});
  pops.ratio = loopStep.size / floor;
  pops.pop = pops.ratio > kPopFactor;
  return pops;
}

SeamCurve SeamCurves(const RelativePoses& source, int start, int end, const RelativePoses& loop,
                     int joint) {
  SeamCurve curve;
  curve.joint = joint >= 0 ? joint : Seam(source, start, end).joint;
  if (curve.joint < 0) return curve;
  const int length = end - start;
  for (int pass = 0; pass < 2; ++pass) {
    for (int k = 0; k <= length; ++k) {
      curve.before.push_back(
          Distance(source.At(start + k, curve.joint), source.At(start, curve.joint)));
      if (loop.frames > length)
        curve.after.push_back(Distance(loop.At(k, curve.joint), loop.At(0, curve.joint)));
    }
  }
  return curve;
}

}  // namespace knrconvert
