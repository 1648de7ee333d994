// Basic and Raw skills, made in place on a generated actor from one of its action sources.
//
// A Basic skill moves the body's ground position and its change of heading since the first
// frame onto the root; the COG is re-expressed under that root. After it, at every frame of the
// skill: the root stands at height 0 with yaw 0 at the first frame, and root x COG is the body
// (root x COG) that the source played. A Raw skill keeps the motion as it is and only stores it
// in skill form. Both work over the whole frames of the source that the root's keys cover; a
// source of a single frame is stored over two.
//
// Checks on the curves: only that the root has keys. Channels without keys are sampled at their
// static values, which is what the user sees when the source plays.
#pragma once

#include "zyra/action.h"
#include "zyra/x3dobject.h"

// Converts `source` of `model` into a Basic skill ("type" 1); with `useProgress` a progress bar
// "Making Basic Skill" shows the frames. False, with the animation cleared, the actor at home
// and a message, when the root has no keys; false without a message of its own when the actor
// has no root or COG. `source` then refers to the stored skill.
bool FactorBasic(Zyra::Model& model, Zyra::ActionSource& source, bool useProgress);
// Stores `source` of `model` as a Raw skill ("type" 3); fails as FactorBasic does.
bool ProcessRaw(Zyra::Model& model, Zyra::ActionSource& source);
// The frames a Basic or Raw skill covers: start = integer part of `first`, end (exclusive) =
// integer part of (`last` + 1.5), widened to start + 2 when it would be start + 1.
void SkillFrames(double first, double last, int& start, int& end);
