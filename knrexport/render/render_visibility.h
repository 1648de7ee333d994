// Render visibility: switching objects out of rendering and back without losing their own
// visibility settings.
//
// An object is either in its normal state (no "RenderViz" property) or hidden: hiding saves the
// object's render ("rendvis") and view ("viewvis") visibility in a "RenderViz" custom property on
// the object, with the booleans "render" and "view", and switches both off; showing puts the
// saved values back and deletes "RenderViz". Rules:
//  1. The active scene root is never touched.
//  2. Showing an object that carries no "RenderViz" changes nothing.
//  3. Hiding a hidden object saves its current (switched off) values over the saved ones: the
//     caller hides each object at most once before showing it again.
//  4. An object without a visibility property still gets its "RenderViz" saved and removed.
#pragma once

#include "zyra/core.h"
#include "zyra/x3dobject.h"

// The name of the saved-visibility property.
inline constexpr const wchar_t* kRenderVizProperty = L"RenderViz";

// Hides (`hide` true) or shows one object.
void HideNode(Zyra::X3DObject& object, bool hide);
// HideNode on the object and then, depth first in child order, on every 3D object below it.
void HideActor(Zyra::X3DObject& object, bool hide);
// The same walk for the environment: it enters neither a model listed in `targets` nor a light,
// so those and everything below them are left alone.
void HideEnv(Zyra::X3DObject& object, const Zyra::CRefArray& targets, bool hide);
