// Making an action source loopable: the last frames of a cycle are blended towards its start so
// that the end joins the start without a jump, and the result is stored as a new action source
// named after the old one with "_loop" appended, running from frame 0 to the cycle's length.
//
// How a cycle start .. end becomes a loop:
//  1. Blend length: min(end - start, smooth) for a plain loop; for a locomotion loop
//     min((end - start) / 2, smooth, start - FrameStart of the source), refused when that is not
//     positive (the blend needs as many frames before the start).
//  2. Frame k = frame - start of the cycle keeps the source's own values unless it lies in the
//     blend span (frame > end - blend and k >= 1). There, with i = frame - (end - blend) and
//     weight t = i / blend, the target is the start frame (a plain loop) or the frame
//     start - blend + i (a locomotion loop: the motion leading into the start). Rotations are
//     slerped towards the target and kept continuous with the previous frame; translations and
//     scalings are blended linearly. At the end frame t is 1: the loop's last frame repeats the
//     pose of its first.
//  3. Locomotion keeps travelling: the ground-plane translations (local x and z) are not pulled
//     towards the target's position. Each frame's step (its translation minus the previous
//     frame's) is blended between the current step and the target's step and added to the value
//     stored for the previous frame, so the body never slides back and covers the distance of
//     the cycle. Height (local y) is blended like a plain loop, so the body lands where the
//     cycle began.
//  4. Only the channels a node animates are written: one key per frame at 0 .. end - start with
//     linear interpolation, so the loop plays its blended values exactly at every frame and
//     nothing overshoots between them. Every fcurve of the actor is removed first; the new
//     source takes the written channels with it, so the actor is left without fcurves.
//  5. After storing, one information line in the log names the new source and the largest jump
//     of a node's position between the cycle's last and first frame, before blending (the source
//     at end and start) and after (the loop at its length and 0). Positions are measured in the
//     root node's frame; for a locomotion loop the body's ground travel (the x and z of the
//     root's first child) is taken out, since travelling is not a jump.
#pragma once

#include "knrexport/skill/loop_data.h"
#include "zyra/action.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The blend length of rule 1; 0 or less refuses a locomotion loop.
int LoopBlendLength(int start, int end, int smooth, bool loco, int sourceFrameStart);

// Makes and stores the loop of `source` (which must be applied to the actor) over start .. end.
// Refusals are told in a message box and store nothing; true when the loop action was stored.
// The actor's pose and fcurves are not put back: the caller does that.
bool MakeLoop(Zyra::ActionSource& source, Zyra::Model& model, Zyra::X3DObject& root, int start,
              int end, int smooth, bool loco);

// One frame of one node and then of its children: samples and blends into data[counter],
// advancing `counter` once per node in depth-first pre-order.
void ProcessLoop(Zyra::X3DObject& node, int& counter, int frame, int blend, int start, int end,
                 LoopData* data, bool loco);

// Keys every node's modified channels (frames 0 .. end - start) in the order of ProcessLoop and
// appends their full names, comma-separated, to `parameters`.
void ApplyModifiedData(Zyra::X3DObject& node, int& counter, int start, int end, LoopData* data,
                       Zyra::CString& parameters, Zyra::ProgressBar& bar);

// The largest distance between the positions of the nodes below `root` at frames `first` and
// `last`, measured as rule 5 says.
double MeasureLoopSeam(Zyra::X3DObject& root, double first, double last, bool loco);
