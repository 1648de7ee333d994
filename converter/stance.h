// When a take's feet stand on the ground, and which foot-contact threshold makes the plug-in key
// the same.
//
// Leg: from the foot joint up its chain, the knee is the first joint that stands apart from the
// foot and the hip the first that stands apart from the knee (apart: farther than a hundredth of
// the foot's distance to the top joint in the first frame, so zero-length helper joints are
// skipped). Leg length: the median over the take of foot-to-knee plus knee-to-hip. Every rule
// below is in leg lengths and seconds, so it holds at any frame rate and in any length unit.
//
// Stance estimate (the converter's own, apart from the plug-in's rule): a foot is planted at a
// frame when
//   - it is low: less than 0.1 leg length above its own floor, the 5th percentile of its heights
//     over the take (a few frames of a foot sunk through the floor do not set the floor), and
//   - it is nearly still: its 3D speed, the central difference over a thirtieth of a second each
//     side (at least one frame), is below one leg length a second. The foot joint is the ankle,
//     which keeps moving while the foot rolls from heel to toe on the ground (a runner's ankle
//     at about 0.7 leg length a second); a swinging foot moves at two leg lengths a second and
//     more.
// Then runs shorter than 0.12 s (and one-frame runs at any rate) are flickers: gaps in a plant
// are filled first, then short plants dropped. A one-frame glitch of a marker makes a gap of
// three frames (the speed spans it); a real swing or a running foot's contact lasts longer.
//
// The plug-in's detector sees, per foot, the foot joint's height (y) and its forward position (z)
// at every frame (contact_detector.h); it uses one threshold for both its speed and its height
// limit. The threshold is chosen from 0.05 to 0.6 in steps of 0.025: the one whose predicted
// contacts agree with the stance estimate on the largest share of frames, both feet counted;
// among equal shares, the one nearest 0.2 (the plug-in's usual value).
//
// Frames are the take's own, 0 .. frames - 1; intervals are [first, last] planted frames.
#pragma once

#include <string>
#include <vector>

#include "loop_window.h"
#include "pose_series.h"

namespace knrconvert {

inline constexpr double kApartShare = 0.01;
inline constexpr double kFloorPercentile = 0.05;
inline constexpr double kPlantedHeightLegs = 0.1;
inline constexpr double kPlantedSpeedLegs = 1.0;  // leg lengths a second
inline constexpr double kSpeedHalfSpanSeconds = 1.0 / 30;
inline constexpr double kFlickerSeconds = 0.12;
inline constexpr double kThresholdMin = 0.05;
inline constexpr double kThresholdMax = 0.6;
inline constexpr double kThresholdStep = 0.025;
inline constexpr double kUsualThreshold = 0.2;

// Planted or not, per frame.
using Stance = std::vector<bool>;

// The joints of one leg (-1 where the chain is too short).
struct LegJoints {
  int foot = -1, knee = -1, hip = -1;
};

// The leg above `foot`, as described above.
LegJoints FindLeg(const PoseSeries& pose, int foot);

// Foot-to-knee plus knee-to-hip, the median over the take; 0 without a whole leg.
double LegLength(const PoseSeries& pose, const LegJoints& leg);

// The value below which a `share` (0..1) of `values` lie (nearest rank); 0 when empty.
double Percentile(std::vector<double> values, double share);

// The stance estimate of `foot` (rules above).
Stance EstimateStance(const PoseSeries& pose, int foot, double legLength);

// What the plug-in's detector keys for `foot` at `threshold`, as planted intervals.
std::vector<Interval> PredictContacts(const PoseSeries& pose, int foot, double threshold);

// The share of frames (0..1) where `intervals` and `stance` say the same.
double ContactAgreement(const std::vector<Interval>& intervals, const Stance& stance);

// The planted runs of `stance` as [first, last] intervals.
std::vector<Interval> PlantedIntervals(const Stance& stance);

// The frames of the contacts in `intervals` that last a single frame (a foot keyed planted for
// one frame is a flicker a person should look at).
std::vector<int> OneFrameContacts(const std::vector<Interval>& intervals);

struct FootContacts {
  std::vector<Interval> intervals;  // what the plug-in will key at the chosen threshold
  double agreement = 0;             // with the stance estimate
};

struct ContactChoice {
  double threshold = kUsualThreshold;
  double agreement = 0;            // both feet
  std::vector<FootContacts> feet;  // in the order of the feet given
  std::vector<std::string> warnings;
};

// The threshold for `feet` (joint indices) against their `stances` (same order), as above.
// Warns of a one-frame contact in the chosen keys.
ContactChoice ChooseContactThreshold(const PoseSeries& pose, const std::vector<int>& feet,
                                     const std::vector<Stance>& stances);

// Steps of two feet: plants of one foot while the other has stood for at least 0.2 s, counted
// when they alternate (a foot after the other). Both feet landing from a jump are no step.
inline constexpr double kStepSupportSeconds = 0.2;
int AlternatingSteps(const Stance& left, const Stance& right, double frameTime);

}  // namespace knrconvert
