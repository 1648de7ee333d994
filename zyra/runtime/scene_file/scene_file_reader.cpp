// The scene-file reader, objects: 3D objects and their children, parameters, properties,
// primitives and geometry, envelopes, action sources and generic containers.
#include "scene_file/scene_file_reader.h"

#include <set>

#include "host/host.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "scene_file/scene_file_fcurve.h"

namespace Zyra::rt::scene_reading {

void Reader::X3DContent(const Json& j, const Path& p, const std::shared_ptr<X3D>& object,
                        const std::wstring& childPrefix, int depth) {
  if (depth > kMaxObjectDepth)
    Fail(p, "objects nest deeper than " + std::to_string(kMaxObjectDepth));
  if (const Json* v = Find(j, "type")) object->type = ReadString(*v, p / "type");
  ObjectContent(j, p, object, depth);
  if (const Json* v = Find(j, "primitive")) ReadPrimitive(*v, p / "primitive", object, depth);
  if (const Json* v = Find(j, "envelopes")) {
    Path ep = p / "envelopes";
    const Json& list = ExpectArray(*v, ep);
    for (size_t i = 0; i < list.size(); ++i) ReadEnvelope(list[i], ep[i], object, depth);
  }
  if (const Json* v = Find(j, "chainRoot")) {
    std::wstring name = ReadString(*v, p / "chainRoot");
    std::weak_ptr<X3D>* slot = &object->chainRoot;
    Later(p / "chainRoot",
          [this, slot, name](const std::string& where) { *slot = Deformer(name, where); });
  }
  if (const Json* v = Find(j, "chainBones")) {
    Path bp = p / "chainBones";
    const Json& list = ExpectArray(*v, bp);
    for (size_t i = 0; i < list.size(); ++i) {
      std::wstring name = ReadString(list[i], bp[i]);
      X3D* target = object.get();
      Later(bp[i], [this, target, name](const std::string& where) {
        if (auto bone = Deformer(name, where)) target->chainBones.push_back(bone);
      });
    }
  }
  if (const Json* v = Find(j, "chainEffector")) {
    std::wstring name = ReadString(*v, p / "chainEffector");
    std::weak_ptr<X3D>* slot = &object->chainEffector;
    Later(p / "chainEffector",
          [this, slot, name](const std::string& where) { *slot = Deformer(name, where); });
  }
  auto model = std::dynamic_pointer_cast<ModelObject>(object);
  if (model) {
    if (const Json* v = Find(j, "sources")) Sources(*v, p / "sources", model, depth);
    if (const Json* v = Find(j, "mixer")) {
      auto mixer = Generic(*v, p / "mixer", depth + 1);
      auto container = std::dynamic_pointer_cast<Container>(mixer);
      if (!container) Fail(p / "mixer", "a mixer must be a container (it needs \"items\")");
      container->owner = model;
      model->mixer = container;
    }
  } else {
    for (const char* key : {"sources", "mixer"}) {
      if (Find(j, key)) Fail(p / key, "only models have " + std::string(key));
    }
  }
  if (const Json* v = Find(j, "children")) {
    Path cp = p / "children";
    const Json& list = ExpectArray(*v, cp);
    for (size_t i = 0; i < list.size(); ++i) Child(list[i], cp[i], object, childPrefix, depth + 1);
  }
}

std::shared_ptr<X3D> Reader::Child(const Json& j, const Path& p, const std::shared_ptr<X3D>& parent,
                                   const std::wstring& prefix, int depth) {
  const siClassID cls = X3DClass(j, p);
  std::wstring type = ReadString(Member(j, "type", p), p / "type");
  std::wstring name = ReadName(Member(j, "name", p), p / "name");
  auto object = CreateX3D(parent, cls, type, name);
  object->name = name;  // unique within the file; made unique in the scene on import
  Register(prefix + name, object, p / "name");
  std::wstring childPrefix = cls == siModelID ? prefix + name + L"." : prefix;
  X3DContent(j, p, object, childPrefix, depth);
  return object;
}

void Reader::Register(const std::wstring& fullName, const std::shared_ptr<X3D>& object,
                      const Path& p) {
  if (!byName_.emplace(fullName, object).second) {
    Fail(p, "\"" + ToUtf8(fullName) + "\" names two objects (names are unique in a name space)");
  }
}

void Reader::ObjectContent(const Json& j, const Path& p, const std::shared_ptr<rt::Object>& owner,
                           int depth) {
  ExpectObject(j, p);
  if (const Json* v = Find(j, "params")) Params(*v, p / "params", owner);
  if (const Json* v = Find(j, "properties")) Properties(*v, p / "properties", owner, depth);
}

void Reader::Params(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner) {
  ExpectArray(list, p);
  std::set<std::wstring, std::less<>> seen;
  for (size_t i = 0; i < list.size(); ++i) {
    const Json& j = ExpectObject(list[i], p[i]);
    Path at = p[i];
    std::wstring name = ReadName(Member(j, "name", at), at / "name");
    if (!seen.insert(name).second)
      Fail(at / "name", "parameter \"" + ToUtf8(name) + "\" is listed twice");
    long type = ReadInt(Member(j, "type", at), at / "type");
    if (!IsValueType(type)) Fail(at / "type", std::to_string(type) + " is not a value type");
    std::shared_ptr<Parameter> param;
    for (const auto& existing : owner->params) {
      if (existing->name == name) param = existing;
    }
    if (param && param->getter) continue;  // computed from other parameters
    if (!param) {
      param = std::make_shared<Parameter>(name, static_cast<siValueType>(type));
      owner->AddParam(param);
    }
    param->valueType = static_cast<siValueType>(type);
    Value(Member(j, "value", at), at / "value", param->value);
    struct Field {
      const char* key;
      CValue* slot;
    };
    for (const Field& f :
         {Field{"default", &param->defaultValue}, Field{"min", &param->minValue},
          Field{"max", &param->maxValue}, Field{"suggestedMin", &param->suggestedMin},
          Field{"suggestedMax", &param->suggestedMax}}) {
      if (const Json* v = Find(j, f.key)) Value(*v, at / f.key, *f.slot);
    }
    if (const Json* v = Find(j, "capabilities")) {
      param->capabilities = static_cast<int>(ReadInt(*v, at / "capabilities", 0, 0xFFFF));
    }
    if (const Json* v = Find(j, "label")) param->label = ReadString(*v, at / "label");
    if (const Json* v = Find(j, "description"))
      param->description = ReadString(*v, at / "description");
    param->fcurve.reset();
    if (const Json* v = Find(j, "fcurve")) {
      param->fcurve = ReadFCurveJson(*v, at / "fcurve", columns_);
      param->fcurve->owner = param;
    }
  }
}

void Reader::Properties(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner,
                        int depth) {
  ExpectArray(list, p);
  if (depth > kMaxObjectDepth)
    Fail(p, "properties nest deeper than " + std::to_string(kMaxObjectDepth));
  std::set<std::wstring, std::less<>> seen;
  for (size_t i = 0; i < list.size(); ++i) {
    Path at = p[i];
    const Json& j = ExpectObject(list[i], at);
    std::wstring name = ReadName(Member(j, "name", at), at / "name");
    if (!seen.insert(name).second)
      Fail(at / "name", "property \"" + ToUtf8(name) + "\" is listed twice");
    long cls = ReadInt(Member(j, "class", at), at / "class");
    if (!IsPropertyClass(cls))
      Fail(at / "class", "class " + std::to_string(cls) + " is not a property class");
    std::wstring type = ReadString(Member(j, "type", at), at / "type");
    std::shared_ptr<Property> property;
    for (const auto& existing : owner->properties) {
      if (existing->name == name) property = existing;
    }
    if (property && property->classId != cls) {
      Fail(at / "class", "\"" + ToUtf8(name) + "\" is a built-in property of class " +
                             std::to_string(property->classId));
    }
    if (!property && IsPluginPropertyType(type)) {
      // A registered plug-in type gets its definition and page from the plug-in; the file's
      // parameters then overwrite the defined ones.
      property = CreatePluginProperty(owner, type, name);
    }
    if (!property) property = CreateProperty(owner, static_cast<siClassID>(cls), type, name);
    property->name = name;
    PropertyContent(j, at, property, depth + 1);
  }
}

void Reader::PropertyContent(const Json& j, const Path& p,
                             const std::shared_ptr<Property>& property, int depth) {
  ExpectObject(j, p);
  if (const Json* v = Find(j, "blob")) {
    if (!v->is_string()) Fail(p / "blob", "expected a base64 string, found " + Describe(*v));
    if (!DecodeBase64(v->get_ref<const std::string&>(), property->blob))
      Fail(p / "blob", "not base64 data");
  }
  ObjectContent(j, p, property, depth);
}

void Reader::ReadPrimitive(const Json& j, const Path& p, const std::shared_ptr<X3D>& object,
                           int depth) {
  ExpectObject(j, p);
  std::wstring type = ReadString(Member(j, "type", p), p / "type");
  auto primitive = std::make_shared<rt::Primitive>(type);
  if (const Json* v = Find(j, "name")) primitive->name = ReadName(*v, p / "name");
  primitive->owner = object;
  object->primitive = primitive;
  ObjectContent(j, p, primitive, depth);
  const Json* g = Find(j, "geometry");
  if (!g) return;
  Path gp = p / "geometry";
  ExpectObject(*g, gp);
  auto geometry = std::make_shared<Geometry>();
  geometry->owner = primitive;
  primitive->geometry = geometry;
  if (const Json* v = Find(*g, "name")) geometry->name = ReadName(*v, gp / "name");
  if (const Json* v = Find(*g, "class")) {
    long cls = ReadInt(*v, gp / "class");
    if (cls != siGeometryID && cls != siPolygonMeshID) {
      Fail(gp / "class", "class " + std::to_string(cls) + " is not a geometry class");
    }
    geometry->classId = static_cast<siClassID>(cls);
  }
  geometry->isMesh = ReadBool(Member(*g, "mesh", gp), gp / "mesh");
  if (const Json* v = Find(*g, "points")) {
    Path pp = gp / "points";
    ExpectArray(*v, pp);
    if (v->size() % 3 != 0)
      Fail(pp, "points are x, y, z triples; found " + std::to_string(v->size()) + " numbers");
    geometry->points.reserve(v->size());
    for (size_t i = 0; i < v->size(); ++i) geometry->points.push_back(ReadNumber((*v)[i], pp[i]));
  }
  if (const Json* v = Find(*g, "polygons")) {
    Path pp = gp / "polygons";
    ExpectArray(*v, pp);
    long points = geometry->PointCount();
    if (points == 0 && !v->empty()) Fail(pp, "polygons on a geometry without points");
    for (size_t i = 0; i < v->size();) {
      long count = ReadInt((*v)[i], pp[i], 1, 2147483647L);
      if (i + 1 + static_cast<size_t>(count) > v->size()) {
        Fail(pp[i], "a polygon of " + std::to_string(count) + " points runs past the end");
      }
      geometry->polygons.push_back(count);
      for (size_t k = i + 1; k <= i + static_cast<size_t>(count); ++k) {
        geometry->polygons.push_back(ReadInt((*v)[k], pp[k], 0, points - 1));
      }
      i += static_cast<size_t>(count) + 1;
    }
  }
}

void Reader::ReadEnvelope(const Json& j, const Path& p, const std::shared_ptr<X3D>& object,
                          int depth) {
  ExpectObject(j, p);
  auto envelope = std::make_shared<Envelope>();
  if (const Json* v = Find(j, "name")) envelope->name = ReadName(*v, p / "name");
  envelope->owner = object;
  object->envelopes.push_back(envelope);
  ObjectContent(j, p, envelope, depth);
  Path dp = p / "deformers";
  Path wp = p / "weights";
  const Json& deformers = ExpectArray(Member(j, "deformers", p), dp);
  const Json& weights = ExpectArray(Member(j, "weights", p), wp);
  if (deformers.size() != weights.size()) {
    Fail(wp, std::to_string(deformers.size()) + " deformers but " + std::to_string(weights.size()) +
                 " weight lists");
  }
  bool mesh =
      object->primitive && object->primitive->geometry && object->primitive->geometry->isMesh;
  size_t points = mesh ? static_cast<size_t>(object->primitive->geometry->PointCount()) : 0;
  for (size_t i = 0; i < weights.size(); ++i) {
    Path wi = wp[i];
    const Json& list = ExpectArray(weights[i], wi);
    if (mesh && list.size() != points) {
      Fail(wp[i], std::to_string(list.size()) + " weights for a mesh of " + std::to_string(points) +
                      " points");
    }
    std::vector<double> w;
    w.reserve(list.size());
    for (size_t k = 0; k < list.size(); ++k) w.push_back(ReadNumber(list[k], wi[k]));
    envelope->weights.push_back(std::move(w));
    envelope->deformers.emplace_back();
    std::wstring name = ReadString(deformers[i], dp[i]);
    Envelope* target = envelope.get();
    Later(dp[i], [this, target, i, name](const std::string& where) {
      target->deformers[i] = Deformer(name, where);
    });
  }
  // Deformers that resolve to nothing (a branch bound outside itself) are dropped with their
  // weights once every reference was tried.
  std::shared_ptr<Envelope> keep = envelope;
  finishers_.push_back([keep]() {
    for (size_t i = keep->deformers.size(); i-- > 0;) {
      if (!keep->deformers[i].lock()) {
        keep->deformers.erase(keep->deformers.begin() + static_cast<long>(i));
        keep->weights.erase(keep->weights.begin() + static_cast<long>(i));
      }
    }
  });
}

void Reader::Sources(const Json& list, const Path& p, const std::shared_ptr<ModelObject>& model,
                     int depth) {
  ExpectArray(list, p);
  for (size_t i = 0; i < list.size(); ++i) {
    Path at = p[i];
    const Json& j = ExpectObject(list[i], at);
    std::wstring name = ReadName(Member(j, "name", at), at / "name");
    auto source = CreateActionSource(model, name);
    if (source->name != name) Fail(at / "name", "source \"" + ToUtf8(name) + "\" is listed twice");
    ObjectContent(j, at, source, depth);
    Path ip = at / "items";
    const Json& items = ExpectArray(Member(j, "items", at), ip);
    for (size_t k = 0; k < items.size(); ++k) {
      Path ik = ip[k];
      const Json& ij = ExpectObject(items[k], ik);
      std::wstring target = ReadString(Member(ij, "target", ik), ik / "target");
      if (target.empty()) Fail(ik / "target", "an item needs a target");
      auto item = std::make_shared<SourceItem>(target);
      item->owner = source;
      source->items.push_back(item);
      ObjectContent(ij, ik, item, depth);
      if (const Json* v = Find(ij, "fcurve")) {
        item->fcurve = ReadFCurveJson(*v, ik / "fcurve", columns_);
        item->fcurve->owner = item;
      } else {
        Value(Member(ij, "value", ik), ik / "value", item->staticValue);
      }
    }
  }
}

std::shared_ptr<rt::Object> Reader::Generic(const Json& j, const Path& p, int depth) {
  if (depth > kMaxObjectDepth)
    Fail(p, "objects nest deeper than " + std::to_string(kMaxObjectDepth));
  ExpectObject(j, p);
  long cls = ReadInt(Member(j, "class", p), p / "class");
  std::wstring type = ReadString(Member(j, "type", p), p / "type");
  std::wstring name = ReadName(Member(j, "name", p), p / "name");
  std::shared_ptr<rt::Object> object;
  const Json* items = Find(j, "items");
  if (items) {
    auto container = std::make_shared<Container>(name, static_cast<siClassID>(cls));
    container->type = type;
    Path ip = p / "items";
    ExpectArray(*items, ip);
    for (size_t i = 0; i < items->size(); ++i) {
      auto item = Generic((*items)[i], ip[i], depth + 1);
      item->owner = container;
      container->items.push_back(item);
    }
    object = container;
  } else {
    object = std::make_shared<rt::Object>(static_cast<siClassID>(cls), name, type);
  }
  ObjectContent(j, p, object, depth);
  return object;
}

}  // namespace Zyra::rt::scene_reading
