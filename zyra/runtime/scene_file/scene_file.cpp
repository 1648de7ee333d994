// Scene files on disk: opening and saving the scene, exporting and importing branches. Files are
// written as their text is made and read as they stream in (scene_file_columns.h), so neither
// direction holds a file's whole text.
#include "scene_file/scene_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "files/atomic_file.h"
#include "files/regular_file.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file_progress.h"

namespace Zyra::rt {

namespace {

CStatus FileError(const std::string& path, const char* what, int error) {
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what + ": " + std::strerror(error)));
}

}  // namespace

CStatus ReadWholeFile(const std::string& path, std::string& text) {
  text.clear();
  CStatus opened;
  const int fd = OpenRegularFile(path, opened);
  if (fd < 0) return opened;
  std::FILE* file = ::fdopen(fd, "rb");
  if (!file) {
    const int error = errno;
    ::close(fd);
    return FileError(path, "cannot open", error);
  }
  // One buffer of the file's size, filled by one read; whatever a file that grows meanwhile adds
  // is read after it.
  struct stat info {};
  if (::fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
    text.resize(static_cast<size_t>(info.st_size));
    text.resize(std::fread(text.data(), 1, text.size(), file));
  }
  char buffer[1 << 16];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, n);
  int error = std::ferror(file) ? errno : 0;
  std::fclose(file);
  if (error) {
    text.clear();
    return FileError(path, "cannot read", error);
  }
  return CStatus::OK;
}

void DestroySceneObjects(Scene& scene) {
  for (const std::shared_ptr<Object>& o :
       {std::shared_ptr<Object>(scene.root), std::shared_ptr<Object>(scene.groups),
        std::shared_ptr<Object>(scene.passes), std::shared_ptr<Object>(scene.playControl),
        std::shared_ptr<Object>(scene.preferences), std::shared_ptr<Object>(scene.exportOptions)}) {
    Destroy(o);
  }
}

void SwapInScene(Scene scene) {
  Scene old = std::move(OpenScene());
  OpenScene() = std::move(scene);
  DestroySceneObjects(old);
}

namespace {

size_t CountKeys(const Object& object) {
  size_t n = 0;
  if (object.classId == siFCurveID) n += static_cast<const FCurveObject&>(object).keys.size();
  object.ForEachOwned([&n](const std::shared_ptr<Object>& o) { n += CountKeys(*o); });
  return n;
}

std::wstring FileName(const std::string& path) {
  return FromUtf8(path.substr(path.rfind('/') + 1));
}

// Writes the file through the atomic writer as the text is made. A scene the writer refuses
// leaves the target as it was and no temporary file ("<path>: cannot write: <what>").
CStatus WriteStreaming(const std::string& path,
                       const std::function<WriteOutcome(const TextSink& sink)>& write) {
  ReplacingFile file(path);
  CStatus status = file.Open();
  if (!status.Succeeded()) return status;
  const WriteOutcome outcome = write([&file](std::string_view piece) { return file.Write(piece); });
  if (!outcome.refusal.empty()) {
    return CStatus(CStatus::Fail, FromUtf8(path + ": cannot write: " + outcome.refusal));
  }
  return file.Commit();  // a write that failed is reported here, with the system's reason
}

}  // namespace

CStatus SaveSceneFile(const std::string& path) {
  const Scene& scene = OpenScene();
  FileProgress progress(L"Saving " + FileName(path), CountKeys(*scene.root));
  return WriteStreaming(path, [&](const TextSink& sink) {
    return WriteSceneText(scene, sink, [&progress](size_t n) { progress.Advance(n); });
  });
}

CStatus OpenSceneFile(const std::string& path) {
  Scene scene;
  CStatus status = ReadSceneFile(path, scene);
  if (!status.Succeeded()) return status;
  SwapInScene(std::move(scene));
  return CStatus::OK;
}

CStatus ExportBranch(const std::shared_ptr<X3D>& object, const std::string& path) {
  const Scene& scene = OpenScene();
  BranchWriteOptions options;
  auto flag = [&scene](const wchar_t* name) {
    const Parameter* p = scene.exportOptions ? scene.exportOptions->FindParam(name) : nullptr;
    return !p || p->value.AsBool();
  };
  options.customProperties = flag(L"custompset");
  options.animation = flag(L"animall");
  options.frame = CurrentFrame();
  return WriteStreaming(
      path, [&](const TextSink& sink) { return WriteBranchText(*object, options, sink); });
}

CStatus ImportBranch(const std::string& path, const std::shared_ptr<X3D>& parent,
                     std::shared_ptr<X3D>& out) {
  return ReadBranchFile(path, parent, out);
}

}  // namespace Zyra::rt
