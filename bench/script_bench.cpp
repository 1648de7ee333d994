// Script runner throughput: tokenizing a line, and running keyed-animation style scripts
// (one command a line, object paths resolved) through the host's command table.
#include <benchmark/benchmark.h>

#include "host/args.h"
#include "host/host.h"
#include "model/scene_graph.h"
#include "script/script.h"

namespace {

using namespace Zyra;

void BM_TokenizeLine(benchmark::State& state) {
  const std::wstring line = L"SetKey Rig.Spine.Chest.kine.local.rotx 120 -12.375e0 3  # a key";
  std::vector<rt::script::Token> tokens;
  for (auto _ : state) {
    CStatus status = rt::script::Tokenize(line, tokens);
    benchmark::DoNotOptimize(status);
    benchmark::DoNotOptimize(tokens.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TokenizeLine);

// A script of `lines` calls of a command that does nothing, each naming a parameter by path.
void BM_RunScript(benchmark::State& state) {
  rt::Host& host = rt::Host::Get();
  host.NewScene();
  host.RegisterCommand(
      {L"BenchNoOp", L"", [](const CValueArray&, CValue&) { return CStatus(CStatus::OK); }});
  auto model = rt::CreateModel(host.scene().root, L"Rig");
  auto hips = rt::CreateX3D(model, siX3DObjectID, L"null", L"Hips");
  rt::CreateX3D(hips, siX3DObjectID, L"null", L"Spine");
  // Measure the runner, not the command log.
  static_cast<rt::Parameter&>(*rt::Resolve(L"preferences.scripting.cmdlog")).value = CValue(false);

  std::wstring text;
  for (int64_t i = 0; i < state.range(0); ++i) {
    text += L"BenchNoOp Rig.Spine.kine.local.rotx " + std::to_wstring(i) + L" 0.5\n";
  }
  for (auto _ : state) {
    CStatus status = rt::RunScriptText(text, "bench");
    if (!status.Succeeded()) state.SkipWithError("the script failed");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  static_cast<rt::Parameter&>(*rt::Resolve(L"preferences.scripting.cmdlog")).value = CValue(true);
}
BENCHMARK(BM_RunScript)->Arg(1000)->Arg(10000);

}  // namespace
