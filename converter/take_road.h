// One take's road through the knrexport module, in a fresh scene of the in-process host:
//
//  1. import: the scene's frame rate is set to the take's when the take runs at a whole number
//     of frames per second (so every BVH frame is a scene frame; otherwise the host default
//     stays); Import BVH Actor (boxes, the given scale) and its motion as the action "Take"
//     (translation on the root joint only); the COG and the feet found (feet_finder.h) and
//     tagged (Set COG, Set Foot with its collision sphere), the actor initialized again and its
//     home set again so that the new spheres belong to it.
//  2. travel: the COG's ground path over the take, sampled four times a second, measured and
//     judged by travel.h (a take that travels more than two hip heights, the COG's height above
//     the lower foot in the first frame, is a Locomotion skill; otherwise Basic).
//  3. a Basic take first gets keys on the actor root's six channels: an actor built from a BVH
//     file keys no curve on its root null, and the Basic (and Raw) conversion refuses a source
//     whose root has no keys. The root's rest values are keyed at the take's first and last
//     frame and stored with the take's curves back into the action "Take" (same range).
//  4. generate: Generate with skills on (the current frame at the take's first, so the
//     generated actor starts in the first frame's pose).
//  5. skill: Make Skill on the generated actor's "Take" with the threshold given. The contact
//     intervals are read back from the skill's RTKEffector.Contact curves. For the plots the
//     skill is applied and, at every frame, the heel (the foot's collision sphere, else the
//     foot) is sampled for its global height and the COG for its ground position. The contact
//     detector measures heights in the frame of the actor root's parent, the generated model,
//     which stands still at the origin, so these are the heights it saw; the height limit of a
//     foot is min + threshold x (max - min) of its heel's heights.
//  6. loop: the window of loop_window.h; Make Loop on it; the seam measured on the skill and on
//     the "Take_loop" it made.
//  7. save: Save Actor to `<take>.actor.zyra` (weight file beside it), the scene to `<take>.zyra`.
//
// Every command runs as a script line through the host's script runner, so a refusal of the
// plug-in fails the road with the plug-in's own message (for a broken file: its name and line).
#pragma once

#include <filesystem>
#include <string>

#include "take_record.h"

namespace knrconvert {

struct ConvertOptions {
  double threshold = 0.2;  // foot-contact threshold of the Locomotion skill
  double scale = 1.0;      // BVH length scale
};

// The take's name: its file name without the ".bvh" extension.
std::string TakeName(const std::filesystem::path& bvh);

// Converts `bvh` into `dir` (which exists) and fills `record`. False when a step failed:
// `record.reason` then says which and why. Does not write the take file.
bool ConvertTake(const std::filesystem::path& bvh, const std::filesystem::path& dir,
                 const ConvertOptions& options, TakeRecord& record);

}  // namespace knrconvert
