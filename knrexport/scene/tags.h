// The tag vocabulary: custom properties whose names begin with RTK mark the nodes of an actor
// for the runtime. The presence of a tag is the mark; its parameters carry the data.
#pragma once

#include "zyra/object.h"
#include "zyra/x3dobject.h"

inline constexpr const wchar_t* kTagActor = L"RTKActor";
inline constexpr const wchar_t* kTagNode = L"RTKNode";
inline constexpr const wchar_t* kTagCogNode = L"RTKCogNode";
inline constexpr const wchar_t* kTagEffector = L"RTKEffector";
inline constexpr const wchar_t* kTagSphere = L"RTKSphere";
inline constexpr const wchar_t* kTagFloor = L"RTKFloor";
inline constexpr const wchar_t* kTagHomePose = L"RTKHomePose";
inline constexpr const wchar_t* kTagBasePose = L"RTKBasePose";
inline constexpr const wchar_t* kTagFixHomeBase = L"RTKFixHomeBase";
inline constexpr const wchar_t* kTagEnd = L"RTKEnd";
inline constexpr const wchar_t* kTagHasHome = L"RTKHasHome";
inline constexpr const wchar_t* kTagEnv = L"RTKEnv";
inline constexpr const wchar_t* kTagJointLimit = L"KinraJL";

// Adds the tag `tag` to `obj` as a "Custom_parameter_list" property with the tag's parameters:
//   RTKActor     Radius, Height (float, default 1), MeanDistance (float, default 0)
//   RTKNode      VisualizationOnly, CollisionOnly (bool)
//   RTKEffector  Contact (int 0..1, animatable), Anchor (bool)
//   RTKSphere    Radius (float, default `initial`)
//   RTKFloor     Top (float, default `initial`)
//   RTKHomePose  px py pz rx ry rz sx sy sz (float, default 0)
// Any other tag gets no parameters. Returns the new property.
Zyra::CustomProperty AddTag(Zyra::X3DObject& obj, const wchar_t* tag, float initial = 0.0f);
