// Scene-file writer: turns the object graph into a JSON tree, then prints it in a fixed layout
// (objects one key a line, arrays of plain values on one line) so that the same scene always
// gives the same bytes and a diff of two saves shows what changed. The tree holds long curves'
// number columns as placeholders: the printer formats them straight into its output, which it
// hands on every kHandOnBytes (to the file, while it formats the rest), so a take's text is never
// held whole.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "scene_file/scene_file_fcurve.h"

namespace Zyra::rt {

namespace {

using Json = nlohmann::ordered_json;

// The printed text is handed on in pieces of about this size.
constexpr size_t kHandOnBytes = 1 << 20;

std::string Utf8(const std::wstring& text) { return ToUtf8(text); }

Json Number(double v) { return NumberJson(v); }

// Thrown by EncodeValue for arrays nested deeper than kMaxValueDepth; the caller names the value.
struct ValueTooDeep {};

// What in the scene cannot be written: thrown before the first byte reaches the sink.
struct Refusal {
  std::string what;
};

// A value keeps its own type: null, integer, number with a point (double), {"float": x},
// {"double": "inf"} for non-finite doubles, true/false, string, {"ref": full name}, array.
// `depth` is the number of arrays that hold `v`.
Json EncodeValue(const CValue& v, int depth = 0) {
  switch (v.GetType()) {
    case siEmpty:
      return Json();
    case siInt4:
      return Json(v.AsInt());
    case siFloat:
      return Json::object({{"float", Number(static_cast<double>(v.AsFloat()))}});
    case siDouble:
      if (std::isfinite(v.AsDouble())) return Json(v.AsDouble());
      return Json::object({{"double", Number(v.AsDouble())}});
    case siBool:
      return Json(v.AsBool());
    case siString:
      return Json(Utf8(v.GetAsText().Wide()));
    case siRef:
      return Json::object({{"ref", Utf8(v.AsRef().GetAsText().Wide())}});
    case siArray: {
      if (depth >= kMaxValueDepth) throw ValueTooDeep{};
      Json out = Json::array();
      for (const CValue& item : v.AsArray()) out.push_back(EncodeValue(item, depth + 1));
      return out;
    }
  }
  return Json();
}

std::string Base64(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t n = static_cast<uint32_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) n |= static_cast<uint32_t>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) n |= bytes[i + 2];
    out += kDigits[(n >> 18) & 63];
    out += kDigits[(n >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(n >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[n & 63] : '=';
  }
  return out;
}

bool IsCustomProperty(const Property& p) {
  return p.classId == siCustomPropertyID || p.type == L"Custom_parameter_list";
}

// A property whose every parameter is computed from others (the global kinematic state) holds
// nothing of its own.
bool IsComputedOnly(const Property& p) {
  if (p.params.empty() || !p.properties.empty()) return false;
  return std::all_of(p.params.begin(), p.params.end(),
                     [](const auto& param) { return static_cast<bool>(param->getter); });
}

class Writer {
 public:
  explicit Writer(const BranchWriteOptions& options) : options_(options) {}

  // Curves written by columns report their keys when their columns are printed, the others here.
  Json Curve(const FCurveObject& curve) const {
    const size_t before = jobs_.size();
    Json out = FCurveToJson(curve, jobs_);
    if (options_.progress && jobs_.size() == before) options_.progress(curve.keys.size());
    return out;
  }

  const ColumnJobs& Jobs() const { return jobs_; }

  // EncodeValue of a value of `owner`, refused with the owner's name when it nests too deep.
  static Json OwnedValue(const CValue& v, const Object& owner) {
    try {
      return EncodeValue(v);
    } catch (const ValueTooDeep&) {
      throw Refusal{"the value of \"" + Utf8(owner.FullName()) + "\" nests arrays deeper than " +
                    std::to_string(kMaxValueDepth) + " levels"};
    }
  }

  Json ParamJson(const Parameter& p) const {
    Json out = NewObject();
    out["name"] = Utf8(p.name);
    out["type"] = static_cast<int>(p.valueType);
    bool keepCurve = p.fcurve && options_.animation;
    if (p.fcurve && !options_.animation) {
      out["value"] = OwnedValue(p.Evaluate(options_.frame), p);
    } else {
      out["value"] = OwnedValue(p.value, p);
    }
    out["default"] = OwnedValue(p.defaultValue, p);
    out["min"] = OwnedValue(p.minValue, p);
    out["max"] = OwnedValue(p.maxValue, p);
    out["suggestedMin"] = OwnedValue(p.suggestedMin, p);
    out["suggestedMax"] = OwnedValue(p.suggestedMax, p);
    out["capabilities"] = p.capabilities;
    out["label"] = Utf8(p.label);
    out["description"] = Utf8(p.description);
    if (keepCurve) out["fcurve"] = Curve(*p.fcurve);
    return out;
  }

  // "params" (computed ones left out) and "properties" of any object, when it has some.
  void ParamsAndProperties(const Object& o, Json& out) const {
    Json params = Json::array();
    for (const auto& p : o.params) {
      if (!p->getter) params.push_back(ParamJson(*p));
    }
    if (!params.empty()) out["params"] = std::move(params);
    Json properties = Json::array();
    for (const auto& p : o.properties) {
      if (IsComputedOnly(*p)) continue;
      if (!options_.customProperties && IsCustomProperty(*p)) continue;
      properties.push_back(PropertyJson(*p));
    }
    if (!properties.empty()) out["properties"] = std::move(properties);
  }

  Json PropertyJson(const Property& p) const {
    Json out = NewObject();
    out["name"] = Utf8(p.name);
    out["class"] = static_cast<int>(p.classId);
    out["type"] = Utf8(p.type);
    if (p.classId == siUserDataBlobID || !p.blob.empty()) out["blob"] = Base64(p.blob);
    ParamsAndProperties(p, out);
    return out;
  }

  // Containers, tracks and whatever else hangs in a mixer or a pass list: class, type, name,
  // parameters, properties and, for containers, their items.
  Json Generic(const Object& o) const {
    Json out = NewObject();
    out["class"] = static_cast<int>(o.classId);
    out["type"] = Utf8(o.type);
    out["name"] = Utf8(o.name);
    ParamsAndProperties(o, out);
    if (auto* container = dynamic_cast<const Container*>(&o)) {
      Json items = Json::array();
      for (const auto& item : container->items) items.push_back(Generic(*item));
      out["items"] = std::move(items);
    }
    return out;
  }

  Json Source(const ActionSourceObject& source) const {
    Json out = NewObject();
    out["name"] = Utf8(source.name);
    ParamsAndProperties(source, out);
    Json items = Json::array();
    for (const auto& item : source.items) {
      Json j = NewObject();
      j["target"] = Utf8(item->target);
      ParamsAndProperties(*item, j);
      if (item->fcurve) {
        j["fcurve"] = Curve(*item->fcurve);
      } else {
        j["value"] = OwnedValue(item->staticValue, *item);
      }
      items.push_back(std::move(j));
    }
    out["items"] = std::move(items);
    return out;
  }

  Json PrimitiveJson(const rt::Primitive& primitive) const {
    Json out = NewObject();
    out["type"] = Utf8(primitive.type);
    out["name"] = Utf8(primitive.name);
    ParamsAndProperties(primitive, out);
    if (const auto& g = primitive.geometry) {
      Json geometry = NewObject();
      geometry["name"] = Utf8(g->name);
      geometry["class"] = static_cast<int>(g->classId);
      geometry["mesh"] = g->isMesh;
      Json points = Json::array();
      for (double v : g->points) points.push_back(Number(v));
      geometry["points"] = std::move(points);
      geometry["polygons"] = g->polygons;
      out["geometry"] = std::move(geometry);
    }
    return out;
  }

  Json EnvelopeJson(const Envelope& envelope) const {
    Json out = NewObject();
    out["name"] = Utf8(envelope.name);
    ParamsAndProperties(envelope, out);
    Json deformers = Json::array();
    Json weights = Json::array();
    // Deformers deleted since binding are dropped together with their weights.
    for (size_t i = 0; i < envelope.deformers.size(); ++i) {
      auto d = envelope.deformers[i].lock();
      if (!d || !d->alive) continue;
      deformers.push_back(Utf8(d->FullName()));
      Json w = Json::array();
      if (i < envelope.weights.size()) {
        for (double v : envelope.weights[i]) w.push_back(Number(v));
      }
      weights.push_back(std::move(w));
    }
    out["deformers"] = std::move(deformers);
    out["weights"] = std::move(weights);
    return out;
  }

  static bool Alive(const std::weak_ptr<X3D>& weak) {
    auto o = weak.lock();
    return o && o->alive;
  }

  // The object and its children, `depth` levels below the written top. Objects nested deeper than
  // the reader accepts are refused here, so that no file is written that cannot be opened again.
  Json X3DJson(const X3D& o, int depth = 0) const {
    if (depth > kMaxObjectDepth) {
      throw Refusal{"\"" + Utf8(o.FullName()) + "\" lies deeper than " +
                    std::to_string(kMaxObjectDepth) + " levels of objects"};
    }
    Json out = NewObject();
    out["class"] = static_cast<int>(o.classId);
    out["type"] = Utf8(o.type);
    out["name"] = Utf8(o.name);
    ParamsAndProperties(o, out);
    if (o.primitive) out["primitive"] = PrimitiveJson(*o.primitive);
    if (!o.envelopes.empty()) {
      Json envelopes = Json::array();
      for (const auto& e : o.envelopes) envelopes.push_back(EnvelopeJson(*e));
      out["envelopes"] = std::move(envelopes);
    }
    if (Alive(o.chainRoot)) out["chainRoot"] = Utf8(o.chainRoot.lock()->FullName());
    Json bones = Json::array();
    for (const auto& b : o.chainBones) {
      if (Alive(b)) bones.push_back(Utf8(b.lock()->FullName()));
    }
    if (!bones.empty()) out["chainBones"] = std::move(bones);
    if (Alive(o.chainEffector)) out["chainEffector"] = Utf8(o.chainEffector.lock()->FullName());
    if (auto* model = dynamic_cast<const ModelObject*>(&o)) {
      if (model->sources && !model->sources->items.empty()) {
        Json sources = Json::array();
        for (const auto& s : model->sources->items) {
          if (auto* source = dynamic_cast<const ActionSourceObject*>(s.get())) {
            sources.push_back(Source(*source));
          }
        }
        out["sources"] = std::move(sources);
      }
      if (model->mixer) out["mixer"] = Generic(*model->mixer);
    }
    Json children = Json::array();
    for (const auto& c : o.children) children.push_back(X3DJson(*c, depth + 1));
    out["children"] = std::move(children);
    return out;
  }

 private:
  BranchWriteOptions options_;
  mutable ColumnJobs jobs_;
};

// ---- Printing ---------------------------------------------------------------------------------

void PrintString(const std::string& s, std::string& out) {
  out += '"';
  // Most text needs no escape (number columns never do): copy it in one piece.
  size_t plain = 0;
  while (plain < s.size()) {
    auto u = static_cast<unsigned char>(s[plain]);
    if (u < 0x20 || u == '"' || u == '\\') break;
    ++plain;
  }
  out.append(s, 0, plain);
  for (char c : std::string_view(s).substr(plain)) {
    auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      static const char kHex[] = "0123456789abcdef";
      switch (c) {
        case '\n':
          out += "\\n";
          break;
        case '\t':
          out += "\\t";
          break;
        case '\r':
          out += "\\r";
          break;
        default:
          out += "\\u00";
          out += kHex[u >> 4];
          out += kHex[u & 15];
      }
    } else {
      out += c;
    }
  }
  out += '"';
}

// Shortest text that reads back as the same double; always with a point or an exponent so that
// a reader tells it from an integer.
void PrintDouble(double v, std::string& out) {
  char buffer[32];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, v);
  (void)ec;
  std::string_view text(buffer, static_cast<size_t>(end - buffer));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

// The text being printed, handed on in pieces of about kHandOnBytes.
struct Printer {
  const TextSink& sink;
  const ColumnJobs& jobs;
  const std::function<void(size_t keys)>& progress;
  std::string out;
  struct Stopped {};  // the sink refused a piece

  void HandOn(bool all = false) {
    if (out.size() < kHandOnBytes && !(all && !out.empty())) return;
    if (!sink(out)) throw Stopped{};
    out.clear();
  }
  void Column(const Json& placeholder) {
    const ColumnJob& job = jobs.at(ColumnJobIndex(placeholder));
    out += '"';
    PrintColumn(job, out, [this] { HandOn(); });
    out += '"';
    if (progress && job.doneKeys > 0) progress(job.doneKeys);
  }
};

void PrintScalar(const Json& j, Printer& pr) {
  std::string& out = pr.out;
  switch (j.type()) {
    case Json::value_t::null:
      out += "null";
      break;
    case Json::value_t::boolean:
      out += j.get<bool>() ? "true" : "false";
      break;
    case Json::value_t::number_integer:
      out += std::to_string(j.get<int64_t>());
      break;
    case Json::value_t::number_unsigned:
      out += std::to_string(j.get<uint64_t>());
      break;
    case Json::value_t::number_float:
      PrintDouble(j.get<double>(), out);
      break;
    case Json::value_t::string:
      PrintString(j.get_ref<const std::string&>(), out);
      break;
    case Json::value_t::binary:
      pr.Column(j);
      break;
    default:
      out += "null";
  }
}

bool IsScalar(const Json& j) { return !j.is_object() && !j.is_array(); }

// A scalar, or an array or object of scalars ({"float": 0.5}, a list of names).
bool IsFlat(const Json& j) {
  if (IsScalar(j)) return true;
  return std::all_of(j.begin(), j.end(), IsScalar);
}

bool IsScalarArray(const Json& j) {
  return j.is_array() && std::all_of(j.begin(), j.end(), IsScalar);
}

// Small things and bulk numbers go on one line: a parameter without fcurve, a list of numbers,
// the keys of a curve (a list of lists), so that a deep hierarchy's indentation does not
// outweigh its data.
bool IsInline(const Json& j) {
  if (j.is_array()) {
    return std::all_of(j.begin(), j.end(), IsScalar) ||
           std::all_of(j.begin(), j.end(), IsScalarArray);
  }
  return j.is_object() && std::all_of(j.begin(), j.end(), IsFlat);
}

void PrintInline(const Json& j, Printer& pr) {
  std::string& out = pr.out;
  if (j.is_array()) {
    out += '[';
    bool first = true;
    for (const auto& item : j) {
      if (!first) out += ", ";
      first = false;
      PrintInline(item, pr);
    }
    out += ']';
  } else if (j.is_object()) {
    out += '{';
    bool first = true;
    for (const auto& [key, value] : j.items()) {
      if (!first) out += ", ";
      first = false;
      PrintString(key, out);
      out += ": ";
      PrintInline(value, pr);
    }
    out += '}';
  } else {
    PrintScalar(j, pr);
  }
}

void Print(const Json& j, int depth, Printer& pr) {
  std::string& out = pr.out;
  auto indent = [&out](int d) { out.append(static_cast<size_t>(d) * 2, ' '); };
  if (IsInline(j)) {
    PrintInline(j, pr);
  } else if (j.is_object()) {
    out += "{\n";
    bool first = true;
    for (const auto& [key, value] : j.items()) {
      if (!first) out += ",\n";
      first = false;
      indent(depth + 1);
      PrintString(key, out);
      out += ": ";
      Print(value, depth + 1, pr);
      pr.HandOn();
    }
    out += '\n';
    indent(depth);
    out += '}';
  } else if (j.is_array()) {
    out += "[\n";
    bool first = true;
    for (const auto& item : j) {
      if (!first) out += ",\n";
      first = false;
      indent(depth + 1);
      Print(item, depth + 1, pr);
      pr.HandOn();
    }
    out += '\n';
    indent(depth);
    out += ']';
  } else {
    PrintScalar(j, pr);
  }
}

bool Document(Json scene, const ColumnJobs& jobs, const TextSink& sink,
              const std::function<void(size_t keys)>& progress) {
  Json doc = NewObject();
  doc["format"] = kSceneFileFormat;
  doc["version"] = kSceneFileVersion;
  doc["scene"] = std::move(scene);
  Printer pr{sink, jobs, progress, std::string()};
  pr.out.reserve(kHandOnBytes + kHandOnBytes / 4);
  try {
    Print(doc, 0, pr);
    pr.out += '\n';
    pr.HandOn(true);
  } catch (const Printer::Stopped&) {
    return false;
  }
  return true;
}

}  // namespace

WriteOutcome WriteSceneText(const Scene& scene, const TextSink& sink,
                            const std::function<void(size_t keys)>& progress) {
  BranchWriteOptions options;
  options.progress = progress;
  Writer writer(options);
  Json out = NewObject();
  try {
    out["kind"] = "scene";
    out["root"] = writer.X3DJson(*scene.root);
    out["currentPass"] = Utf8(scene.currentPass);
    Json passes = Json::array();
    for (const auto& pass : scene.passes->items) passes.push_back(writer.Generic(*pass));
    out["passes"] = std::move(passes);
    Json groups = Json::array();
    for (const auto& item : scene.groups->items) {
      Json g = NewObject();
      g["name"] = Utf8(item->name);
      writer.ParamsAndProperties(*item, g);
      Json members = Json::array();
      if (auto* group = dynamic_cast<const GroupObject*>(item.get())) {
        for (const auto& m : group->members) {
          auto member = m.lock();
          if (member && member->alive) members.push_back(Utf8(member->FullName()));
        }
      }
      g["members"] = std::move(members);
      groups.push_back(std::move(g));
    }
    out["groups"] = std::move(groups);
    out["playControl"] = writer.PropertyJson(*scene.playControl);
    out["preferences"] = writer.PropertyJson(*scene.preferences);
    out["exportOptions"] = writer.PropertyJson(*scene.exportOptions);
  } catch (const Refusal& r) {
    return WriteOutcome{false, r.what};
  }
  return WriteOutcome{Document(std::move(out), writer.Jobs(), sink, progress), {}};
}

WriteOutcome WriteBranchText(const X3D& top, const BranchWriteOptions& options,
                             const TextSink& sink) {
  Writer writer(options);
  Json out = NewObject();
  out["kind"] = "branch";
  out["fullName"] = Utf8(top.FullName());
  try {
    out["root"] = writer.X3DJson(top);
  } catch (const Refusal& r) {
    return WriteOutcome{false, r.what};
  }
  return WriteOutcome{Document(std::move(out), writer.Jobs(), sink, options.progress), {}};
}

std::string WriteSceneText(const Scene& scene, const std::function<void(size_t keys)>& progress) {
  std::string text;
  if (!WriteSceneText(
           scene, [&text](std::string_view piece) { return text.append(piece), true; }, progress)
           .written) {
    text.clear();
  }
  return text;
}

std::string WriteBranchText(const X3D& top, const BranchWriteOptions& options) {
  std::string text;
  if (!WriteBranchText(top, options, [&text](std::string_view piece) {
         return text.append(piece), true;
       }).written) {
    text.clear();
  }
  return text;
}

}  // namespace Zyra::rt
