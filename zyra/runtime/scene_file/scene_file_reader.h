// The scene-file reader: builds a detached object graph from the JSON tree of a scene file.
// Every structural error names the JSON path of the element at fault; references by full name
// (envelope deformers, chain links, group members, object values) resolve once every object
// of the file exists. Private to the scene-file reader.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/model.h"
#include "scene_file/scene_file_columns.h"
#include "scene_file/scene_file_json.h"

namespace Zyra::rt::scene_reading {

class Reader {
 public:
  // `live`: references the file does not satisfy may name objects of the open scene (a branch
  // bound to deformers outside it); otherwise they are errors.
  // `columns`: the number columns cut out of the parsed text (they live as long as the reader).
  Reader(bool live, Columns& columns) : live_(live), columns_(columns) {}

  // Builds the content of X3D object `j` into `object`, which already exists under its parent.
  // `childPrefix` is the full-name prefix of the objects in the name space of its children.
  void X3DContent(const Json& j, const Path& p, const std::shared_ptr<X3D>& object,
                  const std::wstring& childPrefix, int depth);

  // Makes the 3D object `j` under `parent`, registered under `prefix` + its name.
  std::shared_ptr<X3D> Child(const Json& j, const Path& p, const std::shared_ptr<X3D>& parent,
                             const std::wstring& prefix, int depth);

  void Register(const std::wstring& fullName, const std::shared_ptr<X3D>& object, const Path& p);

  // "params" and "properties" of any object, merged into what it already has.
  void ObjectContent(const Json& j, const Path& p, const std::shared_ptr<rt::Object>& owner,
                     int depth);

  // Parameters: a parameter the owner already has (a built-in one) takes the file's definition
  // and value; others are added in file order.
  void Params(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner);

  void Properties(const Json& list, const Path& p, const std::shared_ptr<rt::Object>& owner,
                  int depth);

  void PropertyContent(const Json& j, const Path& p, const std::shared_ptr<Property>& property,
                       int depth);

  // Values keep their type: see EncodeValue in the writer. Object references resolve later.
  void Value(const Json& j, const Path& p, CValue& slot);

  // With `where` null, references decode as empty and set `refs`; with it, they resolve.
  CValue Decode(const Json& j, const Path& p, const std::string* where, bool& refs);

  void ReadPrimitive(const Json& j, const Path& p, const std::shared_ptr<X3D>& object, int depth);

  void ReadEnvelope(const Json& j, const Path& p, const std::shared_ptr<X3D>& object, int depth);

  void Sources(const Json& list, const Path& p, const std::shared_ptr<ModelObject>& model,
               int depth);

  // A container (when it has "items") or a plain object with parameters and properties.
  std::shared_ptr<rt::Object> Generic(const Json& j, const Path& p, int depth);

  // ---- References -----------------------------------------------------------------------------

  // Runs `resolve` once every object of the file exists; it gets the path text for messages.
  template <class F>
  void Later(const Path& p, F resolve) {
    pending_.push_back({p.Text(), std::function<void(const std::string&)>(std::move(resolve))});
  }

  // Resolves every reference; the first that fails throws.
  void ResolveAll();

  // An object by the full name it had when the file was written: a 3D object of the file, or a
  // path below one ("Hips.kine.local.posx"); else, for imports, an object of the open scene.
  std::shared_ptr<rt::Object> Referent(const std::wstring& fullName, const std::string& where);

  std::shared_ptr<X3D> Deformer(const std::wstring& fullName, const std::string& where);

  std::unordered_map<std::wstring, std::shared_ptr<X3D>> byName_;

 private:
  bool live_;
  Columns& columns_;
  std::vector<std::pair<std::string, std::function<void(const std::string&)>>> pending_;
  std::vector<std::function<void()>> finishers_;
};

}  // namespace Zyra::rt::scene_reading
