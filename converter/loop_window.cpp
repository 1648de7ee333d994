// Contact intervals, seams and the choice of the loop window (rules in loop_window.h).
#include "loop_window.h"

#include <algorithm>
#include <cmath>

namespace knrconvert {

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

double AngleJump(double a, double b) {
  double d = std::fmod(b - a, 360.0);
  if (d > 180.0) d -= 360.0;
  if (d < -180.0) d += 360.0;
  return std::fabs(d);
}

SeamMeasure MeasureSeam(size_t channels, const ChannelEval& eval, double start, double end) {
  SeamMeasure seam;
  for (size_t c = 0; c < channels; ++c) {
    const double jump = AngleJump(eval(c, start), eval(c, end));
    if (seam.channel < 0 || jump > seam.value) {
      seam.value = jump;
      seam.channel = static_cast<int>(c);
    }
  }
  return seam;
}

std::vector<Interval> GaitCycles(const std::vector<std::vector<Interval>>& contacts, int firstFrame,
                                 int minFrames, std::vector<int>& footOf) {
  std::vector<Interval> cycles;
  footOf.clear();
  for (size_t foot = 0; foot < contacts.size(); ++foot) {
    const auto& planted = contacts[foot];
    for (size_t i = 0; i + 1 < planted.size(); ++i) {
      const int length = planted[i + 1].first - planted[i].first;
      if (length < minFrames || planted[i].first - firstFrame < std::max(1, length / 4)) continue;
      cycles.emplace_back(planted[i].first, planted[i + 1].first);
      footOf.push_back(static_cast<int>(foot));
    }
  }
  return cycles;
}

LoopWindow ChooseLoopWindow(const std::vector<std::vector<Interval>>& contacts, int firstFrame,
                            int lastFrame, int minCycleFrames, size_t channels,
                            const ChannelEval& eval) {
  std::vector<int> footOf;
  const std::vector<Interval> cycles = GaitCycles(contacts, firstFrame, minCycleFrames, footOf);
  LoopWindow best;
  for (size_t i = 0; i < cycles.size(); ++i) {
    const SeamMeasure seam = MeasureSeam(channels, eval, cycles[i].first, cycles[i].second);
    if (best.foot >= 0 && seam.value >= best.seamBefore.value) continue;
    best.start = cycles[i].first;
    best.end = cycles[i].second;
    best.foot = footOf[i];
    best.loco = true;
    best.seamBefore = seam;
  }
  if (best.foot < 0) {
    best.start = firstFrame;
    best.end = lastFrame;
    best.loco = false;
    best.seamBefore = MeasureSeam(channels, eval, firstFrame, lastFrame);
  }
  best.smooth = std::max(1, (best.end - best.start) / 4);
  return best;
}

}  // namespace knrconvert
