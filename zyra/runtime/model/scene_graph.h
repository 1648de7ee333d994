// The scene graph: the one scene a host process has open and the frame it is at, and the 3D
// objects in it: made, named and renamed in their name space, parented, and found by path.
//
// The open scene belongs to the object model, not to the host that drives it: path lookup, unique
// names in the scene root's name space (which also holds the scene's groups) and parenting "at the
// current frame" read it from here. It is made (as NewScene makes it) the first time it is asked
// for.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/model.h"

namespace Zyra::rt {

// The objects of one open scene.
struct Scene {
  std::shared_ptr<ModelObject> root;      // "Scene_Root"
  std::shared_ptr<Container> groups;      // scene-level groups
  std::shared_ptr<Container> passes;      // "Passes" with "Default_Pass"
  std::shared_ptr<Property> playControl;  // "PlayControl": Current, In, Out
  std::shared_ptr<Property>
      preferences;  // "preferences": scripting.cmdlog, output_format.frame_rate
  std::shared_ptr<Property> exportOptions;  // "dotZyraExportOptions"
  std::vector<std::weak_ptr<Object>> selection;
  std::wstring currentPass = L"Default_Pass";
};

// The open scene.
Scene& OpenScene();
// Discards the open scene and makes a new empty one (Scene_Root, default pass, play control,
// preferences, export options).
void NewScene();
// The play control's current frame: the frame used when a call says "at the current time".
double CurrentFrame();
// "preferences.output_format.frame_rate" (30 when it is missing).
double FrameRate();

// A new 3D object of `id` and `type` ("null", "polymsh", "sphere", "camera", ...) under
// `parent`, named `name` or the smallest free variant of it in the parent's name space.
std::shared_ptr<X3D> CreateX3D(const std::shared_ptr<X3D>& parent, siClassID id, std::wstring type,
                               std::wstring name);
std::shared_ptr<ModelObject> CreateModel(const std::shared_ptr<X3D>& parent, std::wstring name);

// Moves `child` under `parent`, keeping its global transform and making its name unique in the
// new name space. Fails when `parent` lies below `child`.
CStatus Reparent(const std::shared_ptr<X3D>& child, const std::shared_ptr<X3D>& parent,
                 bool keepGlobal = true);
// Renames within the name space (a taken name gets the smallest free number appended).
void Rename(const std::shared_ptr<Object>& object, std::wstring name);
// `wanted` if free in `space`, else wanted + the smallest free number ("Hips" -> "Hips1").
std::wstring UniqueName(const ModelObject& space, const std::wstring& wanted, const Object* ignore);

// Finds an object by full name or path ("Model.Hips", "Hips.kine.local.posx", "Hips.posx",
// "preferences.scripting.cmdlog", "PlayControl.Current"); null when nothing answers.
std::shared_ptr<Object> Resolve(std::wstring_view path);

}  // namespace Zyra::rt
