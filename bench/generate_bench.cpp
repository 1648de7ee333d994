// Host time and memory of Generate, with its action carried, on an actor imported from the
// 90,000-frame, 31-joint take of the BVH import benchmark (feet and COG tagged, home pose set).
// Two runs: the default, optimised copy (joints between the hips and the legs left out, so the
// legs' motion is plotted) and the full copy (every curve copied as it is).
//
// Memory is counted by the operator new below while a measurement is on: "action_MB" is what
// the imported take keeps allocated, "peak_MB" the most that Generate holds above what was
// allocated before it started, and "peak_ratio" the second over the first.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <new>
#include <string>

#include "bench/bvh_big_file.h"
#include "host/args.h"
#include "host/host.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/generate/generate.h"
#include "knrexport/scene/actor_lookup.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

namespace {

bool gCounting = false;
long long gBytes = 0;
long long gPeak = 0;

void StartCounting() {
  gBytes = gPeak = 0;
  gCounting = true;
}

}  // namespace

void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (!p) throw std::bad_alloc();
  if (gCounting) {
    gBytes += static_cast<long long>(malloc_usable_size(p));
    if (gBytes > gPeak) gPeak = gBytes;
  }
  return p;
}
void operator delete(void* p) noexcept {
  if (p && gCounting) gBytes -= static_cast<long long>(malloc_usable_size(p));
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }

namespace {

constexpr int kFrames = 90000;
constexpr double kMB = 1024.0 * 1024.0;

const std::string& BigPath() {
  static const std::string path = [] {
    const std::string out = "/tmp/zyra_bvh_bench_90000.bvh";
    if (!MakeBigBvh(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh", out, kFrames)) return std::string();
    return out;
  }();
  return path;
}

void BM_Generate(benchmark::State& state) {
  const std::string& path = BigPath();
  if (path.empty()) return state.SkipWithError("cannot build the big BVH file");
  Zyra::rt::Host::Get().NewScene();
  const Zyra::CString file(path);
  Zyra::Model actor = LoadBvhActor(file, L"Bench", L"", L"", true, true, 0.125f);
  if (!actor.IsValid()) return state.SkipWithError("the actor cannot be built");
  StartCounting();
  const bool imported = AddBVHAction(actor, file, L"Take", 0.125f, true, L"", L"", true);
  gCounting = false;
  const long long actionBytes = gBytes;
  if (!imported) return state.SkipWithError("the action import failed");
  Zyra::X3DObject root, cog;
  GetRootNode(actor, root, false);
  Zyra::X3DObject hips = actor.FindChild(L"Hips"), left = actor.FindChild(L"LeftFoot"),
                  right = actor.FindChild(L"RightFoot");
  InitializeActor(hips, false, Zyra::ProgressBar());
  SetHome(hips, false, Zyra::ProgressBar(), true);
  SetCOG(hips);
  SetFoot(left, true);
  SetFoot(right, true);

  GenerateOptions options;
  options.removeExtra = state.range(0) != 0;
  long long peak = 0;
  for (auto _ : state) {
    Zyra::ProgressBar bar;
    Zyra::Model generated;
    StartCounting();
    const bool done = BuildGeneratedActor(actor, root, options, bar, generated);
    gCounting = false;
    peak = std::max(peak, gPeak);
    if (!done) return state.SkipWithError("Generate failed");
    state.PauseTiming();
    Zyra::CValue ignored;
    Zyra::Application().ExecuteCommand(L"DeleteObj", {Zyra::CValue(generated.GetRef())}, ignored);
    state.ResumeTiming();
  }
  state.counters["action_MB"] = static_cast<double>(actionBytes) / kMB;
  state.counters["peak_MB"] = static_cast<double>(peak) / kMB;
  state.counters["peak_ratio"] = static_cast<double>(peak) / static_cast<double>(actionBytes);
}
BENCHMARK(BM_Generate)
    ->ArgName("optimised")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
