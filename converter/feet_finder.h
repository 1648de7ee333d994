// Finding the centre of gravity and the two feet of a skeleton imported from a take, whatever
// the studio called its joints.
//
// By name first. A joint name is cut into lower-case words at every character that is not a
// letter or digit and at every lower-to-upper case change ("mixamorig:LeftFoot" -> mixamorig,
// left, foot; "l_foot" -> l, foot; "LFoot" -> l, foot; "Foot.R" -> foot, r). Then:
//
//   | role  | words that must be there            | words that rule the joint out        |
//   |-------|-------------------------------------|--------------------------------------|
//   | left  | left, l or lt; and foot or ankle    | toe, toes, toebase, end, site, nub,  |
//   | right | right, r or rt; and foot or ankle   | ball, heel, tip                      |
//   | cog   | hips, hip, pelvis, root or cog,     | left, l, lt, right, r, rt            |
//   |       | and no side word                    |                                      |
//
// A lone letter counts as a side only as a word of its own ("l_foot" and "FootL" match; "lfoot"
// is one word and does not). When several joints match one foot (an ankle above a foot joint), the
// one nearest the root wins: the ankle is where the leg meets the ground.
//
// By shape, for each foot that the names did not give: the ends of the skeleton (joints without
// children) under the COG, in the first frame's pose, lowest first; the two lowest ends on
// different branches of the COG are the legs. Walking up from such an end, the foot is the
// lowest joint whose bone from its parent drops by at least half the largest drop of that leg
// (a toe bone runs forward and drops little; a shin drops a lot). Left is the leg on the +x side
// of the COG in the COG's own frame (takes face +z with their left on +x).
//
// The COG must be the joint right under the actor root (the host's COG tag accepts nothing
// else), so the skeleton's top joint is the COG: "name" when its name matches the table, else
// "shape".
#pragma once

#include <string>
#include <vector>

namespace knrconvert {

struct SkeletonJoint {
  std::string name;
  int parent = -1;               // index of the parent joint, -1 for the top joint
  double x = 0, y = 0, z = 0;    // global position in the first frame
  double localX[3] = {1, 0, 0};  // the joint's own x axis in global space (used for the COG)
};

struct FoundJoint {
  int index = -1;
  std::string how;  // "name" or "shape"; empty when not found
};

struct FoundFeet {
  FoundJoint cog;
  FoundJoint left, right;
  std::string error;  // why the feet could not be found; empty on success
};

// Lower-case words of a joint name, as described above.
std::vector<std::string> NameWords(const std::string& name);

// Finds the COG and the feet of `joints` (parents before children). On failure `error` says
// what is missing and the indices stay -1.
FoundFeet FindFeet(const std::vector<SkeletonJoint>& joints);

}  // namespace knrconvert
