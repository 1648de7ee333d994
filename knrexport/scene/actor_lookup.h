// Finding an actor in the scene: its model, root node and COG node, and its tag properties.
//
// The actor structure these lookups enforce:
//  1. The actor's model is the nearest ancestor (or the object itself) that is a model; the
//     scene root is not an actor's model.
//  2. The model has exactly one child that is not a light or camera: the root node.
//  3. The root node has exactly one such child, or one child tagged RTKCogNode: the COG node,
//     which is therefore two levels below the model.
//  4. Lights and cameras are ignored in these counts.
//  5. No model is nested inside the actor's model (callers that care use CheckForEmbeddedModel).
#pragma once

#include "zyra/object.h"
#include "zyra/x3dobject.h"

// The nearest model holding `obj` (or `obj` itself); false when there is none.
bool GetModel(Zyra::X3DObject& obj, Zyra::Model& model);
// GetModel that says "Failed to find the actor model." when there is none.
bool GetModelOrSay(Zyra::X3DObject& obj, Zyra::Model& model);
// GetModel for the commands: refuses a missing model and the scene root with their messages.
bool GetActorModel(Zyra::X3DObject& obj, Zyra::Model& model);
// The whole actor structure for a command: the model (GetActorModel), its root node, no embedded
// model, and the COG node; each refusal shows its message.
bool GetActorStructure(Zyra::X3DObject& obj, Zyra::Model& model, Zyra::X3DObject& root, Zyra::X3DObject& cog);
// The model's single non-light, non-camera child. A polygon-mesh root with triangles is first
// put under a new null "GlobalSRT", which becomes the root. With several or no candidates it
// fails, with a message box naming them when `showMessage`.
bool GetRootNode(Zyra::Model& model, Zyra::X3DObject& root, bool showMessage);
// The root's child tagged RTKCogNode, else its single non-light, non-camera child; otherwise a
// message box says what is wrong and it fails.
bool GetCogNode(Zyra::X3DObject& root, Zyra::X3DObject& cog);
bool IsLightOrCamera(Zyra::X3DObject& obj);
// True when a model lies anywhere below `obj`.
bool CheckForEmbeddedModel(Zyra::X3DObject& obj);
// The number of 3D objects below `obj` (the host's recursive child search).
int GetNumChildren(Zyra::X3DObject& obj);
// The first property named exactly `name`; false when there is none.
bool FindProperty(Zyra::X3DObject& obj, const Zyra::CString& name, Zyra::Property& out);
bool FindCustomPSet(Zyra::X3DObject& obj, const Zyra::CString& name, Zyra::Property& out);
// The options property `name` of `owner` (a property type the plug-in registers), added with its
// defaults when missing; `added` (when given) says whether it was. Without the registered type
// (the plug-in's library linked into a test) it is a plain custom property given the same
// parameters by `define`. Invalid when it could not be added.
Zyra::CustomProperty FindOrAddOptions(Zyra::X3DObject& owner, const wchar_t* name,
                                      void (*define)(Zyra::CustomProperty&),
                                      bool* added = nullptr);
// Appends, in depth-first pre-order, every object from `start` down that carries a custom
// property named `tag`.
void FindRTKNodes(Zyra::X3DObject& start, const Zyra::CString& tag, Zyra::CRefArray& out);
// Whether `obj` has a property named `name`.
bool HasTag(const Zyra::X3DObject& obj, const Zyra::CString& name);
