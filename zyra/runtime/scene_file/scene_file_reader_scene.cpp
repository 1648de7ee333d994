// The scene-file reader, scene level: checks the file's header, reads a whole scene (root,
// passes, groups, play control, preferences, export options) or a branch, and hands the complete
// graph over only when everything read and resolved.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "files/regular_file.h"
#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "scene_file/scene_file_progress.h"
#include "scene_file/scene_file_reader.h"

namespace Zyra::rt {

using namespace scene_reading;

namespace {

// ---- Header and scene ---------------------------------------------------------------------------

CStatus Structural(const std::string& fileName, const FormatError& e) {
  std::string where = e.where.empty() ? std::string() : "at " + e.where + ": ";
  return CStatus(CStatus::Fail, FromUtf8(fileName + ": " + where + e.what));
}

// Checks the header of a parsed document.
CStatus CheckHeader(const Json& doc, const std::string& fileName) {
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

std::wstring OpeningCaption(const std::string& fileName) {
  return L"Opening " + FromUtf8(fileName.substr(fileName.rfind('/') + 1));
}

// Parses text in memory and checks the header; fails with the file's name.
CStatus ParseText(const std::string& text, const std::string& fileName, Json& doc,
                  Columns& columns) {
  try {
    FileProgress progress(OpeningCaption(fileName), text.size());
    std::string syntax;
    const bool parsed = ParseJson(text, doc, syntax, columns);
    progress.Advance(text.size());
    if (!parsed) {
      return CStatus(CStatus::Fail, FromUtf8(fileName + ": not a scene file: " + syntax));
    }
  } catch (const FormatError& e) {
    return Structural(fileName, e);
  }
  return CheckHeader(doc, fileName);
}

CStatus FileError(const std::string& path, const char* what, int error) {
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what + ": " + std::strerror(error)));
}

struct ReadFailure {
  int error;
};

// Parses a file as it is read, through a buffer of `bufferSize` bytes, and checks the header. A
// file that is no valid JSON is read again whole, for the message's line and column.
CStatus ParseFile(const std::string& path, Json& doc, Columns& columns, size_t bufferSize) {
  CStatus opened;
  const int fd = OpenRegularFile(path, opened);
  if (fd < 0) return opened;
  struct stat info {};
  const size_t size =
      ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) ? static_cast<size_t>(info.st_size) : 0;
  auto read = [fd](char* into, size_t capacity) -> size_t {
    size_t got = 0;
    while (got < capacity) {
      const ssize_t n = ::read(fd, into + got, capacity - got);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw ReadFailure{errno};
      if (n == 0) break;
      got += static_cast<size_t>(n);
    }
    return got;
  };
  bool parsed = false;
  try {
    FileProgress progress(OpeningCaption(path), size);
    parsed = ParseJsonStream(read, bufferSize, doc, columns,
                             [&progress](size_t n) { progress.Advance(n); });
  } catch (const ReadFailure& e) {
    ::close(fd);
    return FileError(path, "cannot read", e.error);
  } catch (const FormatError& e) {
    ::close(fd);
    return Structural(path, e);
  } catch (...) {
    ::close(fd);
    throw;
  }
  ::close(fd);
  if (parsed) return CheckHeader(doc, path);
  std::string text;
  CStatus status = ReadWholeFile(path, text);
  if (!status.Succeeded()) return status;
  return ParseText(text, path, doc, columns);
}

// The branch's top object under `parent`, named `name`; its file full name is `fullName`.
std::shared_ptr<X3D> BranchTop(Reader& reader, const Json& top, const Path& p,
                               const std::shared_ptr<X3D>& parent, const std::wstring& fullName,
                               const std::wstring& name) {
  const siClassID cls = X3DClass(top, p);
  std::wstring fileName = ReadName(Member(top, "name", p), p / "name");
  std::wstring type = ReadString(Member(top, "type", p), p / "type");
  auto object = CreateX3D(parent, cls, type, name);
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

// Builds the scene of a parsed document apart from the open one.
CStatus BuildScene(const Json& doc, Columns& columns, const std::string& fileName, Scene& out) {
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
    Reader reader(false, columns);
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

// Builds the branch of a parsed document and moves it under `parent`.
CStatus BuildBranch(const Json& doc, Columns& columns, const std::string& fileName,
                    const std::shared_ptr<X3D>& parent, std::shared_ptr<X3D>& out) {
  // The branch is built under a holder outside the scene and moved under `parent` only when
  // it is complete.
  auto holder = CreateModel(nullptr, L"Import");
  std::shared_ptr<X3D> top;
  try {
    Path root{nullptr, "scene", 0};
    const Json& scene = ExpectObject(Member(doc, "scene", Path{}), root);
    Reader reader(true, columns);
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
  CStatus status = Reparent(top, parent, false);
  Destroy(holder);
  if (!status.Succeeded()) {
    Destroy(top);
    return status;
  }
  out = top;
  return CStatus::OK;
}

}  // namespace

CStatus ReadSceneText(const std::string& text, const std::string& fileName, Scene& out) {
  Json doc;
  Columns columns;
  CStatus status = ParseText(text, fileName, doc, columns);
  return status.Succeeded() ? BuildScene(doc, columns, fileName, out) : status;
}

CStatus ReadSceneFile(const std::string& path, Scene& out, size_t bufferSize) {
  Json doc;
  Columns columns;
  CStatus status = ParseFile(path, doc, columns, bufferSize);
  return status.Succeeded() ? BuildScene(doc, columns, path, out) : status;
}

CStatus ReadBranchText(const std::string& text, const std::string& fileName,
                       const std::shared_ptr<X3D>& parent, std::shared_ptr<X3D>& out) {
  out.reset();
  Json doc;
  Columns columns;
  CStatus status = ParseText(text, fileName, doc, columns);
  return status.Succeeded() ? BuildBranch(doc, columns, fileName, parent, out) : status;
}

CStatus ReadBranchFile(const std::string& path, const std::shared_ptr<X3D>& parent,
                       std::shared_ptr<X3D>& out) {
  out.reset();
  Json doc;
  Columns columns;
  CStatus status = ParseFile(path, doc, columns, kSceneReadBuffer);
  return status.Succeeded() ? BuildBranch(doc, columns, path, parent, out) : status;
}

}  // namespace Zyra::rt
