// The role tags of an actor's nodes (COG, feet, collision spheres, floors, visual/collision
// roles) with their wireframe colours, and the extractors that find them again.
#pragma once

#include "zyra/x3dobject.h"

inline constexpr int kColourCollisionOnly = 249;
inline constexpr int kColourVisualOnly = 820;
inline constexpr int kColourFoot = 302;
inline constexpr int kColourSphere = 495;

bool SetCOG(Zyra::X3DObject& node);
bool RemoveCOG(Zyra::X3DObject& node);
bool SetFoot(Zyra::X3DObject& node, bool addSphere);
bool RemoveFoot(Zyra::X3DObject& node);
// The new sphere "<node>_CS" under the node; an invalid object when refused.
Zyra::X3DObject AddColSphere(Zyra::X3DObject& node, bool inspect);
Zyra::X3DObject AddFootColSphere(Zyra::X3DObject& node);
float ComputeSphereRadius(Zyra::X3DObject& node);
bool AddFloor(Zyra::X3DObject& node);
bool RemoveFloor(Zyra::X3DObject& node);
bool SetCollisionOnly(Zyra::X3DObject& node);
bool SetVisualOnly(Zyra::X3DObject& node);
bool SetDefault(Zyra::X3DObject& node);

// The nodes below (and including) `root` that carry RTKEffector, depth-first.
void ExtractFeet(Zyra::X3DObject& root, Zyra::CRefArray& feet);
// The RTKSphere objects below `node`; `recurse` false looks at the direct children only.
void ExtractColSpheres(Zyra::X3DObject& node, Zyra::CRefArray& spheres, bool recurse);
// For each foot, its heel sphere (or the foot itself when it has none), in the feet's order.
void ExtractHeels(Zyra::CRefArray& feet, Zyra::CRefArray& heels);
Zyra::X3DObject FindHeel(Zyra::X3DObject& foot);
Zyra::X3DObject FindToe(Zyra::X3DObject& foot);
// Lowers `bottom` to the lowest point of the spheres (global y minus radius) at frame `frame`.
void CheckBottom(Zyra::CRefArray& spheres, float& bottom, int frame);
