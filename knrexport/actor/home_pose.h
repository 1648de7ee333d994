// The home pose: the reference pose recorded on every node in RTKHomePose, and going back to it.
#pragma once

#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// Wireframe colour of a default node, also the home-pose scans' colour reference.
inline constexpr int kColourDefaultNode = 512;

// The Set Home command's entry: progress bar "Storing Home Pose" (three times the node count).
bool SetHomeTB(Zyra::X3DObject& node, bool fixBase);
// Records the home pose of the whole actor; with `fixBase` marks the root RTKFixHomeBase (and
// removes the mark without it); with `initialize` initializes the actor first.
bool SetHome(Zyra::X3DObject& node, bool fixBase, Zyra::ProgressBar bar, bool initialize);
// Writes the global transform of `node` (and with `recurse` its branch) into RTKHomePose;
// collision spheres are skipped but their children are recorded.
void AddHomePose(Zyra::X3DObject& node, bool recurse, Zyra::ProgressBar bar);
// The Goto Home command's entry: progress bar "Applying Home Pose".
bool GotoHomeTB(Zyra::X3DObject& node);
// Puts the actor into its home pose: one pass for a generated actor, four for a source actor
// (after asking to remove the rig's fcurves when it is animated). False when no home pose was
// set or the user cancelled.
bool GotoHome(Zyra::X3DObject& node, Zyra::ProgressBar bar);
// One pass over `node` and its branch; `pass` false skips chain bones, true chain effectors.
bool GotoHomePose(Zyra::X3DObject& node, bool pass, Zyra::ProgressBar bar);
// Puts the actor's hierarchy into the pose recorded in its RTKBasePose tags.
bool GotoBase(Zyra::X3DObject& node);
bool GotoBasePose(Zyra::X3DObject& root);
// Removes the fcurves of the actor's model ("RemoveAllAnimation" on its branch).
bool RemoveFCurves(Zyra::X3DObject& node);
// With the base fixed, keeps the root on the ground under the COG: the root's translation is
// moved to the COG's ground position and the COG keeps its global transform.
void AdjustBaseNodes(Zyra::Model& model, Zyra::X3DObject& root, Zyra::X3DObject& cog);
