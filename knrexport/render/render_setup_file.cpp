// The render setup: the ".knrn" file, the scene files and render archives beside it.
#include "knrexport/render/render_setup_file.h"

#include <string>

#include "knrexport/render/render_visibility.h"
#include "knrexport/scene/file_reading.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/text_utils.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

// Scene export options for a target's scene file: geometry, custom properties and textures,
// without animation.
struct ExportOption {
  const wchar_t* name;
  CValue value;
};
const ExportOption kSceneExportOptions[] = {
    {L"dotZyraExportOptions.output_file_format_version", 360},
    {L"dotZyraExportOptions.tesselation", true},
    {L"dotZyraExportOptions.polymesh", true},
    {L"dotZyraExportOptions.nrbscrv", true},
    {L"dotZyraExportOptions.animall", false},
    {L"dotZyraExportOptions.custompset", true},
    {L"dotZyraExportOptions.animplot", false},
    {L"dotZyraExportOptions.textures", true},
    {L"dotZyraExportOptions.txtfiles", false},
    {L"dotZyraExportOptions.txtformat", 0},
    {L"dotZyraExportOptions.txtresizex", 0},
    {L"dotZyraExportOptions.txtresizey", 0},
    {L"dotZyraExportOptions.txtabsolute", false},
    {L"dotZyraExportOptions.txtsequences", false},
};

// Runs a host command; a failure does not stop the generation, the host has logged it.
// Points the current pass's archive at `path` and writes frames first..last.
void ExportArchive(const CString& path, int first, int last) {
  Pass pass(RunCommand(L"GetCurrentPass", {}).AsRef());
  const CString name = pass.GetFullName();
  RunCommand(L"SetValue", {name + L".ArchiveFileName", path});
  RunCommand(L"SetValue", {name + L".renderer.ArchiveAsciiOutput", true});
  RunCommand(L"ExportRenderArchive", {CValue(pass.GetRef()), first, last, 1});
}

void WriteLine(std::FILE* out, const CString& text) {
  std::fputs((text.GetAsciiString() + "\n").c_str(), out);
}

void Report(const CString& text, bool doui) {
  if (doui) {
    ShowMessage(text);
  } else {
    Application().LogMessage(text, siCommentMsg);
  }
}

bool Contains(const CRefArray& refs, const CRef& ref) {
  for (long i = 0; i < refs.GetCount(); ++i) {
    if (refs[i] == ref) return true;
  }
  return false;
}

// True when a model of `models` other than `model` holds it.
bool InsideAnother(const Model& model, const CRefArray& models) {
  for (CRef up = model.GetParent(); X3DObject(up).IsValid(); up = X3DObject(up).GetParent()) {
    if (Contains(models, up)) return true;
  }
  return false;
}

// Checks that the setup file can be written without touching an existing one; `created` tells
// whether the check made an empty file that a refusal must remove again. Anything but a regular
// file in its place (a folder, a FIFO that would wait for a reader, a device) is refused with
// `refused` saying what it is, before it is opened.
bool ProbeSetupFile(const std::string& path, bool& created, std::string& refused) {
  created = false;
  if (path.empty()) return false;
  const FileState state = CheckRegularFile(path, refused);
  if (state == FileState::kRefused) return false;
  // Appending creates a missing file and never truncates.
  std::FILE* probe = std::fopen(path.c_str(), "a");
  if (!probe) return false;
  std::fclose(probe);
  created = state == FileState::kMissing;
  return true;
}

}  // namespace

CRefArray CollectTargetModels(const Group& group) {
  CRefArray models;
  if (!group.IsValid()) return models;
  const CRef root = Application().GetActiveSceneRoot().GetRef();
  CRefArray members = group.GetMembers();
  for (long i = 0; i < members.GetCount(); ++i) {
    Model model(members[i]);
    if (model.IsValid() && model.GetRef() != root && !Contains(models, model.GetRef()))
      models.Add(model.GetRef());
  }
  CRefArray outermost;
  for (long i = 0; i < models.GetCount(); ++i) {
    if (!InsideAnother(Model(models[i]), models)) outermost.Add(models[i]);
  }
  return outermost;
}

void ExportTarget(Model& model, const CString& dir, std::FILE* out) {
  const CString name = model.GetName();
  WriteLine(out, name);
  RunCommand(L"SelectObj", {CValue(model.GetRef())});
  for (const ExportOption& option : kSceneExportOptions)
    RunCommand(L"SetValue", {option.name, option.value});
  RunCommand(L"ZrExportDotZyraFile", {CValue(model.GetRef()), dir + L"/" + name + L".zyra"});
  ExportArchive(dir + L"/" + name, 1, 1);
}

void ExportScene(const CString& dir, int start, int end, std::FILE*) {
  ExportArchive(dir + L"/env", start, end);
}

bool GenerateRenderSetup(const CString& file, const CRef& targetGroup, int start, int end,
                         bool domap, const CString& className, bool doui) {
  const std::string path = file.GetAsciiString();
  bool created = false;
  std::string refused;
  if (!ProbeSetupFile(path, created, refused)) {
    if (!refused.empty())
      Application().LogMessage(file + L": " + CString(refused) + L".", siErrorMsg);
    Report(kRenderSetupNoFile, doui);
    return false;
  }
  Group group(targetGroup);
  CRefArray targets = CollectTargetModels(group);
  if (targets.GetCount() == 0) {
    if (created) std::remove(path.c_str());
    Report(group.IsValid() ? kRenderSetupNoModels : kRenderSetupNoGroup, doui);
    return false;
  }
  std::FILE* out = std::fopen(path.c_str(), "wt");
  if (!out) {
    Report(kRenderSetupNoFile, doui);
    return false;
  }
  const CString dir = ExtractPath(file);
  const long count = targets.GetCount();

  ScopedLogOff logOff;
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  HideEnv(sceneRoot, targets, true);
  std::fprintf(out, "%d\n%d\n%d\n", static_cast<int>(count), start, end);

  ProgressBar bar = ShowProgressBar(5 * count + 7, kRenderSetupCaption);
  for (long i = 0; i < count; ++i) {
    X3DObject target(targets[i]);
    HideActor(target, true);
    bar.Increment();
  }
  // Each target is archived alone: shown, exported and hidden again.
  for (long i = 0; i < count; ++i) {
    Model target(targets[i]);
    HideActor(target, false);
    bar.Increment();
    ExportTarget(target, dir, out);
    bar.Increment();
    HideActor(target, true);
    bar.Increment();
  }
  HideEnv(sceneRoot, targets, false);
  bar.Increment();
  ExportScene(dir, start, end, out);
  for (long i = 0; i < count; ++i) {
    X3DObject target(targets[i]);
    HideActor(target, false);
    bar.Increment();
  }
  std::fprintf(out, "%d\n", domap ? 1 : 0);
  WriteLine(out, className);
  std::fclose(out);
  FinishProgressBar(bar);
  return true;
}
