// One take's road through the knrexport module, in a fresh scene of the in-process host:
//
//  1. condition: the take is read by the converter itself (bvh_take.h) and conditioned for the
//     plug-in's BVH reader (take_conditioning.h: rotation orders, a carrier top joint folded into
//     the body, root position read right, Y up, joint translations). A take that needs nothing is
//     imported as it is; otherwise the conditioned take is written to a temporary file (or, with
//     --keep-conditioned, to `<take>.conditioned.bvh` beside the outputs) and that is what the
//     import reads. The poses of every joint at every frame (pose_series.h) are computed from the
//     conditioned take for the analysis. A take the converter cannot read fails with the
//     reader's own message (its file and line, bvh_take.h), said once; the import never sees
//     it. A take of one frame is refused: it holds no motion to make a skill of.
//  2. import: the scene's frame rate is set to the take's when the take runs at a whole number
//     of frames per second (so every BVH frame is a scene frame; otherwise the host default
//     stays; a take frame never spans more than kMaxSceneFramesPerTakeFrame scene frames, so
//     that what the later steps sample grows with the take's own frames); Import BVH Actor (boxes,
//     the given scale) and its motion as the action "Take" (translation on the root joint only);
//     the COG and the feet found (feet_finder.h) and tagged (Set COG, Set Foot with its collision
//     sphere, which sits on the foot joint), the actor initialized again and its home set again so
//     that the new spheres belong to it.
//  3. analysis on the poses (travel.h, stance.h): leg length, hip height, distance, heading
//     change, Locomotion or Basic, the steady stretches of travel, a stance estimate per foot and,
//     for Locomotion, the contact threshold whose contacts agree best with it (--threshold fixes
//     it instead).
//  4. a Basic take first gets keys on the actor root's six channels: an actor built from a BVH
//     file keys no curve on its root null, and the Basic (and Raw) conversion refuses a source
//     whose root has no keys. The root's rest values are keyed at the take's first and last
//     frame and stored with the take's curves back into the action "Take" (same range).
//  5. generate: Generate with skills on, the take's whole skeleton kept (Optimize off unless
//     --optimize), the current frame at the take's first (so the generated actor starts in the
//     first frame's pose).
//  6. skill: Make Skill on the generated actor's "Take" with the chosen threshold. The keyed
//     contact intervals are read back from the skill's RTKEffector.Contact curves and compared
//     with the stance estimate (the agreement per foot goes into the take file). A Basic take's
//     file lists the estimate's planted intervals. The plots (heel heights, the COG's ground
//     path) come from the poses: the detector sees the same heights (the foot's sphere sits on
//     the foot joint and the generated model stands at the origin).
//  7. loop: the windows of loop_window.h, best first; Make Loop on a window, then the made loop
//     and its source window are sampled as the actor plays them and measured for pops
//     (MeasurePops); a loop that pops is deleted and the next window tried, and when the last
//     one pops too the take gets a warning and keeps it.
//  8. save: Save Actor to `<take>.actor.zyra` (weight file beside it), the scene to `<take>.zyra`,
//     both in the folder the road was given (the caller's staging folder, take_outputs.h).
//
// The road's notes on its choices (COG, feet, conditioning, loop windows) go to
// ConvertOptions::note, a line each, prefixed with the take's name.
// Every command runs as a script line through the host's script runner, so a refusal of the
// plug-in fails the road with the plug-in's own message (for a broken file: its name and line).
// Messages that name the temporary conditioned file name the take's own file instead.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "take_record.h"

namespace knrconvert {

struct ConvertOptions {
  std::optional<double> threshold;  // a fixed foot-contact threshold; unset: chosen per take
  double scale = 1.0;               // BVH length scale
  bool optimize = false;            // Generate prunes the skeleton (its "Optimize" option)
  bool keepConditioned = false;     // the conditioned take stays beside the outputs
  std::function<void(const std::string&)> note;  // gets the road's notes; unset: none
  // Where the saved files end up when the road writes them into a staging folder: the folder
  // the saved scene remembers for actor files. Empty: the folder the road was given.
  std::filesystem::path outputFolder;
};

// Scene frames a take frame may span (a take at 1 frame a second in a scene at 30 frames a second
// spans 30); beyond, the take is refused rather than sampled at every scene frame.
constexpr double kMaxSceneFramesPerTakeFrame = 100;

// The take's name: its file name without the ".bvh" extension.
std::string TakeName(const std::filesystem::path& bvh);
// The take's source path as its take file records it: absolute, without "." and "..".
std::string TakeSource(const std::filesystem::path& bvh);

// Converts `bvh` into `dir` (which exists) and fills `record`. False when a step failed:
// `record.reason` then says which and why. Does not write the take file.
bool ConvertTake(const std::filesystem::path& bvh, const std::filesystem::path& dir,
                 const ConvertOptions& options, TakeRecord& record);

}  // namespace knrconvert
