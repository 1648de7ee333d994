// How a take's body travels over the ground, and whether it is a Locomotion or a Basic skill.
//
// Lengths are measured in leg lengths (stance.h) and times in seconds, so every rule holds at any
// frame rate and in any length unit. "Ground" is the x-z plane (y is up).
//
// Hip height: the COG's median height over the take above the feet's floor, the 5th percentile
// of both feet's heights (a first-frame T-pose or a crouch does not decide).
//
// Distance: the length of the COG's ground path sampled four times a second (and at the last
// frame), in the take's own units; the sway of a standing performer does not add up to a walk.
//
// Heading change: how far the body's facing turned from the first to the last frame, net and
// unwrapped, as a magnitude in degrees. Facing is anatomical: the ground direction at right
// angles to the line between the hips (the thighs of the two legs, stance.h), that is
// (left hip - right hip) x up. It is unwrapped frame by frame, so fast spins count, and the
// start and the end are each the mean over 0.75 s (the first and the last), so hip sway
// within a stride and a one-frame T-pose do not count. When the hips stand less than 0.05 leg
// length apart (median), the top joint's rotation gives the facing: its +z axis seen from
// above, or its +y axis when +z points nearly straight up or down.
//
// Ground speed: at each frame, the COG's ground displacement across a window of one second
// centred on it (cut at the take's ends; half the take when the take is shorter than two
// seconds), over the window's time, in leg lengths a second.
//
// Kind: Locomotion when the ground speed stays at or above 0.5 leg length a second for one
// stretch of at least one second (or 0.6 of a take shorter than that) that covers at least two
// leg lengths (the ground speed summed over the stretch); otherwise Basic (standing with sway,
// gesturing, dancing about one spot, kicks, spins, a jump up and down). A pause shorter than
// 0.75 s does not break a stretch: forward jumps, or a walk with a hesitation, still travel.
//
// Steady stretches (Locomotion only): within such a stretch, the runs of frames whose ground
// speed is within 25% of the stretch's median speed, at least half a second long (or 0.6 of a
// shorter take). Starting, stopping and hops change the speed and fall outside.
//
// Warnings: a COG that never moves (its positions span less than 0.02 leg length while another
// joint's span more than 0.1); a Basic take whose COG travels less than one leg length while its
// feet take at least four alternating steps (stance.h): the travel may have been left on another
// joint or taken out of the take (an in-place cycle).
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "pose_series.h"
#include "stance.h"

namespace knrconvert {

inline constexpr double kTravelSamplesPerSecond = 4.0;
inline constexpr double kHipsApartLegs = 0.05;
inline constexpr double kHeadingWindowSeconds = 0.75;
inline constexpr double kSpeedWindowSeconds = 1.0;
inline constexpr double kMinGroundSpeedLegs = 0.5;  // leg lengths a second
inline constexpr double kMinStretchSeconds = 1.0;
inline constexpr double kMaxPauseSeconds = 0.75;
inline constexpr double kShortTakeShare = 0.6;
inline constexpr double kMinCoverageLegs = 2.0;
inline constexpr double kSteadyTolerance = 0.25;
inline constexpr double kMinSteadySeconds = 0.5;
inline constexpr double kStillCogLegs = 0.02;
inline constexpr double kMovingJointLegs = 0.1;
inline constexpr double kNoTravelLegs = 1.0;
inline constexpr int kSteppingSteps = 4;

// The joints the analysis needs (indices into the pose series).
struct BodyJoints {
  int cog = -1;
  int leftFoot = -1, rightFoot = -1;
};

struct Travel {
  double legLength = 0;      // take's units
  double hipHeight = 0;      // take's units
  double distance = 0;       // take's units
  double headingChange = 0;  // degrees, magnitude
  bool locomotion = false;
  std::vector<double> groundSpeed;                   // per frame, leg lengths a second
  std::vector<std::pair<int, int>> steadyStretches;  // [first, last] frames
  std::vector<Stance> stances;                       // left foot, right foot
  std::vector<std::string> warnings;
};

// The COG's ground speed per frame, as above.
std::vector<double> GroundSpeed(const PoseSeries& pose, int cog, double legLength);

// Everything above for `body` in `pose`.
Travel MeasureTravel(const PoseSeries& pose, const BodyJoints& body);

}  // namespace knrconvert
