// Scene-file reader: checks the header, then builds a detached object graph from the JSON tree.
// Every structural error names the JSON path of the element at fault; references by full name
// (envelope deformers, chain links, group members, object values) resolve once every object
// of the file exists.
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>

#include "scene_file.h"

namespace Zyra::rt {

namespace {

using Json = nlohmann::json;

// Children may nest this deep; a deeper file is refused rather than exhausting the stack.
constexpr int kMaxDepth = 1000;

// The place of an element in the document, kept on the stack and turned into text
// ("scene.root.children[2].name") only for a message.
struct Path {
  const Path* parent = nullptr;
  const char* key = nullptr;  // null: an array index
  size_t index = 0;

  // A child path points at its parent: only a named path (not a temporary) can have one.
  Path operator/(const char* k) const& { return Path{this, k, 0}; }
  Path operator[](size_t i) const& { return Path{this, nullptr, i}; }
  Path operator/(const char* k) const&& = delete;
  Path operator[](size_t i) const&& = delete;
  std::string Text() const {
    if (!parent && !key) return std::string();  // the document itself
    std::string head = parent ? parent->Text() : std::string();
    if (key) return head.empty() ? key : head + "." + key;
    return head + "[" + std::to_string(index) + "]";
  }
};

struct FormatError {
  std::string where;
  std::string what;
};

[[noreturn]] void Fail(const Path& p, const std::string& what) {
  throw FormatError{p.Text(), what};
}

std::string Describe(const Json& j) {
  switch (j.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "true/false";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::array:
      return "an array";
    default:
      return "a number";
  }
}

const Json& ExpectObject(const Json& j, const Path& p) {
  if (!j.is_object()) Fail(p, "expected an object, found " + Describe(j));
  return j;
}

const Json& ExpectArray(const Json& j, const Path& p) {
  if (!j.is_array()) Fail(p, "expected an array, found " + Describe(j));
  return j;
}

// The member `key` of an object (checked by the caller); null when absent.
const Json* Find(const Json& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

const Json& Member(const Json& object, const char* key, const Path& p) {
  const Json* found = Find(object, key);
  if (!found) Fail(p, std::string("missing \"") + key + "\"");
  return *found;
}

std::wstring ReadString(const Json& j, const Path& p) {
  if (!j.is_string()) Fail(p, "expected a string, found " + Describe(j));
  return FromUtf8(j.get_ref<const std::string&>());
}

// An object, property or parameter name: not empty, no '.' (it separates path segments).
std::wstring ReadName(const Json& j, const Path& p) {
  std::wstring name = ReadString(j, p);
  if (name.empty()) Fail(p, "a name cannot be empty");
  if (name.find_first_of(L".,") != std::wstring::npos) {
    Fail(p, "\"" + ToUtf8(name) + "\" is not a name (it holds '.' or ',')");
  }
  return name;
}

double ReadNumber(const Json& j, const Path& p) {
  if (j.is_number()) return j.get<double>();
  if (j.is_string()) {
    const auto& s = j.get_ref<const std::string&>();
    if (s == "inf") return HUGE_VAL;
    if (s == "-inf") return -HUGE_VAL;
    if (s == "nan") return std::nan("");
  }
  Fail(p, "expected a number, found " + Describe(j));
}

long ReadInt(const Json& j, const Path& p, long lo = -2147483647L - 1, long hi = 2147483647L) {
  if (!j.is_number_integer()) Fail(p, "expected an integer, found " + Describe(j));
  if (j.is_number_unsigned() ? j.get<uint64_t>() > static_cast<uint64_t>(hi)
                             : (j.get<int64_t>() < lo || j.get<int64_t>() > hi)) {
    Fail(p,
         "integer " + j.dump() + " out of range " + std::to_string(lo) + ".." + std::to_string(hi));
  }
  return static_cast<long>(j.get<int64_t>());
}

bool ReadBool(const Json& j, const Path& p) {
  if (!j.is_boolean()) Fail(p, "expected true or false, found " + Describe(j));
  return j.get<bool>();
}

bool IsValueType(long t) {
  switch (t) {
    case siEmpty:
    case siInt4:
    case siFloat:
    case siDouble:
    case siString:
    case siBool:
    case siArray:
    case siRef:
      return true;
    default:
      return false;
  }
}

bool IsPropertyClass(long c) {
  switch (c) {
    case siPropertyID:
    case siCustomPropertyID:
    case siUserDataBlobID:
    case siKinematicsID:
    case siKinematicStateID:
    case siPreferencesID:
      return true;
    default:
      return false;
  }
}

bool DecodeBase64(const std::string& text, std::vector<uint8_t>& out) {
  auto digit = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
  };
  if (text.size() % 4 != 0) return false;
  out.clear();
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    bool last = i + 4 == text.size();
    int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
    if (pad == 1 && text[i + 2] == '=') return false;
    uint32_t n = 0;
    for (size_t k = 0; k < 4; ++k) {
      int d = k >= 4 - static_cast<size_t>(pad) ? 0 : digit(text[i + k]);
      if (d < 0) return false;
      n = (n << 6) | static_cast<uint32_t>(d);
    }
    out.push_back(static_cast<uint8_t>(n >> 16));
    if (pad < 2) out.push_back(static_cast<uint8_t>(n >> 8));
    if (pad < 1) out.push_back(static_cast<uint8_t>(n));
  }
  return true;
}

std::wstring FileStem(const std::string& fileName) {
  std::string stem = fileName.substr(fileName.find_last_of('/') + 1);
  size_t dot = stem.rfind('.');
  if (dot != std::string::npos && dot > 0) stem.erase(dot);
  for (char& c : stem) {
    if (c == '.' || c == ',') c = '_';
  }
  return stem.empty() ? L"Model" : FromUtf8(stem);
}

// ---- The reader -------------------------------------------------------------------------------

class Reader {
 public:
  // `live`: references the file does not satisfy may name objects of the open scene (a branch
  // bound to deformers outside it); otherwise they are errors.
  explicit Reader(bool live) : live_(live) {}

  // Builds the content of X3D object `j` into `object`, which already exists under its parent.
  // `childPrefix` is the full-name prefix of the objects in the name space of its children.
  void X3DContent(const Json& j, const Path& p, const std::shared_ptr<X3D>& object,
                  const std::wstring& childPrefix, int depth) {
    if (depth > kMaxDepth) Fail(p, "objects nest deeper than " + std::to_string(kMaxDepth));
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
      for (size_t i = 0; i < list.size(); ++i)
        Child(list[i], cp[i], object, childPrefix, depth + 1);
    }
  }

  // Makes the 3D object `j` under `parent`, registered under `prefix` + its name.
  std::shared_ptr<X3D> Child(const Json& j, const Path& p, const std::shared_ptr<X3D>& parent,
                             const std::wstring& prefix, int depth) {
    ExpectObject(j, p);
    long cls = ReadInt(Member(j, "class", p), p / "class");
    if (!IsX3DObjectClass(static_cast<siClassID>(cls))) {
      Fail(p / "class", "class " + std::to_string(cls) + " is not a 3D object class");
    }
    std::wstring type = ReadString(Member(j, "type", p), p / "type");
    std::wstring name = ReadName(Member(j, "name", p), p / "name");
    auto object = CreateX3D(parent, static_cast<siClassID>(cls), type, name);
    object->name = name;  // unique within the file; made unique in the scene on import
    Register(prefix + name, object, p / "name");
    std::wstring childPrefix = cls == siModelID ? prefix + name + L"." : prefix;
    X3DContent(j, p, object, childPrefix, depth);
    return object;
  }

  void Register(const std::wstring& fullName, const std::shared_ptr<X3D>& object, const Path& p) {
    if (!byName_.emplace(fullName, object).second) {
      Fail(p, "\"" + ToUtf8(fullName) + "\" names two objects (names are unique in a name space)");
    }
  }

  // "params" and "properties" of any object, merged into what it already has.
  void ObjectContent(const Json& j, const Path& p, const std::shared_ptr<rt::Object>& owner,
                     int depth) {
    ExpectObject(j, p);
    if (const Json* v = Find(j, "params")) Params(*v, p / "params", owner);
    if (const Json* v = Find(j, "properties")) Properties(*v, p / "properties", owner, depth);
  }

  // Parameters: a parameter the owner already has (a built-in one) takes the file's definition
  // and value; others are added in file order.
  void Params(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner) {
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
        param->fcurve = ReadFCurve(*v, at / "fcurve");
        param->fcurve->owner = param;
      }
    }
  }

  void Properties(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner,
                  int depth) {
    ExpectArray(list, p);
    if (depth > kMaxDepth) Fail(p, "properties nest deeper than " + std::to_string(kMaxDepth));
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

  void PropertyContent(const Json& j, const Path& p, const std::shared_ptr<Property>& property,
                       int depth) {
    ExpectObject(j, p);
    if (const Json* v = Find(j, "blob")) {
      if (!v->is_string()) Fail(p / "blob", "expected a base64 string, found " + Describe(*v));
      if (!DecodeBase64(v->get_ref<const std::string&>(), property->blob))
        Fail(p / "blob", "not base64 data");
    }
    ObjectContent(j, p, property, depth);
  }

  // Values keep their type: see EncodeValue in the writer. Object references resolve later.
  void Value(const Json& j, const Path& p, CValue& slot) {
    bool refs = false;
    slot = Decode(j, p, nullptr, refs);
    if (refs) {
      const Json* json = &j;
      CValue* target = &slot;
      Later(p, [this, json, target](const std::string& where) {
        bool unused = false;
        *target = Decode(*json, Path{nullptr, where.c_str(), 0}, &where, unused);
      });
    }
  }

  // With `where` null, references decode as empty and set `refs`; with it, they resolve.
  CValue Decode(const Json& j, const Path& p, const std::string* where, bool& refs) {
    switch (j.type()) {
      case Json::value_t::null:
        return CValue();
      case Json::value_t::boolean:
        return CValue(j.get<bool>());
      case Json::value_t::number_integer:
      case Json::value_t::number_unsigned:
        return CValue(static_cast<int>(ReadInt(j, p)));
      case Json::value_t::number_float:
        return CValue(j.get<double>());
      case Json::value_t::string:
        return CValue(CString(FromUtf8(j.get_ref<const std::string&>())));
      case Json::value_t::array: {
        CValueArray items;
        for (size_t i = 0; i < j.size(); ++i) items.Add(Decode(j[i], p[i], where, refs));
        return CValue(items);
      }
      case Json::value_t::object:
        if (j.size() == 1) {
          if (const Json* v = Find(j, "float"))
            return CValue(static_cast<float>(ReadNumber(*v, p / "float")));
          if (const Json* v = Find(j, "double")) return CValue(ReadNumber(*v, p / "double"));
          if (const Json* v = Find(j, "ref")) {
            std::wstring name = ReadString(*v, p / "ref");
            if (name.empty()) return CValue(CRef());
            if (!where) {
              refs = true;
              return CValue();
            }
            return CValue(CRef(Referent(name, *where)));
          }
        }
        Fail(p,
             "expected a value (null, true/false, a number, a string, an array, or an object "
             "with \"float\", \"double\" or \"ref\")");
      default:
        Fail(p, "expected a value, found " + Describe(j));
    }
  }

  std::shared_ptr<FCurveObject> ReadFCurve(const Json& j, const Path& p) {
    ExpectObject(j, p);
    auto curve = std::make_shared<FCurveObject>();
    curve->interpolation =
        static_cast<int>(ReadInt(Member(j, "interpolation", p), p / "interpolation", 1, 3));
    Path kp = p / "keys";
    const Json& keys = ExpectArray(Member(j, "keys", p), kp);
    curve->keys.reserve(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
      Path at = kp[i];
      const Json& k = ExpectArray(keys[i], at);
      if (k.size() != 3 && k.size() != 7) {
        Fail(at, "a key is [frame, value, interpolation] or that and four tangent numbers; found " +
                     std::to_string(k.size()) + " items");
      }
      FCurveKey key;
      key.frame = ReadNumber(k[0], at[0]);
      if (!std::isfinite(key.frame)) Fail(at[0], "a key frame must be finite");
      if (!curve->keys.empty() && !(curve->keys.back().frame < key.frame)) {
        Fail(at[0], "keys must be in increasing frame order");
      }
      key.value = ReadNumber(k[1], at[1]);
      key.interpolation = static_cast<int>(ReadInt(k[2], at[2], 0, 3));
      if (k.size() == 7) {
        key.hasTangents = true;
        key.leftTanX = ReadNumber(k[3], at[3]);
        key.leftTanY = ReadNumber(k[4], at[4]);
        key.rightTanX = ReadNumber(k[5], at[5]);
        key.rightTanY = ReadNumber(k[6], at[6]);
      }
      curve->keys.push_back(key);
    }
    return curve;
  }

  void ReadPrimitive(const Json& j, const Path& p, const std::shared_ptr<X3D>& object, int depth) {
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

  void ReadEnvelope(const Json& j, const Path& p, const std::shared_ptr<X3D>& object, int depth) {
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
      Fail(wp, std::to_string(deformers.size()) + " deformers but " +
                   std::to_string(weights.size()) + " weight lists");
    }
    bool mesh =
        object->primitive && object->primitive->geometry && object->primitive->geometry->isMesh;
    size_t points = mesh ? static_cast<size_t>(object->primitive->geometry->PointCount()) : 0;
    for (size_t i = 0; i < weights.size(); ++i) {
      Path wi = wp[i];
      const Json& list = ExpectArray(weights[i], wi);
      if (mesh && list.size() != points) {
        Fail(wp[i], std::to_string(list.size()) + " weights for a mesh of " +
                        std::to_string(points) + " points");
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

  void Sources(const Json& list, const Path& p, const std::shared_ptr<ModelObject>& model,
               int depth) {
    ExpectArray(list, p);
    for (size_t i = 0; i < list.size(); ++i) {
      Path at = p[i];
      const Json& j = ExpectObject(list[i], at);
      std::wstring name = ReadName(Member(j, "name", at), at / "name");
      auto source = CreateActionSource(model, name);
      if (source->name != name)
        Fail(at / "name", "source \"" + ToUtf8(name) + "\" is listed twice");
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
          item->fcurve = ReadFCurve(*v, ik / "fcurve");
          item->fcurve->owner = item;
        } else {
          Value(Member(ij, "value", ik), ik / "value", item->staticValue);
        }
      }
    }
  }

  // A container (when it has "items") or a plain object with parameters and properties.
  std::shared_ptr<rt::Object> Generic(const Json& j, const Path& p, int depth) {
    if (depth > kMaxDepth) Fail(p, "objects nest deeper than " + std::to_string(kMaxDepth));
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

  // ---- References -----------------------------------------------------------------------------

  // Runs `resolve` once every object of the file exists; it gets the path text for messages.
  template <class F>
  void Later(const Path& p, F resolve) {
    pending_.push_back({p.Text(), std::function<void(const std::string&)>(std::move(resolve))});
  }

  // Resolves every reference; the first that fails throws.
  void ResolveAll() {
    for (const auto& [where, resolve] : pending_) resolve(where);
    for (const auto& finish : finishers_) finish();
  }

  // An object by the full name it had when the file was written: a 3D object of the file, or a
  // path below one ("Hips.kine.local.posx"); else, for imports, an object of the open scene.
  std::shared_ptr<rt::Object> Referent(const std::wstring& fullName, const std::string& where) {
    auto it = byName_.find(fullName);
    if (it != byName_.end()) return it->second;
    for (size_t dot = fullName.rfind(L'.'); dot != std::wstring::npos && dot > 0;
         dot = fullName.rfind(L'.', dot - 1)) {
      auto head = byName_.find(fullName.substr(0, dot));
      if (head == byName_.end()) continue;
      std::shared_ptr<rt::Object> current = head->second;
      size_t start = dot + 1;
      while (current && start <= fullName.size()) {
        size_t next = fullName.find(L'.', start);
        current = current->Lookup(
            fullName.substr(start, next == std::wstring::npos ? next : next - start));
        if (next == std::wstring::npos) break;
        start = next + 1;
      }
      if (current) return current;
      break;
    }
    if (live_) {
      if (auto found = Resolve(fullName)) return found;
      Host::Get().Log(kSevWarning, L"Scene file import: \"" + fullName + L"\" (at " +
                                       FromUtf8(where) +
                                       L") names no object; the reference is dropped.");
      return nullptr;
    }
    throw FormatError{where, "\"" + ToUtf8(fullName) + "\" names no object of the file"};
  }

  std::shared_ptr<X3D> Deformer(const std::wstring& fullName, const std::string& where) {
    auto object = Referent(fullName, where);
    if (!object) return nullptr;
    auto x3d = std::dynamic_pointer_cast<X3D>(object);
    if (!x3d) throw FormatError{where, "\"" + ToUtf8(fullName) + "\" is not a 3D object"};
    return x3d;
  }

  std::unordered_map<std::wstring, std::shared_ptr<X3D>> byName_;

 private:
  bool live_;
  std::vector<std::pair<std::string, std::function<void(const std::string&)>>> pending_;
  std::vector<std::function<void()>> finishers_;
};

// ---- Header and scene ---------------------------------------------------------------------------

// Parses and checks the header; returns the "scene" object or fails with the file's name.
CStatus ParseDocument(const std::string& text, const std::string& fileName, Json& doc) {
  try {
    doc = Json::parse(text);
  } catch (const Json::parse_error& e) {
    std::string message = e.what();
    size_t bracket = message.find("] ");
    if (message.rfind("[json.exception", 0) == 0 && bracket != std::string::npos) {
      message.erase(0, bracket + 2);
    }
    return CStatus(CStatus::Fail, FromUtf8(fileName + ": not a scene file: " + message));
  }
  const Json* format = doc.is_object() ? Find(doc, "format") : nullptr;
  if (!format || !format->is_string()) {
    return CStatus(CStatus::Fail, FromUtf8(fileName + ": not a Zyra scene file (no \"format\")"));
  }
  if (*format != kSceneFileFormat) {
    return CStatus(CStatus::Fail, FromUtf8(fileName + ": not a Zyra scene file (format \"" +
                                           format->get<std::string>() + "\")"));
  }
  const Json* version = Find(doc, "version");
  if (!version || !version->is_number_integer() || version->get<int64_t>() < 1) {
    std::string found = version ? version->dump() : "none";
    return CStatus(
        CStatus::Fail,
        FromUtf8(fileName + ": at version: expected a version number from 1, found " + found));
  }
  if (version->get<int64_t>() > kSceneFileVersion) {
    return CStatus(
        CStatus::Fail,
        FromUtf8(fileName + ": written by a newer Zyra (scene file version " + version->dump() +
                 "; this host reads " + std::to_string(kSceneFileVersion) + ")"));
  }
  return CStatus::OK;
}

CStatus Structural(const std::string& fileName, const FormatError& e) {
  std::string where = e.where.empty() ? std::string() : "at " + e.where + ": ";
  return CStatus(CStatus::Fail, FromUtf8(fileName + ": " + where + e.what));
}

// The branch's top object under `parent`, named `name`; its file full name is `fullName`.
std::shared_ptr<X3D> BranchTop(Reader& reader, const Json& top, const Path& p,
                               const std::shared_ptr<X3D>& parent, const std::wstring& fullName,
                               const std::wstring& name) {
  ExpectObject(top, p);
  long cls = ReadInt(Member(top, "class", p), p / "class");
  if (!IsX3DObjectClass(static_cast<siClassID>(cls))) {
    Fail(p / "class", "class " + std::to_string(cls) + " is not a 3D object class");
  }
  std::wstring fileName = ReadName(Member(top, "name", p), p / "name");
  std::wstring type = ReadString(Member(top, "type", p), p / "type");
  auto object = CreateX3D(parent, static_cast<siClassID>(cls), type, name);
  object->name = name;
  reader.Register(fullName, object, p / "name");
  std::wstring prefix;
  if (cls == siModelID) {
    prefix = fullName == L"Scene_Root" ? L"" : fullName + L".";
  } else if (fullName.size() > fileName.size() &&
             fullName.compare(fullName.size() - fileName.size(), fileName.size(), fileName) == 0) {
    prefix = fullName.substr(0, fullName.size() - fileName.size());
  }
  reader.X3DContent(top, p, object, prefix, 1);
  return object;
}

// The "kind" of the scene object: "scene" or "branch".
std::string Kind(const Json& scene, const Path& p) {
  std::string kind = ToUtf8(ReadString(Member(scene, "kind", p), p / "kind"));
  if (kind != "scene" && kind != "branch")
    Fail(p / "kind", "expected \"scene\" or \"branch\", found \"" + kind + "\"");
  return kind;
}

}  // namespace

CStatus ReadSceneText(const std::string& text, const std::string& fileName, Scene& out) {
  Json doc;
  CStatus status = ParseDocument(text, fileName, doc);
  if (!status.Succeeded()) return status;
  // A default scene, made by the host and taken away from it at once: the file's content is
  // merged into it while the open scene stays in place.
  Host& host = Host::Get();
  Scene open = std::move(host.scene());
  host.scene() = Scene();
  host.NewScene();
  Scene fresh = std::move(host.scene());
  host.scene() = std::move(open);
  try {
    Path root{nullptr, "scene", 0};
    const Json& scene = ExpectObject(Member(doc, "scene", Path{}), root);
    Reader reader(false);
    Path rp = root / "root";
    const Json& top = ExpectObject(Member(scene, "root", root), rp);
    if (Kind(scene, root) == "branch") {
      // A branch opens as a new scene that holds it.
      std::wstring fullName = ReadString(Member(scene, "fullName", root), root / "fullName");
      std::wstring name = ReadName(Member(top, "name", rp), rp / "name");
      if (name == L"Scene_Root") name = FileStem(fileName);
      BranchTop(reader, top, rp, fresh.root, fullName, name);
    } else {
      if (ReadInt(Member(top, "class", rp), rp / "class") != siModelID) {
        Fail(rp / "class", "the scene root must be a model (class 74)");
      }
      reader.byName_[L"Scene_Root"] = fresh.root;
      reader.X3DContent(top, rp, fresh.root, L"", 0);
      fresh.root->type = L"#model";
      fresh.root->name = L"Scene_Root";
      if (const Json* v = Find(scene, "currentPass"))
        fresh.currentPass = ReadName(*v, root / "currentPass");
      if (const Json* v = Find(scene, "passes")) {
        Path pp = root / "passes";
        ExpectArray(*v, pp);
        for (size_t i = 0; i < v->size(); ++i) {
          Path at = pp[i];
          const Json& j = ExpectObject((*v)[i], at);
          std::wstring name = ReadName(Member(j, "name", at), at / "name");
          std::shared_ptr<rt::Object> pass = fresh.passes->Lookup(name);
          if (!pass) pass = CreatePass(fresh.passes, name);
          reader.ObjectContent(j, at, pass, 1);
        }
      }
      if (!fresh.passes->Lookup(fresh.currentPass)) {
        Fail(root / "currentPass", "no pass is named \"" + ToUtf8(fresh.currentPass) + "\"");
      }
      if (const Json* v = Find(scene, "groups")) {
        Path gp = root / "groups";
        ExpectArray(*v, gp);
        for (size_t i = 0; i < v->size(); ++i) {
          Path at = gp[i];
          const Json& j = ExpectObject((*v)[i], at);
          std::wstring name = ReadName(Member(j, "name", at), at / "name");
          if (fresh.groups->Lookup(name))
            Fail(at / "name", "group \"" + ToUtf8(name) + "\" is listed twice");
          auto group = std::make_shared<GroupObject>(name);
          group->owner = fresh.groups;
          fresh.groups->items.push_back(group);
          reader.ObjectContent(j, at, group, 1);
          Path mp = at / "members";
          const Json& members = ExpectArray(Member(j, "members", at), mp);
          for (size_t k = 0; k < members.size(); ++k) {
            std::wstring member = ReadString(members[k], mp[k]);
            GroupObject* target = group.get();
            reader.Later(mp[k], [&reader, target, member](const std::string& where) {
              target->members.push_back(reader.Referent(member, where));
            });
          }
        }
      }
      struct Single {
        const char* key;
        std::shared_ptr<Property> property;
      };
      for (const Single& s :
           {Single{"playControl", fresh.playControl}, Single{"preferences", fresh.preferences},
            Single{"exportOptions", fresh.exportOptions}}) {
        if (const Json* v = Find(scene, s.key))
          reader.PropertyContent(*v, root / s.key, s.property, 1);
      }
    }
    reader.ResolveAll();
  } catch (const FormatError& e) {
    DestroySceneObjects(fresh);
    return Structural(fileName, e);
  }
  out = std::move(fresh);
  return CStatus::OK;
}

CStatus ReadBranchText(const std::string& text, const std::string& fileName,
                       const std::shared_ptr<X3D>& parent, std::shared_ptr<X3D>& out) {
  out.reset();
  Json doc;
  CStatus status = ParseDocument(text, fileName, doc);
  if (!status.Succeeded()) return status;
  // The branch is built under a holder outside the scene and moved under `parent` only when
  // it is complete.
  auto holder = CreateModel(nullptr, L"Import");
  std::shared_ptr<X3D> top;
  try {
    Path root{nullptr, "scene", 0};
    const Json& scene = ExpectObject(Member(doc, "scene", Path{}), root);
    Reader reader(true);
    Path rp = root / "root";
    const Json& topJson = ExpectObject(Member(scene, "root", root), rp);
    std::wstring fullName = L"Scene_Root";
    if (Kind(scene, root) == "branch")
      fullName = ReadString(Member(scene, "fullName", root), root / "fullName");
    std::wstring name = ReadName(Member(topJson, "name", rp), rp / "name");
    if (name == L"Scene_Root") name = FileStem(fileName);  // a whole scene imports as a model
    top = BranchTop(reader, topJson, rp, holder, fullName, name);
    reader.ResolveAll();
  } catch (const FormatError& e) {
    Destroy(holder);
    return Structural(fileName, e);
  }
  status = Reparent(top, parent, false);
  Destroy(holder);
  if (!status.Succeeded()) {
    Destroy(top);
    return status;
  }
  out = top;
  return CStatus::OK;
}

}  // namespace Zyra::rt
