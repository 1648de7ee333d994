// SDK handles for named objects, project items, scene items, properties and parameters.
#include "zyra/object.h"

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "zyra/fcurve.h"

namespace Zyra {

namespace {

double FrameOf(const CTime& time) {
  return time.IsCurrent() ? rt::Host::Get().CurrentFrame() : time.GetTime();
}

bool AnyClass(siClassID) { return true; }
bool IsProperty(siClassID id) {
  return id == siPropertyID || id == siCustomPropertyID || id == siUserDataBlobID ||
         id == siKinematicsID || id == siKinematicStateID || id == siPreferencesID;
}
bool IsCustomProperty(siClassID id) { return id == siCustomPropertyID; }
bool IsBlob(siClassID id) { return id == siUserDataBlobID; }
bool IsParameter(siClassID id) { return id == siParameterID; }
bool HasProperties(siClassID id) {
  return IsX3DObjectClass(id) || id == siGroupID || id == siPassID || id == siActionSourceID ||
         IsProperty(id);
}

rt::Parameter* ParamOf(const CRef& ref) {
  auto o = ref.Get();
  return o && o->classId == siParameterID ? static_cast<rt::Parameter*>(o.get()) : nullptr;
}

// Whether `object` or anything it owns (but not its 3D children) has an fcurve.
bool OwnsFCurve(const rt::Object& object) {
  for (const auto& p : object.params) {
    if (p->fcurve && !p->fcurve->keys.empty()) return true;
  }
  for (const auto& p : object.properties) {
    if (OwnsFCurve(*p)) return true;
  }
  if (auto x3d = dynamic_cast<const rt::X3D*>(&object); x3d && x3d->primitive) {
    return OwnsFCurve(*x3d->primitive);
  }
  return false;
}

}  // namespace

// ---- ZrObject ---------------------------------------------------------------------------------

ZrObject::ZrObject(const CRef& ref) : ref_(ref) {}
ZrObject::ZrObject(const CRef& ref, bool (*accept)(siClassID)) {
  if (ref.IsValid() && accept(ref.GetClassID())) ref_ = ref;
}

CString ZrObject::GetName() const {
  auto o = ref_.Get();
  return o ? CString(o->name) : CString();
}

CStatus ZrObject::PutName(const CString& name) {
  auto o = ref_.Get();
  if (!o) return CStatus(CStatus::InvalidArgument, L"The object was deleted.");
  if (name.IsEmpty()) return CStatus(CStatus::InvalidArgument, L"A name cannot be empty.");
  if (!o->Owner() && o->classId == siModelID) {
    return CStatus(CStatus::AccessDenied, L"Scene_Root cannot be renamed.");
  }
  rt::Rename(o, name.Wide());
  return CStatus::OK;
}

CString ZrObject::GetFullName() const { return ref_.GetAsText(); }

CString ZrObject::GetType() const {
  auto o = ref_.Get();
  return o ? CString(o->type) : CString();
}

CRef ZrObject::GetParent() const {
  auto o = ref_.Get();
  if (!o) return CRef();
  auto owner = o->Owner();
  // Parameters of "kine.local" and friends report their property; a property its object.
  return owner ? CRef(owner) : CRef();
}

// ---- ProjectItem ------------------------------------------------------------------------------

ProjectItem::ProjectItem(const CRef& ref) : ZrObject(ref, AnyClass) {}

CRefArray ProjectItem::GetParameters() const {
  CRefArray out;
  if (auto o = ref_.Get()) {
    for (const auto& p : o->params) out.Add(CRef(p));
  }
  return out;
}

Parameter ProjectItem::GetParameter(const CString& name) const {
  auto o = ref_.Get();
  if (!o) return Parameter();
  auto found = o->Lookup(name.Wide());
  if (!found) {
    // A dotted name ("kine.local.posx", "renderer.ArchiveAsciiOutput") is a path below this item.
    size_t dot = name.Wide().find(L'.');
    if (dot != std::wstring::npos) found = rt::Resolve(o->FullName() + L"." + name.Wide());
  }
  return Parameter(found ? CRef(found) : CRef());
}

CValue ProjectItem::GetParameterValue(const CString& name, const CTime& time) const {
  Parameter p = GetParameter(name);
  return p.IsValid() ? p.GetValue(time) : CValue();
}

CStatus ProjectItem::PutParameterValue(const CString& name, const CValue& value, const CTime& time) {
  Parameter p = GetParameter(name);
  if (!p.IsValid()) {
    return CStatus(CStatus::MemberNotFound,
                   GetFullName().Wide() + L" has no parameter \"" + name.Wide() + L"\".");
  }
  return p.PutValue(value, time);
}

bool ProjectItem::IsAnimated(siSourceType type, bool local) const {
  auto o = ref_.Get();
  if (!o) return false;
  if (type != siFCurveSource && type != siAnySource) return false;
  if (OwnsFCurve(*o)) return true;
  if (local) return false;
  if (auto x3d = std::dynamic_pointer_cast<rt::X3D>(o)) {
    for (const auto& d : rt::Descendants(*x3d)) {
      if (OwnsFCurve(*d)) return true;
    }
  }
  return false;
}

// ---- SceneItem --------------------------------------------------------------------------------

SceneItem::SceneItem(const CRef& ref) : ProjectItem(ref, HasProperties) {}

CRefArray SceneItem::GetProperties() const {
  CRefArray out;
  if (auto o = ref_.Get()) {
    for (const auto& p : o->properties) out.Add(CRef(p));
  }
  return out;
}

Property SceneItem::AddProperty(const CString& preset, bool /*branch*/, const CString& name) {
  auto o = ref_.Get();
  if (!o) return Property();
  const std::wstring& kind = preset.Wide();
  if (kind == L"Custom_parameter_list" || kind == L"CustomProperty") {
    return Property(CRef(rt::CreateProperty(o, siCustomPropertyID, L"Custom_parameter_list",
                                            name.IsEmpty() ? L"CustomPSet" : name.Wide())));
  }
  if (kind == L"UserDataBlob") {
    return Property(CRef(rt::CreateProperty(o, siUserDataBlobID, L"UserDataBlob",
                                            name.IsEmpty() ? L"UserDataBlob" : name.Wide())));
  }
  if (kind == L"DispProp" || kind == L"Display Property") {
    if (auto existing = o->FindProperty(L"Display Property")) return Property(CRef(existing->As<rt::Property>()));
    auto display = rt::CreateProperty(o, siPropertyID, L"display", L"Display Property");
    display->AddParam(rt::MakeParam(L"wirecol", siInt4, CValue(0), CValue(0), CValue(1023),
                                    rt::kPersistable));
    return Property(CRef(display));
  }
  if (rt::IsPluginPropertyType(kind)) {
    return Property(CRef(rt::CreatePluginProperty(o, kind, name.IsEmpty() ? kind : name.Wide())));
  }
  rt::Host::Get().Log(rt::kSevError, L"AddProperty: unknown property type \"" + kind + L"\" on " +
                                         o->FullName() + L".");
  return Property();
}

CRefArray SceneItem::GetEnvelopes() const {
  CRefArray out;
  if (auto x3d = std::dynamic_pointer_cast<rt::X3D>(ref_.Get())) {
    for (const auto& e : x3d->envelopes) out.Add(CRef(e));
  }
  return out;
}

// ---- Properties -------------------------------------------------------------------------------

Property::Property(const CRef& ref) : ProjectItem(ref, IsProperty) {}
CustomProperty::CustomProperty(const CRef& ref) : Property(ref, IsCustomProperty) {}

CStatus CustomProperty::AddParameter(const CString& name, siValueType type, int capabilities,
                                     const CString& label, const CString& description,
                                     const CValue& def, const CValue& min, const CValue& max,
                                     const CValue& suggestedMin, const CValue& suggestedMax,
                                     Parameter& out) {
  out = Parameter();
  auto o = ref_.Get();
  if (!o) return CStatus(CStatus::InvalidArgument, L"AddParameter: the property was deleted.");
  if (name.IsEmpty() || name.Wide().find(L'.') != std::wstring::npos) {
    return CStatus(CStatus::InvalidArgument,
                   L"AddParameter: \"" + name.Wide() + L"\" is not a valid parameter name.");
  }
  if (o->FindParam(name.Wide())) {
    return CStatus(CStatus::InvalidArgument,
                   L"AddParameter: " + o->FullName() + L" already has a parameter \"" + name.Wide() + L"\".");
  }
  if (type != siInt4 && type != siFloat && type != siDouble && type != siString && type != siBool) {
    return CStatus(CStatus::InvalidArgument, L"AddParameter: unsupported value type " +
                                                 std::to_wstring(static_cast<int>(type)) + L".");
  }
  CValue value;
  CStatus status = def.IsEmpty() ? CValue(0).ChangeType(type, value) : def.ChangeType(type, value);
  if (type == siString && def.IsEmpty()) value = CValue(L"");
  if (!status.Succeeded()) return CStatus(CStatus::InvalidArgument, L"AddParameter: " + status.GetMessage().Wide());
  auto p = rt::MakeParam(name.Wide(), type, value, min, max, capabilities);
  p->suggestedMin = suggestedMin.IsEmpty() ? min : suggestedMin;
  p->suggestedMax = suggestedMax.IsEmpty() ? max : suggestedMax;
  p->label = label.Wide();
  p->description = description.Wide();
  o->AddParam(p);
  out = Parameter(CRef(p));
  return CStatus::OK;
}

CStatus CustomProperty::AddParameter(const CString& name, siValueType type, int capabilities,
                                     const CString& label, const CString& description,
                                     const CValue& def, Parameter& out) {
  return AddParameter(name, type, capabilities, label, description, def, CValue(), CValue(),
                      CValue(), CValue(), out);
}

UserDataBlob::UserDataBlob(const CRef& ref) : Property(ref, IsBlob) {}

std::vector<unsigned char> UserDataBlob::GetValue() const {
  auto o = std::dynamic_pointer_cast<rt::Property>(ref_.Get());
  return o ? std::vector<unsigned char>(o->blob.begin(), o->blob.end()) : std::vector<unsigned char>();
}

CStatus UserDataBlob::PutValue(const unsigned char* data, size_t size) {
  auto o = std::dynamic_pointer_cast<rt::Property>(ref_.Get());
  if (!o) return CStatus(CStatus::InvalidArgument, L"The user data blob was deleted.");
  if (size && !data) return CStatus(CStatus::InvalidArgument, L"PutValue: no data.");
  o->blob.assign(data, data + size);
  return CStatus::OK;
}

// ---- Parameter --------------------------------------------------------------------------------

Parameter::Parameter(const CRef& ref) : ProjectItem(ref, IsParameter) {}

CValue Parameter::GetValue(const CTime& time) const {
  auto* p = ParamOf(ref_);
  return p ? p->Evaluate(FrameOf(time)) : CValue();
}

CStatus Parameter::PutValue(const CValue& value, const CTime& time) {
  auto* p = ParamOf(ref_);
  if (!p) return CStatus(CStatus::InvalidArgument, L"The parameter was deleted.");
  return p->Put(value, FrameOf(time));
}

siValueType Parameter::GetValueType() const {
  auto* p = ParamOf(ref_);
  return p ? p->valueType : siEmpty;
}

CValue Parameter::GetDefault() const {
  auto* p = ParamOf(ref_);
  return p ? p->defaultValue : CValue();
}
CValue Parameter::GetMin() const {
  auto* p = ParamOf(ref_);
  return p ? p->minValue : CValue();
}
CValue Parameter::GetMax() const {
  auto* p = ParamOf(ref_);
  return p ? p->maxValue : CValue();
}
CValue Parameter::GetSuggestedMin() const {
  auto* p = ParamOf(ref_);
  return p ? p->suggestedMin : CValue();
}
CValue Parameter::GetSuggestedMax() const {
  auto* p = ParamOf(ref_);
  return p ? p->suggestedMax : CValue();
}

int Parameter::GetCapabilities() const {
  auto* p = ParamOf(ref_);
  return p ? p->capabilities : 0;
}

bool Parameter::GetCapabilityFlag(int flag) const { return (GetCapabilities() & flag) == flag && flag; }

CStatus Parameter::PutCapabilityFlag(int flag, bool on) {
  auto* p = ParamOf(ref_);
  if (!p) return CStatus(CStatus::InvalidArgument, L"The parameter was deleted.");
  p->capabilities = on ? (p->capabilities | flag) : (p->capabilities & ~flag);
  return CStatus::OK;
}

CString Parameter::GetLabel() const {
  auto* p = ParamOf(ref_);
  return p ? CString(p->label) : CString();
}

CString Parameter::GetDescription() const {
  auto* p = ParamOf(ref_);
  return p ? CString(p->description) : CString();
}

CRef Parameter::GetSource() const {
  auto* p = ParamOf(ref_);
  return p && p->fcurve ? CRef(p->fcurve) : CRef();
}

CStatus Parameter::AddFCurve(int /*type*/, FCurve& out) {
  auto* p = ParamOf(ref_);
  if (!p) return CStatus(CStatus::InvalidArgument, L"The parameter was deleted.");
  if (p->getter) {
    return CStatus(CStatus::AccessDenied, p->FullName() + L" is computed and cannot be animated.");
  }
  auto curve = p->AddFCurve();
  out = FCurve(CRef(curve));
  return CStatus::OK;
}

CStatus Parameter::RemoveAnimation() {
  auto* p = ParamOf(ref_);
  if (!p) return CStatus(CStatus::InvalidArgument, L"The parameter was deleted.");
  if (p->fcurve) rt::Destroy(p->fcurve);
  return CStatus::OK;
}

}  // namespace Zyra
