// Load Actor: the actor file imported under the scene root, its weight file applied.
#include "knrexport/actor/save_actor.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/actor/weight_maps.h"
#include "knrexport/scene/file_reading.h"
#include "knrexport/scene/host_calls.h"
#include "zyra/application.h"

using namespace Zyra;

// The weight file is read before the import; a bad one is refused with its message and the
// actor comes in as the actor file holds it. Weight maps that do not fit the imported actor are
// refused the same way (CleanupImportData).
bool LoadActor() {
  Model sceneRoot = Application().GetActiveSceneRoot();
  const long before = sceneRoot.GetChildren().GetCount();
  AddActorFileProperty();
  const CString file = ChooseActorFile(L"Load Actor", true);
  if (file.IsEmpty()) return false;
  std::string problem;
  if (CheckRegularFile(file.GetAsciiString(), problem) == FileState::kRefused) {
    ShowMessage(file + L": " + CString(problem) + L". No actor was loaded.");
    return false;
  }
  const CString weightFile = WeightFileName(file);
  WeightList records;
  ReadWeightFile(weightFile, records);
  CValue ignored;
  const CStatus imported = Application().ExecuteCommand(
      L"ZrImportDotZyraFile", {file, CValue(sceneRoot.GetRef())}, ignored);
  const CRefArray children = sceneRoot.GetChildren();
  const bool added = children.GetCount() > before;
  if (added) {
    X3DObject actor(children[children.GetCount() - 1]);
    CleanupImportData(actor, records, weightFile);
  } else if (!imported.Succeeded()) {
    ShowMessage(imported.GetMessage());
  }
  CleanupWeightData(records);
  Application().ExecuteCommand(L"DeselectAll", {}, ignored);
  return added;
}
