// Save Actor: the checks, the scene preparation, the export and the weight file.
#include "knrexport/actor/save_actor.h"

#include <string>

#include "knrexport/actor/actor_file_writer.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/actor/weight_maps.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/tags.h"
#include "knrexport/scene/text_utils.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kGeneratedPrefix = L"Knr";
constexpr const wchar_t* kActorNotWritten = L"the actor file could not be written";
constexpr const wchar_t* kWeightsNotWritten = L"the weight file could not be written";

bool Run(const wchar_t* command, const CValueArray& args) {
  CValue ignored;
  return Application().ExecuteCommand(command, args, ignored).Succeeded();
}

// The export options, set in this order before every save.
void SetExportOptions() {
  struct Option {
    const wchar_t* path;
    CValue value;
  };
  const Option options[] = {
      {L"dotZyraExportOptions.output_file_format_version", 360},
      {L"dotZyraExportOptions.tesselation", true},
      {L"dotZyraExportOptions.polymesh", true},
      {L"dotZyraExportOptions.nrbscrv", true},
      {L"dotZyraExportOptions.animall", true},
      {L"dotZyraExportOptions.custompset", true},
      {L"dotZyraExportOptions.animplot", false},
      {L"dotZyraExportOptions.textures", true},
      {L"dotZyraExportOptions.txtfiles", true},
      {L"dotZyraExportOptions.txtformat", 5},
      {L"dotZyraExportOptions.txtresizex", 0},
      {L"dotZyraExportOptions.txtresizey", 0},
      {L"dotZyraExportOptions.txtabsolute", false},
      {L"dotZyraExportOptions.txtsequences", false},
  };
  for (const Option& option : options) Run(L"SetValue", {option.path, option.value});
}

// The source actor `generated` was made from, when it is still in the scene; else invalid.
Model SourceOf(const Model& generated) {
  const std::wstring name = generated.GetName().Wide();
  const std::wstring prefix = kGeneratedPrefix;
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return Model();
  Model source(Application().GetObjectFromPath(CString(name.substr(prefix.size()))));
  return source.IsValid() && source.GetParent() == Application().GetActiveSceneRoot().GetRef()
             ? source
             : Model();
}

// "<path>: <what> (<why>)." for a message box.
CString Failure(const std::string& path, const wchar_t* what, const std::string& why) {
  return CString(path) + L": " + what + L" (" + CString(why) + L").";
}

// The host's reason for a failed export: its message without the file name it starts with (the
// temporary file's, which means nothing to the user).
std::string ExportReason(const CStatus& status, const std::string& temporary) {
  std::string message = status.GetMessage().GetAsciiString();
  const std::string prefix = temporary + ": ";
  if (message.compare(0, prefix.size(), prefix) == 0) message.erase(0, prefix.size());
  while (!message.empty() && (message.back() == '.' || message.back() == '\n')) message.pop_back();
  return message.empty() ? "the exporter failed" : message;
}

// Exports the model into a temporary file, writes the weight file into another and puts both in
// place together (actor_file_writer.h): on any failure the older pair stays as it was, no
// temporary file is left, and the message names the file at fault with the reason.
bool WriteActorFiles(Model& model, const CString& file, const WeightList& records) {
  const std::string actorPath = file.GetAsciiString();
  const std::string weightPath = WeightFileName(file).GetAsciiString();
  PendingFile actor(actorPath), weights(weightPath);
  std::string problem;
  if (!actor.Create(problem)) {
    ShowMessage(Failure(actorPath, kActorNotWritten, problem));
    return false;
  }
  CValue ignored;
  const CStatus exported = Application().ExecuteCommand(
      L"ZrExportDotZyraFile", {CValue(model.GetRef()), CString(actor.Path())}, ignored);
  if (!exported.Succeeded()) {
    ShowMessage(Failure(actorPath, kActorNotWritten, ExportReason(exported, actor.Path())));
    return false;
  }
  if (!weights.Create(problem) || !weights.Write(EncodeWeightFile(records), problem)) {
    ShowMessage(Failure(weightPath, kWeightsNotWritten, problem));
    return false;
  }
  std::string failed;
  if (!PutActorFilesInPlace(actor, weights, failed, problem)) {
    ShowMessage(
        Failure(failed, failed == actorPath ? kActorNotWritten : kWeightsNotWritten, problem));
    return false;
  }
  return true;
}

}  // namespace

Property AddActorFileProperty() {
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  Property remembered;
  if (FindCustomPSet(sceneRoot, L"ActorFile", remembered)) return remembered;
  CustomProperty property = sceneRoot.AddProperty(L"Custom_parameter_list", false, L"ActorFile");
  AddParam(property, L"InitDir", siString, 0, Application().GetInstallationPath(siUserPath));
  return property;
}

CString ChooseActorFile(const CString& title, bool open) {
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  Property remembered;
  const bool known = FindCustomPSet(sceneRoot, L"ActorFile", remembered);
  const CString initDir = known ? remembered.GetParameterValue(L"InitDir").GetAsText()
                                : Application().GetInstallationPath(siUserPath);
  const CString file = FileBrowser(kActorFileFilter, title, initDir, open);
  if (file.IsEmpty()) return file;
  if (!known) remembered = AddActorFileProperty();
  remembered.PutParameterValue(L"InitDir", ExtractPath(file));
  return file;
}

bool SaveActor(X3DObject& selected) {
  Model model;
  if (!GetActorModel(selected, model)) return false;
  if (CheckForEmbeddedModel(model)) {
    ShowMessage(
        L"Actor descriptions must be contained by a single model (embedded models not supported).");
    return false;
  }
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  if (!HasTag(root, kTagActor)) {
    ShowMessage(
        L"The actor must be properly generated before it can be saved.\n"
        L"Please try the Generate action and save the resultant actor.");
    return false;
  }
  const CString file = ChooseActorFile(L"Save Actor", false);
  if (file.IsEmpty()) return false;

  // Bar: one step for the scan, one for spheres and floors, one per weight map, one for the pose.
  ProgressBar bar = ShowProgressBar(ComputeWeightMapSize(model) + 3, L"Scanning Hierarchy");
  bar.Increment();
  bar.PutCaption(L"Save action");
  Model source = SourceOf(model);
  X3DObject sourceRoot;
  if (source.IsValid() && GetRootNode(source, sourceRoot, false)) {
    SynchronizeRTKSphere(sourceRoot, root);
    SynchronizeRTKFloor(sourceRoot, root);
  }
  bar.Increment();
  bar.PutCaption(L"Processing Weight Map");
  WeightList records;
  SynchronizeWeightMaps(source, model, records, bar);

  if (model.GetSources().GetCount() > 0) {
    RemoveFCurves(root);
    GotoHome(root, ProgressBar());
  }
  Property loopSkill;
  if (FindCustomPSet(root, L"LoopSkill", loopSkill)) DeleteObj(loopSkill.GetFullName());
  bar.PutCancelEnabled(false);
  FinishProgressBar(bar);
  Run(L"SelectObj", {CValue(model.GetRef())});

  SetExportOptions();
  const bool done = WriteActorFiles(model, file, records);
  CleanupWeightData(records);
  return done;
}
