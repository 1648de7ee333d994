// Save Actor: the checks, the scene preparation, the export and the weight file.
#include "knrexport/actor/save_actor.h"

#include <filesystem>
#include <system_error>

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

// Keeps the weight file that a save is about to replace, so that the pair can be put back when
// the actor file cannot be replaced after the weight file was: a hard link beside it (a copy where
// the file system has no links). Nothing is kept when there was no weight file.
class WeightFileBackup {
 public:
  explicit WeightFileBackup(const std::filesystem::path& file) : file_(file) {
    backup_ = file;
    backup_ += L".old";
    std::error_code error;
    std::filesystem::remove(backup_, error);
    if (!std::filesystem::is_regular_file(file_, error)) return;
    std::filesystem::create_hard_link(file_, backup_, error);
    if (error) std::filesystem::copy_file(file_, backup_, error);
    kept_ = !error;
  }
  ~WeightFileBackup() {
    std::error_code error;
    if (kept_) std::filesystem::remove(backup_, error);
  }
  // Puts the older weight file back (or removes the new one when there was none).
  void Restore() {
    std::error_code error;
    if (kept_) {
      std::filesystem::rename(backup_, file_, error);
      kept_ = !!error;
    } else {
      std::filesystem::remove(file_, error);
    }
  }
  WeightFileBackup(const WeightFileBackup&) = delete;
  WeightFileBackup& operator=(const WeightFileBackup&) = delete;

 private:
  std::filesystem::path file_, backup_;
  bool kept_ = false;
};

// Exports the model through a temporary file and writes the weight file; both replace older
// files only once written whole, and when the actor file cannot be replaced the older weight
// file is put back, so the two files on disk always belong together.
bool WriteActorFiles(Model& model, const CString& file, const WeightList& records) {
  const std::filesystem::path target(file.Wide());
  std::filesystem::path temporary = target;
  temporary += L".tmp";
  std::error_code error;
  if (!Run(L"ZrExportDotZyraFile", {CValue(model.GetRef()), CString(temporary.wstring())}) ||
      !std::filesystem::exists(temporary, error)) {
    std::filesystem::remove(temporary, error);
    ShowMessage(file + L": the actor file could not be written.");
    return false;
  }
  const CString weightFile = WeightFileName(file);
  WeightFileBackup older(std::filesystem::path(weightFile.Wide()));
  if (!WriteWeightFile(weightFile, records)) {
    std::filesystem::remove(temporary, error);
    ShowMessage(weightFile + L": the weight file could not be written.");
    return false;
  }
  std::filesystem::rename(temporary, target, error);
  if (error) {
    older.Restore();
    std::filesystem::remove(temporary, error);
    ShowMessage(file + L": the actor file could not be written.");
    return false;
  }
  return true;
}

}  // namespace

CString ChooseActorFile(const CString& title, bool open) {
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  Property remembered;
  const bool known = FindCustomPSet(sceneRoot, L"ActorFile", remembered);
  const CString initDir = known ? remembered.GetParameterValue(L"InitDir").GetAsText()
                                : Application().GetInstallationPath(siUserPath);
  const CString file = FileBrowser(kActorFileFilter, title, initDir, open);
  if (file.IsEmpty()) return file;
  CustomProperty property(remembered);
  if (!known) {
    property = sceneRoot.AddProperty(L"Custom_parameter_list", false, L"ActorFile");
    AddParam(property, L"InitDir", siString, 0, Application().GetInstallationPath(siUserPath));
  }
  property.PutParameterValue(L"InitDir", ExtractPath(file));
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
