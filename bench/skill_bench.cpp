// Host time of making skills on the 90,000-frame take of the BVH benchmarks (a real 31-joint
// file's frames repeated), imported at 120 frames per second so that every BVH frame is a whole
// host frame. The whole conversions, Locomotion and Basic, and their three parts measured alone:
// sampling root, COG and heels, keying the twelve root and COG curves, and storing the actor's
// animation back into an action source.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bvh_big_file.h"
#include "host.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/skill/basic_skill.h"
#include "knrexport/skill/foot_contacts.h"
#include "knrexport/skill/loco_skill.h"
#include "knrexport/skill/skill_channels.h"
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

// The take on the rig, as the converters find it after "ApplyAction".
void ApplyTake(Actor& actor) {
  CValue ignored;
  Application().ExecuteCommand(L"RemoveAllAnimation", {CValue(actor.model.GetRef()), CValue(), 1, 9}, ignored);
  ApplyAction(actor.take);
  ProgressBar none;
  EnsureKeysOnRootandCog(actor.root, actor.cog, 0, kFrames, none);
}

void BM_SkillSampling(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  ApplyTake(actor);
  CRefArray feet, heels;
  ExtractFeet(actor.root, feet);
  ExtractHeels(feet, heels);
  std::vector<DrvTransform> roots, cogs;
  for (auto _ : state) {
    SampleLocal(actor.root, 0, kFrames, roots);
    SampleLocal(actor.cog, 0, kFrames, cogs);
    for (const CRef& heel : heels) {
      KinematicState global = X3DObject(heel).GetKinematics().GetGlobal();
      double sum = 0.0;
      for (int f = 0; f < kFrames; ++f) sum += global.GetTransform(CTime(f)).GetTranslation().GetY();
      benchmark::DoNotOptimize(sum);
    }
  }
}
BENCHMARK(BM_SkillSampling)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_SkillKeying(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  ApplyTake(actor);
  std::vector<DrvTransform> roots, cogs;
  SampleLocal(actor.root, 0, kFrames, roots);
  SampleLocal(actor.cog, 0, kFrames, cogs);
  for (auto _ : state) {
    ChannelTrack rootTrack(roots.size()), cogTrack(cogs.size());
    for (size_t i = 0; i < roots.size(); ++i) {
      rootTrack.Add(roots[i]);
      cogTrack.Add(cogs[i]);
    }
    rootTrack.Write(actor.root, 0);
    cogTrack.Write(actor.cog, 0);
  }
}
BENCHMARK(BM_SkillKeying)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_SkillStoring(benchmark::State& state) {
  Actor& actor = SharedActor(state);
  for (auto _ : state) {
    state.PauseTiming();
    ApplyTake(actor);
    CString markers;
    ExtractMarkers(actor.root, markers);
    state.ResumeTiming();
    StoreFCurves(actor.model, actor.root, actor.take, markers, 2, 0.0, kFrames - 1.0);
  }
}
BENCHMARK(BM_SkillStoring)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
