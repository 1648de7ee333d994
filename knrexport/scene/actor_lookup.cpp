// Finding an actor's model, root node and COG node, and its tag properties.
#include "knrexport/scene/actor_lookup.h"

#include "knrexport/scene/host_calls.h"
#include "zyra/application.h"

using namespace Zyra;

bool GetModel(X3DObject& obj, Model& model) {
  X3DObject current = obj;
  while (current.IsValid()) {
    if (current.GetClassID() == siModelID) {
      model = Model(current.GetRef());
      return true;
    }
    current = X3DObject(current.GetParent());
  }
  return false;
}

bool GetModelOrSay(X3DObject& obj, Model& model) {
  if (GetModel(obj, model)) return true;
  ShowMessage(L"Failed to find the actor model.");
  return false;
}

bool GetActorModel(X3DObject& obj, Model& model) {
  if (!GetModelOrSay(obj, model)) return false;
  if (model.GetRef() == Application().GetActiveSceneRoot().GetRef()) {
    ShowMessage(L"Actor descriptions must be contained by a single model (scene root not supported).");
    return false;
  }
  return true;
}

bool GetActorStructure(X3DObject& obj, Model& model, X3DObject& root, X3DObject& cog) {
  if (!GetActorModel(obj, model) || !GetRootNode(model, root, true)) return false;
  if (CheckForEmbeddedModel(root)) {
    ShowMessage(L"Actor descriptions must be contained by a single model (embedded models not supported).");
    return false;
  }
  return GetCogNode(root, cog);
}

bool IsLightOrCamera(X3DObject& obj) {
  for (siClassID id : {siLightID, siLightInterestID, siCameraID, siCameraInterestID}) {
    if (obj.GetClassID() == id) return true;
  }
  return false;
}

namespace {

// The children of `parent` that count as nodes: 3D objects that are not lights or cameras.
CRefArray CountedChildren(const X3DObject& parent) {
  CRefArray counted;
  for (const CRef& ref : parent.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && !IsLightOrCamera(child)) counted.Add(ref);
  }
  return counted;
}

CString NodeList(const CRefArray& nodes) {
  CString list;
  for (const CRef& ref : nodes) list += L"node - " + X3DObject(ref).GetName() + L"\n";
  return list;
}

// A top node that is itself a mesh is moved under a new "GlobalSRT" null, which becomes the root.
X3DObject InsertGlobalSRT(Model& model, X3DObject& mesh) {
  X3DObject srt;
  model.AddNull(L"GlobalSRT", srt);
  srt.AddChild(mesh);
  return srt;
}

}  // namespace

bool GetRootNode(Model& model, X3DObject& root, bool showMessage) {
  CRefArray counted = CountedChildren(model);
  if (counted.GetCount() == 1) {
    X3DObject child(counted[counted.GetCount() - 1]);
    Geometry geometry = child.GetActivePrimitive().GetGeometry();
    bool isMesh = PolygonMesh(geometry.GetRef()).IsValid() && geometry.GetTriangleCount() > 0;
    root = isMesh ? InsertGlobalSRT(model, child) : child;
    return true;
  }
  if (!showMessage) return false;
  ShowMessage(CString(L"For a model to convert to an actor, the model must have\n"
                      L"a single child node (lights and cameras don't count).\n"
                      L"One of the following nodes needs to be lower in the tree:\n\n") +
              NodeList(counted));
  return false;
}

bool GetCogNode(X3DObject& root, X3DObject& cog) {
  for (const CRef& ref : root.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && HasTag(child, L"RTKCogNode")) {
      cog = child;
      return true;
    }
  }
  CRefArray counted = CountedChildren(root);
  if (counted.GetCount() == 1) {
    cog = X3DObject(counted[0]);
    return true;
  }
  if (counted.GetCount() >= 2) {
    ShowMessage(L"For a model to convert to an actor, the actor root node (" + root.GetName() + L")\n" +
                L"must have only one child node (e.g. a COG node). One of the following nodes\n" +
                L"needs to be lower in the tree:\n\n" + NodeList(counted) +
                L"\nThe other option is to mark one of the nodes as the COG node.\n");
    return false;
  }
  ShowMessage(L"For a model to convert to an actor, the actor root node must have\n"
              L"one child node (e.g. a COG node).");
  return false;
}

bool CheckForEmbeddedModel(X3DObject& obj) {
  for (const CRef& ref : obj.GetChildren()) {
    X3DObject child(ref);
    if (child.GetClassID() == siModelID) return true;
    if (child.IsValid() && CheckForEmbeddedModel(child)) return true;
  }
  return false;
}

int GetNumChildren(X3DObject& obj) {
  return static_cast<int>(obj.FindChildren(CString(), CString()).GetCount());
}

bool FindProperty(X3DObject& obj, const CString& name, Property& out) {
  for (const CRef& ref : obj.GetProperties()) {
    Property property(ref);
    if (property.GetName() == name) {
      out = property;
      return true;
    }
  }
  return false;
}

bool FindCustomPSet(X3DObject& obj, const CString& name, Property& out) {
  return FindProperty(obj, name, out);
}

CustomProperty FindOrAddOptions(X3DObject& owner, const wchar_t* name,
                                void (*define)(CustomProperty&), bool* added) {
  if (added) *added = false;
  Property found;
  if (FindCustomPSet(owner, name, found) && CustomProperty(found).IsValid()) return found;
  if (added) *added = true;
  CustomProperty property = owner.AddProperty(name);
  if (property.IsValid()) return property;
  property = owner.AddProperty(L"Custom_parameter_list", false, name);
  if (property.IsValid()) define(property);
  return property;
}

bool HasTag(const X3DObject& obj, const CString& name) {
  for (const CRef& ref : obj.GetProperties()) {
    if (Property(ref).GetName() == name) return true;
  }
  return false;
}

void FindRTKNodes(X3DObject& start, const CString& tag, CRefArray& out) {
  Property found;
  if (FindCustomPSet(start, tag, found) && CustomProperty(found).IsValid()) out.Add(start);
  for (const CRef& ref : start.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) FindRTKNodes(child, tag, out);
  }
}
