// How far and how much a take's body travels, seen from above.
//
// `distance` is the length of the body's ground path (x and z) through the samples given (the
// converter takes four a second, so that the sway of a standing performer at 120 frames a
// second does not add up to a walk). `headingChange` is the net turn of the body's heading
// between the first and the last sample, in degrees, as a magnitude: the heading is the
// direction of the body's forward axis (+z) seen from above, or of its up axis (+y) when the
// forward one points nearly straight up or down (|y| > 0.98); successive samples are unwrapped,
// so a walk once round a circle turns 360 degrees.
//
// A take travels (and becomes a Locomotion skill) when `distance` exceeds two hip heights.
#pragma once

#include <vector>

#include "zyra/math.h"

namespace knrconvert {

inline constexpr double kTravelHipHeights = 2.0;

struct Travel {
  double distance = 0;
  double headingChange = 0;  // degrees
};

// The travel of the body through `samples` (global transforms in time order).
Travel MeasureTravel(const std::vector<Zyra::MATH::CTransformation>& samples);

// True when the travel is a walk rather than a performer moving about one spot.
inline bool Travels(const Travel& travel, double hipHeight) {
  return travel.distance > kTravelHipHeights * hipHeight;
}

}  // namespace knrconvert
