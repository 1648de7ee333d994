// Host time of making a 1,000-frame loop with a 100-frame blend on a 31-joint actor imported
// from a real capture: sampling every joint at every frame, blending, keying the new curves and
// storing the action. The take is applied again (untimed) before each run.
#include <benchmark/benchmark.h>

#include "host/args.h"
#include "host/host.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/skill/make_loop.h"
#include "model/scene_graph.h"
#include "zyra/action.h"
#include "zyra/application.h"

namespace {

using namespace Zyra;

void BM_MakeLoop(benchmark::State& state) {
  const bool loco = state.range(0) != 0;
  rt::Host::Get().NewScene();
  const CString file(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh");
  Model actor = LoadBvhActor(file, L"Bench", L"", L"", true, false, 1.0f);
  if (!actor.IsValid() || !AddBVHAction(actor, file, L"Take", 1.0f, true, L"", L"", true)) {
    return state.SkipWithError("the take cannot be imported");
  }
  ActionSource take(actor.GetSources()[0]);
  X3DObject root(Application().GetObjectFromPath(L"Bench.GlobalSRT"));
  CValue ignored;
  for (auto _ : state) {
    state.PauseTiming();
    Application().ExecuteCommand(L"ApplyAction", {CValue(take.GetRef())}, ignored);
    state.ResumeTiming();
    if (!MakeLoop(take, actor, root, 100, 1100, 100, loco)) return state.SkipWithError("no loop");
    state.PauseTiming();
    Application().ExecuteCommand(L"DeleteObj", {CValue(actor.GetSources()[1])}, ignored);
    state.ResumeTiming();
  }
  state.counters["joints"] = static_cast<double>(actor.FindChildren(CString(), CString()).GetCount() - 1);
}
BENCHMARK(BM_MakeLoop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
