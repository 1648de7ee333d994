// Where a take is made loopable, and whether the loop that comes out pops.
//
// Everything here looks at the pose relative to the centre of gravity (the skeleton's top joint):
// every joint's position in the COG's own frame, p_rel = R_cog^-1 (p - p_cog). The body's travel
// and heading drop out, so a walk that keeps going across the wrap is no seam, and there are no
// Euler angles: a joint turning through +-180 degrees is as smooth here as it looks.
//
// Frames here are the frames of the poses given (a pose series counts from 0); a caller whose
// skill starts elsewhere maps contacts, stretches and windows itself.
//
// Seam of a window start..end: the largest distance of any joint's relative position between
// frame end and frame start, in take units. Playing the loop, frame end is followed by frame
// start: this is the jump a viewer sees before blending.
//
// Locomotion windows: every gait cycle, from one contact start of a foot to that foot's next
// contact start, that
//   - lasts at least kMinCycleSeconds (a contact that flickers on and off makes "cycles" no
//     walk has), and
//   - lies, together with its blend frames before the start (the loop blends towards them), in
//     one steady stretch of travel (never across a start, a stop or a hop).
// Contacts come a frame or a few early or late, so each end of a cycle then moves by up to
// kCycleSlack of its length to where the poses meet best (the smallest seam), still fitting.
// Ranked by the seam, stretched by up to kMiddlePreference for a cycle off the middle of its
// stretch (score = seam * (1 + kMiddlePreference * off-centre), off-centre 0 in the middle and
// 1 at an end): gait is steadiest away from the start and the stop.
//
// Basic windows (a take that does not travel, or a travelling one with no cycle that fits): the
// calmest stretch. Window lengths of kBasicSeconds (1 to 4 s) that fit in the take, and the
// whole take when it is at most 4 s long; a take shorter than 1 s loops whole, and a take of
// fewer than kMinLoopFrames frames cannot loop at all. Each window is scored, in take units a
// second, by
//   the mean speed of the relative joint positions inside it (how much the body moves), plus
//   the seam spread over the blend time (the speed the blend adds to close it).
// For a Basic loop the whole body returns to its start, so here the seam is the larger of the
// relative seam and the drift: the largest distance of any joint's global position between the
// two ends (a body that turned or stepped away pops too). Longer windows spread the same seam
// over a longer blend and win when equally calm. Starts are searched every kCoarseStepSeconds,
// then the best windows are refined frame by frame within a step of their start and end (the
// length kept within the lengths above), so the search costs about frames x joints x lengths /
// step. The windows kept overlap each other by at most half of the shorter one, so that the
// next one tried is another stretch.
//
// On equal scores the longer window wins (it repeats less visibly), then the earlier one. At
// most kLoopTries windows are offered, best first: the caller tries the next one when a made
// loop pops, and warns when the last one pops too.
//
// Blend ("Smooth" of Make Loop): a quarter of the window, at least 1 frame. Locomotion windows
// blend towards the frames before their start (Loco on); Basic ones towards the start pose.
//
// Pops of a made loop (frames 0..L) against its source window: the largest one-frame change of
// any joint's relative position over the loop, the wrap from L to 0 included, and the largest
// inside the source window. The loop pops when its largest exceeds kPopFactor times the
// source's, the source's never taken below kPopFloorShare of the body's reach (the largest
// relative distance of a joint in the source window), so float noise on a still pose is no pop.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "pose_series.h"

namespace knrconvert {

inline constexpr double kMinCycleSeconds = 0.5;
inline constexpr double kCycleSlack = 0.1;
inline constexpr double kMiddlePreference = 0.25;
inline constexpr double kBasicSeconds[] = {1.0, 1.5, 2.0, 3.0, 4.0};
inline constexpr int kMinLoopFrames = 3;
inline constexpr double kCoarseStepSeconds = 0.1;
inline constexpr double kBlendShare = 0.25;
inline constexpr double kPopFactor = 1.5;
inline constexpr double kPopFloorShare = 0.002;
inline constexpr int kLoopTries = 3;

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

// Every joint's position in the COG's frame, per frame.
struct RelativePoses {
  double frameTime = 0;  // seconds per frame
  int frames = 0;
  int joints = 0;
  std::vector<Vec3f> positions;  // [f * joints + j]

  const Vec3f& At(int frame, int joint) const {
    return positions[static_cast<size_t>(frame) * static_cast<size_t>(joints) +
                     static_cast<size_t>(joint)];
  }
};

// Relative poses from global `positions` ([f * joints + j]) and the COG's global rotation per
// frame; `cog` is the COG's joint index. Fits samples taken from the scene after Make Loop.
RelativePoses RelativeToCog(double frameTime, int joints, const std::vector<Vec3f>& positions,
                            const std::vector<Quatf>& cogRotation, int cog);
// Relative poses of a pose series, its top joint the COG.
RelativePoses RelativeToCog(const PoseSeries& series);

struct SeamMeasure {
  double distance = 0;  // take units
  int joint = -1;       // the joint that jumps most; -1 without joints
};
// The seam of the window start..end.
SeamMeasure Seam(const RelativePoses& poses, int start, int end);

// The blend length of a window of `length` frames.
int BlendFrames(int length);

struct LoopWindow {
  int start = 0, end = 0;
  int smooth = 1;     // the blend length, Make Loop's Smooth
  bool loco = false;  // Make Loop's Loco: blend towards the frames before the start
  int foot = -1;      // the foot whose gait cycle it is; -1 for a Basic window
  SeamMeasure seam;   // before blending
  double drift = 0;   // Basic: the largest global move of a joint between the ends
  double motion = 0;  // Basic: mean speed of the relative joint positions inside, units/s
  double score = 0;   // lower is better
};

// Gait cycles that fit the steady stretches, best first. `contacts` holds planted intervals per
// foot, `steady` the stretches of steady travel; frames before `firstFrame` are not animation.
std::vector<LoopWindow> LocomotionWindows(const RelativePoses& poses,
                                          const std::vector<std::vector<Interval>>& contacts,
                                          const std::vector<Interval>& steady, int firstFrame);

// The calmest windows of first..last, best first; empty when fewer than kMinLoopFrames frames.
// `series` gives the global positions for the drift; `poses` are its relative poses.
std::vector<LoopWindow> CalmWindows(const PoseSeries& series, const RelativePoses& poses, int first,
                                    int last);

struct LoopChoice {
  std::vector<LoopWindow> windows;  // best first; the caller tries them in turn
  std::string note;                 // why a travelling take loops as Basic, or cannot loop
};
// Locomotion windows when the take `travels` and a cycle fits, else the calm windows.
LoopChoice ChooseLoopWindows(const PoseSeries& series, const RelativePoses& poses, bool travels,
                             const std::vector<std::vector<Interval>>& contacts,
                             const std::vector<Interval>& steady, int first, int last);

struct PopMeasure {
  double loopStep = 0;    // largest one-frame change of a joint in the loop, wrap included
  double sourceStep = 0;  // largest one-frame change of a joint in the source window
  double ratio = 0;       // loopStep over the source's, floored as described above
  int joint = -1;         // joint of the loop's largest step
  int frame = -1;         // the step from `frame` to the next; L for the wrap from L to 0
  bool pop = false;
};
// Pops of `loop` (frames 0..L) against `source` frames start..end.
PopMeasure MeasurePops(const RelativePoses& loop, const RelativePoses& source, int start, int end);

// Distance of `joint` from its pose at the window's first frame, over the window played twice
// (2 * (L + 1) values): `before` on the source start..end, `after` on the made loop 0..L (empty
// when `loop` has fewer frames). `joint` -1 takes the seam's joint.
struct SeamCurve {
  int joint = -1;
  std::vector<double> before, after;
};
SeamCurve SeamCurves(const RelativePoses& source, int start, int end, const RelativePoses& loop,
                     int joint = -1);

}  // namespace knrconvert
