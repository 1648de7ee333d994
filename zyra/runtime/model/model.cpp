// The object graph: ownership, deletion, full names and path lookup.
#include "model/model.h"

#include <algorithm>
#include <cmath>

namespace Zyra::rt {

// ---- Object -----------------------------------------------------------------------------------

Object::Object(siClassID id, std::wstring name_, std::wstring type_)
    : classId(id), name(std::move(name_)), type(std::move(type_)) {}

Object::~Object() = default;

Parameter* Object::FindParam(std::wstring_view wanted) const {
  for (const auto& p : params) {
    if (p->name == wanted) return p.get();
  }
  return nullptr;
}

Property* Object::FindProperty(std::wstring_view wanted) const {
  for (const auto& p : properties) {
    if (p->name == wanted) return p.get();
  }
  return nullptr;
}

std::shared_ptr<Parameter> Object::AddParam(std::shared_ptr<Parameter> param) {
  param->owner = weak_from_this();
  params.push_back(param);
  return param;
}

std::shared_ptr<Property> Object::AddProperty(std::shared_ptr<Property> property) {
  property->owner = weak_from_this();
  properties.push_back(property);
  return property;
}

std::wstring Object::FullName() const {
  auto o = Owner();
  return o ? o->FullName() + L"." + name : name;
}

void Object::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  for (const auto& p : params) visit(p);
  for (const auto& p : properties) visit(p);
}

namespace {

template <class T>
bool EraseFrom(std::vector<std::shared_ptr<T>>& items, const Object* child) {
  auto it = std::find_if(items.begin(), items.end(),
                         [child](const std::shared_ptr<T>& item) { return item.get() == child; });
  if (it == items.end()) return false;
  items.erase(it);
  return true;
}

}  // namespace

bool Object::Release(const Object* child) {
  return EraseFrom(params, child) || EraseFrom(properties, child);
}

std::shared_ptr<Object> Object::Lookup(std::wstring_view wanted) const {
  for (const auto& p : properties) {
    if (p->name == wanted) return p;
  }
  for (const auto& p : params) {
    if (p->name == wanted) return p;
  }
  return nullptr;
}

namespace {

void MarkDead(const std::shared_ptr<Object>& object) {
  object->alive = false;
  object->ForEachOwned(MarkDead);
}

}  // namespace

void Destroy(const std::shared_ptr<Object>& object) {
  if (!object) return;
  MarkDead(object);
  if (auto o = object->Owner()) o->Release(object.get());
  object->owner.reset();
}

// ---- Container --------------------------------------------------------------------------------

void Container::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  for (const auto& item : items) visit(item);
}

bool Container::Release(const Object* child) {
  return EraseFrom(items, child) || Object::Release(child);
}

std::shared_ptr<Object> Container::Lookup(std::wstring_view wanted) const {
  for (const auto& item : items) {
    if (item->name == wanted) return item;
  }
  return Object::Lookup(wanted);
}

// ---- Parameter --------------------------------------------------------------------------------

Parameter::Parameter(std::wstring name_, siValueType type_, CValue value_)
    : Object(siParameterID, std::move(name_)), valueType(type_), value(std::move(value_)) {}

namespace {

CValue ConvertTo(siValueType type, double number) {
  switch (type) {
    case siInt4:
      return CValue(static_cast<int>(std::lround(number)));
    case siBool:
      return CValue(number != 0.0);
    case siFloat:
      return CValue(static_cast<float>(number));
    default:
      return CValue(number);
  }
}

}  // namespace

CValue Parameter::Evaluate(double frame) const {
  if (getter) return getter(frame);
  if (fcurve && !fcurve->keys.empty()) return ConvertTo(valueType, fcurve->Evaluate(frame));
  return value;
}

CStatus Parameter::Put(const CValue& in, double frame) {
  if (setter) return setter(in, frame);
  CValue converted;
  if (valueType == siEmpty) {
    converted = in;
  } else {
    CStatus status = in.ChangeType(valueType, converted);
    if (!status.Succeeded()) {
      return CStatus(CStatus::InvalidArgument,
                     L"Cannot put " + in.GetAsText().Wide() + L" on " + FullName() + L": " +
                         status.GetMessage().Wide());
    }
  }
  bool numeric = valueType == siInt4 || valueType == siFloat || valueType == siDouble;
  if (numeric) {
    double v = converted.AsDouble();
    if (!minValue.IsEmpty() && v < minValue.AsDouble()) v = minValue.AsDouble();
    if (!maxValue.IsEmpty() && v > maxValue.AsDouble()) v = maxValue.AsDouble();
    if (v != converted.AsDouble()) converted = ConvertTo(valueType, v);
  }
  value = converted;
  return CStatus::OK;
}

std::shared_ptr<FCurveObject> Parameter::AddFCurve() {
  if (fcurve) Destroy(fcurve);
  fcurve = std::make_shared<FCurveObject>();
  fcurve->owner = weak_from_this();
  return fcurve;
}

void Parameter::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  if (fcurve) visit(fcurve);
}

bool Parameter::Release(const Object* child) {
  if (fcurve.get() != child) return false;
  fcurve.reset();
  return true;
}

std::shared_ptr<Parameter> MakeParam(std::wstring name, siValueType type, const CValue& def,
                                     const CValue& min, const CValue& max, int capabilities) {
  auto p = std::make_shared<Parameter>(std::move(name), type, def);
  p->defaultValue = def;
  p->minValue = min;
  p->maxValue = max;
  p->suggestedMin = min;
  p->suggestedMax = max;
  p->capabilities = capabilities;
  return p;
}

// ---- Property ---------------------------------------------------------------------------------

std::shared_ptr<Object> Property::Lookup(std::wstring_view wanted) const { return Object::Lookup(wanted); }

std::shared_ptr<Property> CreateProperty(const std::shared_ptr<Object>& owner, siClassID id,
                                         std::wstring type, std::wstring name) {
  if (name.empty()) name = type;
  std::wstring unique = name;
  for (int n = 1; owner->FindProperty(unique); ++n) unique = name + std::to_wstring(n);
  auto property = std::make_shared<Property>(id, unique, std::move(type));
  owner->AddProperty(property);
  return property;
}

// ---- Geometry ---------------------------------------------------------------------------------

long Geometry::PolygonCount() const {
  long count = 0;
  for (size_t i = 0; i < polygons.size(); i += static_cast<size_t>(polygons[i]) + 1) {
    if (polygons[i] < 0) break;
    ++count;
  }
  return count;
}

long Geometry::TriangleCount() const {
  long count = 0;
  for (size_t i = 0; i < polygons.size(); i += static_cast<size_t>(polygons[i]) + 1) {
    if (polygons[i] < 0) break;
    if (polygons[i] >= 3) count += polygons[i] - 2;
  }
  return count;
}

bool Geometry::BoundingBox(double frame, MATH::CVector3& min, MATH::CVector3& max) const {
  if (!isMesh) {
    // A sphere primitive's size is its "radius" parameter.
    auto primitive = Owner();
    Parameter* radius = primitive ? primitive->FindParam(L"radius") : nullptr;
    double sphereRadius = radius ? radius->Evaluate(frame).AsDouble() : 0.0;
    if (sphereRadius <= 0) return false;
    min.Set(-sphereRadius, -sphereRadius, -sphereRadius);
    max.Set(sphereRadius, sphereRadius, sphereRadius);
    return true;
  }
  if (points.size() < 3) return false;
  double lo[3] = {points[0], points[1], points[2]};
  double hi[3] = {points[0], points[1], points[2]};
  for (size_t i = 3; i + 2 < points.size(); i += 3) {
    for (int a = 0; a < 3; ++a) {
      lo[a] = std::min(lo[a], points[i + static_cast<size_t>(a)]);
      hi[a] = std::max(hi[a], points[i + static_cast<size_t>(a)]);
    }
  }
  min.Set(lo[0], lo[1], lo[2]);
  max.Set(hi[0], hi[1], hi[2]);
  return true;
}

void Primitive::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  if (geometry) visit(geometry);
}

// ---- Actions ----------------------------------------------------------------------------------

void SourceItem::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  if (fcurve) visit(fcurve);
}

ActionSourceObject::ActionSourceObject(std::wstring name_)
    : Object(siActionSourceID, std::move(name_), L"ActionSource") {}

void ActionSourceObject::ForEachOwned(
    const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  for (const auto& item : items) visit(item);
}

bool ActionSourceObject::Release(const Object* child) {
  return EraseFrom(items, child) || Object::Release(child);
}

std::shared_ptr<ActionSourceObject> CreateActionSource(const std::shared_ptr<ModelObject>& model,
                                                       std::wstring name) {
  std::wstring unique = name;
  for (int n = 1; model->sources->Lookup(unique); ++n) unique = name + std::to_wstring(n);
  auto source = std::make_shared<ActionSourceObject>(unique);
  source->owner = model->sources;
  model->sources->items.push_back(source);
  source->AddParam(MakeParam(L"FrameStart", siDouble, CValue(1.0)));
  source->AddParam(MakeParam(L"FrameEnd", siDouble, CValue(100.0)));
  source->AddParam(MakeParam(L"type", siInt4, CValue(0)));
  return source;
}

PassObject::PassObject(std::wstring name_) : Object(siPassID, std::move(name_), L"Pass") {}

std::shared_ptr<PassObject> CreatePass(const std::shared_ptr<Container>& passes, std::wstring name) {
  auto pass = std::make_shared<PassObject>(std::move(name));
  pass->owner = passes;
  passes->items.push_back(pass);
  pass->AddParam(MakeParam(L"ArchiveFileName", siString, CValue(L""), {}, {}, kPersistable));
  auto renderer = CreateProperty(pass, siPropertyID, L"renderer", L"renderer");
  renderer->AddParam(MakeParam(L"ArchiveAsciiOutput", siBool, CValue(false), {}, {}, kPersistable));
  return pass;
}

}  // namespace Zyra::rt
