// Copying a source actor description into a new generated model.
//
// What the copy keeps, node by node (CopyNode):
//  1. Every copied node keeps its name, its kind and its global transform. Nulls stay nulls,
//     polygon meshes keep their points and polygons (a null instead with remove-polygons, except
//     for floors and skin meshes), collision spheres stay sphere primitives with their radius,
//     floors keep their geometry, and IK chains are copied whole (root, bones, effector) as
//     chains. Lights and cameras are not copied.
//  2. Custom properties named RTK..., KinraJL and BasePoseScale are copied with every parameter,
//     value and fcurve, and so is the node's wireframe colour. Copies of enveloped meshes are
//     tagged RTKEnv: they are skins, carried as they are.
//  3. With remove-extra, the nodes UnusedNode calls unused are left out, except the COG (the
//     root's child tagged RTKCogNode, or its only child), IK chain elements (a chain is copied
//     whole) and, with envelopes, the skin meshes and their deformers. What lies below a
//     left-out node is still copied: it hangs under the nearest copied ancestor with its global
//     transform unchanged.
//  4. After FreezeScaling every node has scaling (1, 1, 1) and the same global position and
//     rotation as its source: scaling is folded into offsets, mesh points and sphere radii.
//  5. A sphere whose radius is not positive gets the nominal size, so that it still collides.
#pragma once

#include "knrexport/math/drv_math.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// Builds the generated model "Knr" + source model name (numbered by the host when taken) and
// returns its root. `generated` receives the model.
Zyra::X3DObject CopyActor(Zyra::Model& sourceModel, Zyra::X3DObject& sourceRoot,
                          Zyra::Model& generated, Zyra::ProgressBar& bar, bool envelope, bool box,
                          bool removeExtra, bool removePoly, bool cog, double halfBoxFactor);
// Copies the properties of `sourceNode` onto `generatedNode` and the branch below it under
// `generatedNode` (rules 1 to 3, 5). One bar step per source object of the branch.
void CopyNode(Zyra::Model& sourceModel, Zyra::X3DObject& sourceNode, Zyra::X3DObject& generatedNode,
              Zyra::ProgressBar& bar, bool envelope, bool removeExtra, bool removePoly,
              float nominalSize);
// Folds every node's scaling into its offsets and geometry (rule 4), after multiplying the
// root's scaling by `scale`: (1, 1, 1) keeps the actor's size.
void FreezeScaling(Zyra::Model& generated, const DrvVector& scale);
// Scales the translations of the RTKHomePose and RTKBasePose tags of the model's nodes.
void ProcessBaseScaling(Zyra::Model& generated, double sx, double sy, double sz);
// 0.025 x the largest extent of the branch's bounding box (0 for a point).
float ComputeNominalSize(Zyra::X3DObject& sourceRoot);

// False (the node is needed) when the node carries RTKSphere, RTKEffector, RTKCogNode, RTKFloor
// or KinraJL, is an IK effector, is an IK bone whose chain's effector carries RTKEffector, or
// has a child or grandchild carrying RTKEffector; true otherwise.
bool UnusedNode(Zyra::X3DObject& node);
// Which of the specially treated tags the node carries; true when any.
bool FindTags(Zyra::X3DObject& node, bool& sphere, bool& cog, bool& floor);
// The IK chain effectors of the branch, depth-first.
void FindEffectors(Zyra::X3DObject& root, Zyra::CRefArray& effectors);
// In the generated model, puts the copy of every IK effector of the source branch under the copy
// of its chain's last bone (keeping its global transform), so that it moves with the leg it ends.
void ReparentIkEffectors(Zyra::X3DObject& sourceRoot, Zyra::Model& generated);
