// The scene-file reader, values: typed parameter values and the references
// by full name that resolve once every object of the file exists.
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "scene_file/scene_file_reader.h"

namespace Zyra::rt::scene_reading {

namespace {

// How deep arrays nest in `j` (a scalar: 0), counted without recursion and only up to
// kMaxValueDepth + 1, so that a value nested beyond any stack is measured in a loop.
int ArrayDepth(const Json& j) {
  int deepest = 0;
  std::vector<std::pair<const Json*, int>> open{{&j, 1}};  // arrays to visit, with their depth
  while (!open.empty() && deepest <= kMaxValueDepth) {
    auto [array, depth] = open.back();
    open.pop_back();
    if (!array->is_array()) continue;
    deepest = std::max(deepest, depth);
    for (const Json& item : *array) {
      if (item.is_array()) open.emplace_back(&item, depth + 1);
    }
  }
  return deepest;
}

}  // namespace

void Reader::Value(const Json& j, const Path& p, CValue& slot) {
  // Decoding recurses once per level: a deeper value is refused before it starts.
  if (ArrayDepth(j) > kMaxValueDepth) {
    Fail(p, "the value nests arrays deeper than " + std::to_string(kMaxValueDepth) + " levels");
  }
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

CValue Reader::Decode(const Json& j, const Path& p, const std::string* where, bool& refs) {
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

void Reader::ResolveAll() {
  for (const auto& [where, resolve] : pending_) resolve(where);
  for (const auto& finish : finishers_) finish();
}

std::shared_ptr<rt::Object> Reader::Referent(const std::wstring& fullName,
                                             const std::string& where) {
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
      current =
          current->Lookup(fullName.substr(start, next == std::wstring::npos ? next : next - start));
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

std::shared_ptr<X3D> Reader::Deformer(const std::wstring& fullName, const std::string& where) {
  auto object = Referent(fullName, where);
  if (!object) return nullptr;
  auto x3d = std::dynamic_pointer_cast<X3D>(object);
  if (!x3d) throw FormatError{where, "\"" + ToUtf8(fullName) + "\" is not a 3D object"};
  return x3d;
}

}  // namespace Zyra::rt::scene_reading
