// Load Actor: the actor file imported under the scene root, its weight file applied.
#include "knrexport/actor/save_actor.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/actor/weight_maps.h"
#include "knrexport/scene/host_calls.h"
#include "zyra/application.h"

using namespace Zyra;

// The weight file is read before the import; a bad one is refused with its message and the
// actor comes in as the actor file holds it. Weight maps that do not fit the imported actor are
// refused the same way (CleanupImportData). An actor file that the host's importer rejects adds
// nothing; the importer itself reports why, naming the file.
bool LoadActor() {
  Model sceneRoot = Application().GetActiveSceneRoot();
  const long before = sceneRoot.GetChildren().GetCount();
  AddActorFileProperty();
  const CString file = ChooseActorFile(L"Load Actor", true);
  if (file.IsEmpty()) return false;
  const CString weightFile = WeightFileName(file);
  WeightList records;
  ReadWeightFile(weightFile, records);
  CValue ignored;
  Application().ExecuteCommand(L"ZrImportDotZyraFile", {file, CValue(sceneRoot.GetRef())}, ignored);
  const CRefArray children = sceneRoot.GetChildren();
  const bool added = children.GetCount() > before;
  if (added) {
    X3DObject actor(children[children.GetCount() - 1]);
    CleanupImportData(actor, records, weightFile);
  }
  CleanupWeightData(records);
  Application().ExecuteCommand(L"DeselectAll", {}, ignored);
  return added;
}
