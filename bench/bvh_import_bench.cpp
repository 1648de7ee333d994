// Host time of the BVH action import on a 90,000-frame, 31-joint take (a real file's frames
// repeated, ~70 MB): reading the file, keying every frame on the actor's curves, storing the
// action and putting the pose back. BM_BvhReadFile in bvh_bench.cpp is the reading part alone.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bvh_big_file.h"
#include "host/host.h"
#include "knrexport/bvh/bvh_import.h"
#include "model/scene_graph.h"
#include "zyra/action.h"
#include "zyra/application.h"

namespace {

constexpr int kFrames = 90000;

const std::string& ImportBigPath() {
  static const std::string path = [] {
    const std::string out = "/tmp/zyra_bvh_bench_90000.bvh";
    if (!MakeBigBvh(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh", out, kFrames)) return std::string();
    return out;
  }();
  return path;
}

void BM_BvhImportAction(benchmark::State& state) {
  const std::string& path = ImportBigPath();
  if (path.empty()) return state.SkipWithError("cannot build the big BVH file");
  Zyra::rt::Host::Get().NewScene();
  const Zyra::CString file(path);
  Zyra::Model actor = LoadBvhActor(file, L"Bench", L"", L"", true, true, 0.125f);
  if (!actor.IsValid()) return state.SkipWithError("the actor cannot be built");
  for (auto _ : state) {
    if (!AddBVHAction(actor, file, L"Take", 0.125f, true, L"", L"", true)) {
      return state.SkipWithError("the action import failed");
    }
    state.PauseTiming();
    Zyra::CValue ignored;
    for (const Zyra::CRef& source : actor.GetSources()) {
      Zyra::Application().ExecuteCommand(L"DeleteObj", {Zyra::CValue(source)}, ignored);
    }
    state.ResumeTiming();
  }
  state.counters["keys"] = benchmark::Counter(static_cast<double>(kFrames) * (31 * 3 + 3),
                                              benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_BvhImportAction)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
