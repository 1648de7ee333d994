// Host time of making skills on the 90,000-frame take of the BVH benchmarks (a real 31-joint
// file's frames repeated), imported at 120 frames per second so that every BVH frame is a whole
// host frame: the whole Locomotion and Basic conversions, and Locomotion step by step.
#include <benchmark/benchmark.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "bench/bvh_big_file.h"
#include "host/host.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/skill/basic_skill.h"
#include "knrexport/skill/foot_contacts.h"
#include "knrexport/skill/loco_skill.h"
#include "knrexport/skill/skill_channels.h"
#include "model/scene_graph.h"
#include "zyra/action.h"
#include "zyra/application.h"

namespace {

using namespace Zyra;

constexpr int kFrames = 90000;

struct Actor {
  Model model;
  X3DObject root, cog;
  ActionSource take;
};

// A new scene with the generated actor of the big take, its COG and feet tagged and the take
// stored as its action "Take". False when the file cannot be made or imported.
bool MakeActor(Actor& actor) {
  const std::string path = "/tmp/zyra_bvh_bench_90000.bvh";
  if (!MakeBigBvh(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh", path, kFrames)) return false;
  rt::Host::Get().NewScene();
  rt::Host::Get().ui().defaultQuestionAnswer = 0;
  CValue ignored;
  Application().ExecuteCommand(L"SetValue", {CString(L"preferences.output_format.frame_rate"), 120.0}, ignored);
  actor.model = LoadBvhActor(CString(path), L"Bench", L"", L"", true, false, 0.125f);
  if (!actor.model.IsValid()) return false;
  InitializeActor(actor.model, true, ProgressBar());
  SetHome(actor.model, true, ProgressBar(), true);
  X3DObject hips(actor.model.FindChild(L"Bench.Hips", CString(), CRefArray(), true));
  SetCOG(hips);
  for (const wchar_t* foot : {L"Bench.LeftFoot", L"Bench.RightFoot"}) {
    X3DObject node(actor.model.FindChild(foot, CString(), CRefArray(), true));
    SetFoot(node, true);
  }
  if (!AddBVHAction(actor.model, CString(path), L"Take", 0.125f, true, L"", L"", true)) return false;
  actor.take = ActionSource(actor.model.GetSources()[0]);
  return GetRootNode(actor.model, actor.root, false) && GetCogNode(actor.root, actor.cog);
}

Actor& SharedActor(benchmark::State& state) {
  static Actor actor;
  static bool made = MakeActor(actor);
  if (!made) state.SkipWithError("the actor of the big take cannot be made");
  return actor;
}

void BM_MakeLocoSkill(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  for (auto _ : state) MakeLocoSkill(actor.model, actor.take, 0.2f, false);
  state.counters["frames"] = kFrames;
}
BENCHMARK(BM_MakeLocoSkill)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_FactorBasic(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  for (auto _ : state) {
    state.PauseTiming();
    // A Basic skill needs a keyed root; a converted Locomotion skill has one.
    MakeLocoSkill(actor.model, actor.take, 0.2f, false);
    state.ResumeTiming();
    FactorBasic(actor.model, actor.take, false);
  }
}
BENCHMARK(BM_FactorBasic)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// MakeLocoSkill's steps one by one, each timed (CPU time of the process, milliseconds):
// playing the source onto the rig (the host's "ApplyAction"), factoring root and COG (sampling
// and keying), the foot contacts (heel sampling and keys), storing the skill, going home.
void BM_MakeLocoSkillSteps(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  double apply = 0, factor = 0, contacts = 0, store = 0, home = 0;
  auto clock = [] { return static_cast<double>(std::clock()) * 1000.0 / CLOCKS_PER_SEC; };
  for (auto _ : state) {
    double t = clock();
    CValue ignored;
    Application().ExecuteCommand(L"RemoveAllAnimation", {CValue(actor.model.GetRef()), CValue(), 1, 9}, ignored);
    ApplyAction(actor.take);
    apply += clock() - t;
    t = clock();
    auto legs = std::make_unique<LocalSampleCache>();  // as MakeLocoSkill shares the leg samples
    FactorLoco(actor.model, actor.take, false);
    factor += clock() - t;
    t = clock();
    CRefArray feet, heels;
    ExtractFeet(actor.root, feet);
    ExtractHeels(feet, heels);
    CString markers;
    ExtractMarkers(actor.root, markers);
    AddLocoKeys(actor.model, actor.take, feet, heels, 0.2f, markers);
    legs.reset();
    contacts += clock() - t;
    t = clock();
    StoreFCurves(actor.model, actor.root, actor.take, markers, 2, 0.0, kFrames - 1.0);
    store += clock() - t;
    t = clock();
    GotoHome(actor.model, ProgressBar());
    home += clock() - t;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["apply_ms"] = apply / n;
  state.counters["factor_ms"] = factor / n;
  state.counters["contacts_ms"] = contacts / n;
  state.counters["store_ms"] = store / n;
  state.counters["home_ms"] = home / n;
}
BENCHMARK(BM_MakeLocoSkillSteps)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
