// Where a take is made loopable, and how well its ends meet.
//
// Seam: the largest jump of any looped rotation channel across the wrap, in degrees, that is
// max over channels of |v(end) - v(start)| with the difference taken modulo 360 into
// [-180, 180]. Playing a loop of frames start..end, frame end is followed by frame start again,
// so this is the jump a viewer sees. Only rotations count: they share one unit, and the
// translations of a travelling skill (its root) are meant to keep going across the wrap. The
// actor root's channels are left out for the same reason (they carry the ground travel and the
// heading of a locomotion skill).
//
// Loop window of a locomotion take: every gait cycle, from one contact start of a foot to that
// foot's next contact start, is a candidate, except cycles that start less than their blend
// length after the skill's first frame (the loop blends towards the frames before its start,
// so it needs that many) and
// cycles shorter than a minimum length (half a second in the converter: a contact that flickers
// on and off for a frame or two makes "cycles" no walk has); the cycle with the smallest seam
// wins, the earlier one on ties.
//
// Blend length ("Smooth" of Make Loop): a quarter of the window, at least 1 frame. For a
// locomotion window the loop maker also caps it by the frames before the start.
//
// A take without a gait cycle (a Basic skill, or a locomotion take whose feet never planted
// twice) loops as a whole: from the skill's first frame to its last, blended towards the first
// pose.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace knrconvert {

using Interval = std::pair<int, int>;  // [first frame, last frame]

// A key of a stepped contact curve: 1 planted, 0 free.
struct ContactKeyValue {
  double frame;
  double value;
};

// Planted intervals of a stepped contact curve over the skill's frames first..last: a run from
// a key of 1 to the frame before the next key of 0, or to `last`.
std::vector<Interval> ContactIntervals(const std::vector<ContactKeyValue>& keys, int first,
                                       int last);

// Angle difference b - a folded into [-180, 180], as a magnitude.
double AngleJump(double a, double b);

// Value of channel `channel` at `frame`.
using ChannelEval = std::function<double(size_t channel, double frame)>;

struct SeamMeasure {
  double value = 0;
  int channel = -1;  // the channel with the largest jump; -1 without channels
};
// The seam of the window start..end over `channels` channels.
SeamMeasure MeasureSeam(size_t channels, const ChannelEval& eval, double start, double end);

// The gait cycles of every foot (contact starts of one foot, taken in pairs of successive ones)
// that start at least their blend length after `firstFrame` and last at least `minFrames`. `footOf`
// receives the foot's index for each cycle.
std::vector<Interval> GaitCycles(const std::vector<std::vector<Interval>>& contacts, int firstFrame,
                                 int minFrames, std::vector<int>& footOf);

struct LoopWindow {
  int start = 0, end = 0;
  int foot = -1;  // the foot whose cycle it is; -1 for the whole take
  int smooth = 1;
  bool loco = false;
  SeamMeasure seamBefore;
};
// Chooses the window as described above. `contacts` may be empty (a Basic skill).
LoopWindow ChooseLoopWindow(const std::vector<std::vector<Interval>>& contacts, int firstFrame,
                            int lastFrame, int minCycleFrames, size_t channels,
                            const ChannelEval& eval);

}  // namespace knrconvert
