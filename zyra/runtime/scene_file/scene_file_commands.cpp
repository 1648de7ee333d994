// Host commands for scene files: export and import of branches, save, open and new scene.
#include "host/args.h"
#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"

namespace Zyra::rt {

namespace {

// A file-name argument: a non-empty string.
bool FileArg(const CValueArray& args, long i, std::string& out) {
  if (Arg(args, i).GetType() != siString) return false;
  out = args[i].GetAsText().GetAsciiString();
  return !out.empty();
}

// "ZrExportDotZyraFile"(object, file): writes the object's branch with the export options.
CStatus ExportCommand(const CValueArray& args, CValue& result) {
  const wchar_t* name = L"ZrExportDotZyraFile";
  auto object = std::dynamic_pointer_cast<X3D>(ArgObject(Arg(args, 0)));
  if (!object) {
    return ArgError(
        name, L"the first argument must name a 3D object, got " + Quoted(Arg(args, 0)) + L".");
  }
  std::string file;
  if (!FileArg(args, 1, file)) return ArgError(name, L"the second argument must be a file name.");
  result = CValue();
  return ExportBranch(object, file);
}

// "ZrImportDotZyraFile"(file[, parent]): reads a branch under the parent (the scene root when
// none is given) and returns its top object. A file that fails imports nothing, and its failure
// (naming the file) is returned; run by another command (a plug-in's), the importer also logs it
// as an error and fails the script line that ran that command, so that a caller that reads only
// the scene (did a child come in?) cannot end a run in silence.
CStatus ImportCommand(const CValueArray& args, CValue& result) {
  const wchar_t* name = L"ZrImportDotZyraFile";
  std::string file;
  if (!FileArg(args, 0, file)) return ArgError(name, L"the first argument must be a file name.");
  std::shared_ptr<X3D> parent = Host::Get().scene().root;
  if (!Arg(args, 1).IsEmpty()) {
    parent = std::dynamic_pointer_cast<X3D>(ArgObject(args[1]));
    if (!parent) {
      return ArgError(name,
                      L"the second argument must name a 3D object, got " + Quoted(args[1]) + L".");
    }
  }
  std::shared_ptr<X3D> top;
  CStatus status = ImportBranch(file, parent, top);
  if (!status.Succeeded()) {
    if (Host::Get().CommandDepth() > 1) Host::Get().LogCommandFailure(status);
    return status;
  }
  result = CValue(CRef(top));
  return CStatus::OK;
}

CStatus SaveCommand(const CValueArray& args, CValue& result) {
  std::string file;
  if (!FileArg(args, 0, file)) return ArgError(L"SaveScene", L"the argument must be a file name.");
  result = CValue();
  return SaveSceneFile(file);
}

CStatus OpenCommand(const CValueArray& args, CValue& result) {
  std::string file;
  if (!FileArg(args, 0, file)) return ArgError(L"OpenScene", L"the argument must be a file name.");
  result = CValue();
  return OpenSceneFile(file);
}

CStatus NewSceneCommand(const CValueArray&, CValue& result) {
  result = CValue();
  Host::Get().NewScene();
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"ZrExportDotZyraFile", ExportCommand);
ZYRA_HOST_COMMAND(L"ZrImportDotZyraFile", ImportCommand);
ZYRA_HOST_COMMAND(L"SaveScene", SaveCommand);
ZYRA_HOST_COMMAND(L"OpenScene", OpenCommand);
ZYRA_HOST_COMMAND(L"NewScene", NewSceneCommand);

}  // namespace Zyra::rt
