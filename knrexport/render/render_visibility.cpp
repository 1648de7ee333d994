// Render visibility: saving, switching off and restoring an object's render and view visibility.
#include "knrexport/render/render_visibility.h"

#include <cwctype>

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

bool SameNameIgnoringCase(const CString& a, const CString& b) {
  if (a.Length() != b.Length()) return false;
  for (size_t i = 0; i < a.Length(); ++i) {
    if (std::towlower(a[i]) != std::towlower(b[i])) return false;
  }
  return true;
}

// The object's "Visibility" property; the host names its built-in one in lower case, so the
// name is compared without case. Invalid when the object has none.
Property FindVisibility(const X3DObject& object) {
  CRefArray properties = object.GetProperties();
  for (long i = 0; i < properties.GetCount(); ++i) {
    Property p(properties[i]);
    if (p.IsValid() && SameNameIgnoringCase(p.GetName(), L"Visibility")) return p;
  }
  return Property();
}

bool GetValueAsBool(const CString& path) {
  CValue value;
  Application().ExecuteCommand(L"GetValue", {path}, value);
  return value.AsBool();
}

// Adds a saved-visibility flag: read-only and persistable, with the value it saves as default.
void AddSavedFlag(CustomProperty& saved, const wchar_t* name, bool value) {
  AddParam(saved, name, siBool, kCapReadOnlyPersistable, value, false, true, false, true);
}

}  // namespace

void HideNode(X3DObject& object, bool hide) {
  if (object.GetRef() == Application().GetActiveSceneRoot().GetRef()) return;
  Property visibility = FindVisibility(object);
  Property found;
  const bool saved = FindCustomPSet(object, kRenderVizProperty, found);
  if (hide) {
    const bool render = GetValueAsBool(object.GetFullName() + L".visibility.rendvis");
    const bool view = GetValueAsBool(object.GetFullName() + L".visibility.viewvis");
    if (saved) {
      found.PutParameterValue(L"render", render);
      found.PutParameterValue(L"view", view);
    } else {
      CustomProperty added =
          object.AddProperty(L"Custom_parameter_list", false, kRenderVizProperty);
      AddSavedFlag(added, L"render", render);
      AddSavedFlag(added, L"view", view);
    }
    if (visibility.IsValid()) {
      visibility.PutParameterValue(L"viewvis", false);
      visibility.PutParameterValue(L"rendvis", false);
    }
    return;
  }
  if (!saved) return;
  const CValue render = found.GetParameterValue(L"render");
  const CValue view = found.GetParameterValue(L"view");
  if (visibility.IsValid()) {
    visibility.PutParameterValue(L"viewvis", view);
    visibility.PutParameterValue(L"rendvis", render);
  }
  DeleteObj(found.GetFullName());
}

void HideActor(X3DObject& object, bool hide) {
  HideNode(object, hide);
  CRefArray children = object.GetChildren();
  for (long i = 0; i < children.GetCount(); ++i) {
    X3DObject child(children[i]);
    if (child.IsValid()) HideActor(child, hide);
  }
}

void HideEnv(X3DObject& object, const CRefArray& targets, bool hide) {
  if (object.GetClassID() == siModelID) {
    for (long i = 0; i < targets.GetCount(); ++i) {
      if (targets[i] == object.GetRef()) return;
    }
  }
  if (object.GetClassID() == siLightID) return;
  HideNode(object, hide);
  CRefArray children = object.GetChildren();
  for (long i = 0; i < children.GetCount(); ++i) {
    X3DObject child(children[i]);
    if (child.IsValid()) HideEnv(child, targets, hide);
  }
}
