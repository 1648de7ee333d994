// Conditioning a take for the plug-in's BVH reader, which composes every joint's rotation as
// Rz(z) Rx(x) Ry(y) whatever order the file lists, keys translation on the top joint only (other
// joints' position channels give the rest pose from the first frame) and lets position channels
// replace the OFFSET. The take is rewritten in place so that every joint's global pose at every
// frame stays what the file meant (each joint's channels in their listed order), read that way.
// The steps, in order:
//
// 1. Root position. The top joint's position channels (and, while folding, those of each joint
//    that becomes the top) either replace a non-zero OFFSET or are added to it. In each of the
//    first kDecisionFrames frames the lowest point of the body (joints and end sites) is measured
//    along the OFFSET's direction (its components that have channels, turned by the parents) as
//    the file replaces it; added, the body sits the OFFSET's length higher. The reading whose
//    mean lowest point lies nearer the floor at 0 wins, i.e. the channels add when the body's
//    lowest point would lie more than half the OFFSET's length below the floor. Added values are
//    written as absolute positions.
// 2. Folding. While the top joint has exactly one child joint and that child has two or more
//    (a hub such as the hips under a carrier), the top's transform is composed into the child at
//    every frame and the top joint, with its End Site, disappears. A chain (no branching) is left
//    alone so that a take of one limb keeps its joints.
// 3. Up axis. In the first frame the direction from the top joint to the first joint whose name
//    contains "head" (else "neck"; any case) gives the up axis when one axis holds at least
//    kUpAxisShare of it; no such joint or no such axis keeps Y. A take that is not Y up is turned
//    by a constant rotation composed into the top joint: Z up by -90 degrees about X, -Z by +90
//    about X, X by +90 about Z, -X by -90 about Z, -Y by 180 about Z.
// 4. Position channels of the other joints are dropped: the first frame's values become the
//    OFFSET. When they move more than kSteadyTranslation of the skeleton's size (its longest
//    chain of OFFSETs and end sites from the top joint) over the take, a warning names the joint
//    and how far it moved.
// 5. Rotations. A joint's rotation channels read right when they are one channel or the order's
//    own head "Z X" or "Z X Y": a reader that fills Z, X, Y in turn and one that goes by name
//    then agree. Any other list ("Z Y X", "Z Y", ...) is re-expressed per frame as the Z X Y
//    Euler angles of the same rotation and written "Zrotation Xrotation Yrotation"; so is the top
//    joint whenever steps 1 to 3 rebuilt its transform, with channels "Xposition Yposition
//    Zposition Zrotation Xrotation Yrotation" and its OFFSET set to its first frame's position.
//    Re-expressed angles run smoothly: each frame takes, of the two Euler triples of its
//    rotation, each angle shifted by whole turns to lie nearest the previous frame's, the one
//    nearer the previous frame.
// 6. Units, reported only (lengths stay the take's own): the summed OFFSETs of the two non-zero
//    bones above the first joint named like a foot or ankle (not a toe), thigh to ankle, compared
//    with kHumanLeg; without such a joint, the OFFSETs from the top joint to the lowest joint of
//    the first frame, compared with kHumanHipHeight. The nearest of metres, centimetres,
//    millimetres and inches within a factor kUnitTolerance names the unit; otherwise "unknown
//    units" with the estimated metres per unit.
//
// A take that needs none of steps 1 to 5 is left as it is (`changed` false).
#pragma once

#include <string>
#include <vector>

#include "bvh_take.h"

namespace knrconvert {

inline constexpr int kDecisionFrames = 5;
inline constexpr double kUpAxisShare = 0.75;
inline constexpr double kSteadyTranslation = 0.01;
inline constexpr double kHumanLeg = 0.85;        // metres, thigh to ankle
inline constexpr double kHumanHipHeight = 0.95;  // metres, hips to the ground
inline constexpr double kUnitTolerance = 1.4;

struct ConditionReport {
  bool changed = false;
  std::vector<std::string> notes;     // what was done, one line each
  std::vector<std::string> warnings;  // what a person should look at
  std::string units;                  // "metres", "centimetres", ... or "unknown units"
  double metresPerUnit = 0;
};

// Rewrites `take` in place for the plug-in's reader (steps above) and reports what it did. With
// `poses`, also sets *poses to ComputePoses of the result, composed while the frames are rebuilt
// from the rotations the new angles are taken from (equal within float rounding).
ConditionReport ConditionTake(BvhTake& take, PoseSeries* poses = nullptr);

}  // namespace knrconvert
