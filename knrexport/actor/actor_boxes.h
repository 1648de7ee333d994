// Boxes that stand in for the geometry of a generated actor's nodes.
//
// Rules:
//  1. A node's link runs from it to the mean global position of its 3D-object children; L is its
//     length.
//  2. A node gets a box oriented along its link when L > nominal link length x 1e-5, it is not
//     the actor's root (its parent is no model) and, unless the cog option is on, it is not the
//     COG node (the COG's children usually spread in several directions, so their mean says
//     little). Otherwise it gets a box centred on its origin, 2w on each side.
//  3. Half-width w = nominal link length x half box factor; an oriented box whose 2w would exceed
//     L gets w = half box factor x 0.1 x nominal link length instead.
//  4. Only the actor's own nodes (tagged RTKNode) are replaced. Collision spheres, floors, skin
//     meshes (tagged RTKEnv by the copy, or enveloped) and IK chain elements are carried as they
//     are, and the root stays a null (a mesh at the top would read as a rig without a root).
//  5. The nominal link length is the mean length of the links that rule 2 orients (with
//     L > 0); 1 when there is none, so that a lone node still gets a visible box.
#pragma once

#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The wireframe colour of generated boxes.
inline constexpr int kColourBox = 123;

// The nominal link length of the generated branch of `root` (rule 5).
void ComputeNominalLinkLength(Zyra::X3DObject& root, float& length, bool cog);
// Replaces `node` and every node of its branch (rule 4 aside) by a box polygon mesh of the same
// name, local transform, tags and children. One bar step per node of the branch.
void ReplaceNodeWithBox(Zyra::X3DObject& node, float nominalLinkLength, bool cog,
                        double halfBoxFactor, Zyra::ProgressBar& bar);
// Whether rule 4 keeps the node as it is.
bool KeepsOwnGeometry(Zyra::X3DObject& node);
