// Scene-file throughput: writing and reading a generated scene of about 10 MB (models of nulls
// whose local parameters all carry keyed fcurves), as text in memory and through files.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"

using namespace Zyra;

namespace {

constexpr int kModels = 20;
constexpr int kNullsPerModel = 25;
constexpr int kKeysPerCurve = 30;

// Builds the benchmark scene in the open scene: kModels models of kNullsPerModel nulls in a
// chain, every local parameter keyed, once per process.
void BuildScene() {
  static bool built = false;
  if (built) return;
  built = true;
  rt::Host::Get().NewScene();
  auto root = rt::Host::Get().scene().root;
  for (int m = 0; m < kModels; ++m) {
    auto model = rt::CreateModel(root, L"Actor" + std::to_wstring(m));
    std::shared_ptr<rt::X3D> parent = model;
    for (int n = 0; n < kNullsPerModel; ++n) {
      auto node = rt::CreateX3D(parent, siX3DObjectID, L"null", L"Joint" + std::to_wstring(n));
      int channel = 0;
      for (const auto& param : node->local->params) {
        auto curve = param->AddFCurve();
        curve->interpolation = 3;
        for (int k = 0; k < kKeysPerCurve; ++k) {
          rt::FCurveKey key;
          key.frame = k * 2.0 + 1.0;
          key.value = 0.37 * m + 0.011 * n + 0.5 * std::sin(0.3 * k + channel);
          curve->keys.PushBack(key);
        }
        ++channel;
      }
      parent = node;
    }
  }
}

const std::string& SceneText() {
  static std::string text;
  if (text.empty()) {
    BuildScene();
    text = rt::WriteSceneText(rt::Host::Get().scene());
  }
  return text;
}

void BM_WriteSceneText(benchmark::State& state) {
  BuildScene();
  size_t bytes = 0;
  for (auto _ : state) {
    std::string text = rt::WriteSceneText(rt::Host::Get().scene());
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(BM_WriteSceneText)->Unit(benchmark::kMillisecond);

void BM_ReadSceneText(benchmark::State& state) {
  const std::string& text = SceneText();
  for (auto _ : state) {
    rt::Scene scene;
    CStatus status = rt::ReadSceneText(text, "bench.zyra", scene);
    if (!status.Succeeded()) state.SkipWithError(status.GetMessage().GetAsciiString().c_str());
    rt::DestroySceneObjects(scene);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ReadSceneText)->Unit(benchmark::kMillisecond);

std::string BenchPath() {
  return "/tmp/zyra_scene_file_bench_" + std::to_string(::getpid()) + ".zyra";
}

// Whole save: text, temporary file, flush to disk, rename.
void BM_SaveSceneFile(benchmark::State& state) {
  const size_t bytes = SceneText().size();
  const std::string path = BenchPath();
  for (auto _ : state) {
    CStatus status = rt::SaveSceneFile(path);
    if (!status.Succeeded()) state.SkipWithError(status.GetMessage().GetAsciiString().c_str());
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_SaveSceneFile)->Unit(benchmark::kMillisecond);

// Whole open: read, parse, build, swap in (the previous scene destroyed).
void BM_OpenSceneFile(benchmark::State& state) {
  const size_t bytes = SceneText().size();
  const std::string path = BenchPath();
  if (!rt::SaveSceneFile(path).Succeeded()) state.SkipWithError("cannot write the benchmark scene");
  for (auto _ : state) {
    CStatus status = rt::OpenSceneFile(path);
    if (!status.Succeeded()) state.SkipWithError(status.GetMessage().GetAsciiString().c_str());
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_OpenSceneFile)->Unit(benchmark::kMillisecond);

}  // namespace
