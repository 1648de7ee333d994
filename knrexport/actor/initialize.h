// Initializing an actor description: checking the model's structure, tagging every node with
// RTKNode, marking the leaves with RTKEnd and, on request, adding and measuring RTKActor.
#pragma once

#include "knrexport/math/drv_math.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The Initialize command's entry: finds the model, shows a progress bar ("Initializing Actor",
// maximum twice the node count) and initializes. `addActor` also adds a measured RTKActor.
bool InitializeActorTB(Zyra::X3DObject& node, bool addActor);
// Checks the actor's structure (messages for each refusal), tags the root and every node from
// the COG down, rebuilds the RTKEnd leaf marks, and with `addActor` adds RTKActor to the root.
bool InitializeActor(Zyra::X3DObject& node, bool addActor, Zyra::ProgressBar bar);
// Tags `node` and its branch pre-order; lights and cameras are skipped with their subtrees.
void ScanHierarchy(Zyra::X3DObject& node, Zyra::ProgressBar bar);
// Adds RTKNode (VisualizationOnly, CollisionOnly) when missing and colours the node as a default
// node (512).
void AddRTKNode(Zyra::X3DObject& node);
// Adds RTKActor to the root when missing; with `measure` fills Radius, Height and MeanDistance
// from the bounding box of the hierarchy and the root's position.
void AddRTKActor(Zyra::X3DObject& root, bool measure);
// Grows [min, max] (global space) by the geometry and the positions of `node` and its branch.
// Callers start min at +3.4028235e38 and max at -3.4028235e38 on each axis.
void ComputeBoundingBox(Zyra::X3DObject& node, DrvVector& min, DrvVector& max);
