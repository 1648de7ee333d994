// Frames at the ends of a take that are no part of its motion.
//
// Studios and labs often leave a calibration pose in a take: a T-pose at the origin in the first
// frame, facing anywhere, from which the second frame jumps to where the performer stands. Kept,
// it is a one-frame pop in every skill and loop, and its jump outweighs every real step of the
// feet, so that no contact threshold can tell a planted foot from a moving one.
//
// Some converters blend from that pose into the motion over a few frames instead, faster than
// any body moves. An end frame jumps when the largest move of any joint between it and its
// neighbour exceeds kJumpFactor times the take's usual large move (the kJumpPercentile of the
// largest joint move per frame over the whole take) and kJumpFloorShare of the skeleton's reach
// (the largest distance of a joint from the top joint in that end frame), so that a still take
// with float noise keeps its frames. Such a frame is dropped and the new end judged again, for
// at most kMaxDroppedSeconds (at least one frame) at each end; a take keeps at least two frames.
#pragma once

#include <string>
#include <vector>

#include "bvh_take.h"
#include "pose_series.h"

namespace knrconvert {

inline constexpr double kJumpFactor = 4.0;
inline constexpr double kJumpPercentile = 0.9;
inline constexpr double kJumpFloorShare = 0.05;
inline constexpr double kMaxDroppedSeconds = 0.1;

// Drops the jumping end frames of `take` and of its `poses` (the same frames) and says so in
// `notes`. Returns how many frames were dropped.
int DropJumpingEndFrames(BvhTake& take, PoseSeries& poses, std::vector<std::string>& notes);

}  // namespace knrconvert
