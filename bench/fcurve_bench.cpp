// Cost of fcurve evaluation and of keying long in-order batches through the SDK handle.
// BM_FCurveAppend10M runs 1M and 10M keys: equal time per key at both sizes shows the batch
// append is linear.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "host/args.h"
#include "model/model.h"
#include "zyra/fcurve.h"

namespace {

using Zyra::CRef;
using Zyra::CTime;
using Zyra::CValue;
using Zyra::FCurve;
namespace rt = Zyra::rt;

// A 1000-key cubic curve over frames 0..1498.5 with random values.
std::shared_ptr<rt::FCurveObject> MakeCubicCurve() {
  auto curve = std::make_shared<rt::FCurveObject>();
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> value(-10, 10);
  for (int i = 0; i < 1000; ++i) {
    rt::FCurveKey key;
    key.frame = i * 1.5;
    key.value = value(rng);
    curve->AddKey(key);
  }
  return curve;
}

// 4096 random frames inside the curve's range.
std::vector<double> RandomFrames() {
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> frame(0, 999 * 1.5);
  std::vector<double> frames(4096);
  for (double& f : frames) f = frame(rng);
  return frames;
}

// Per evaluation through the SDK handle, as a plug-in evaluates.
void BM_FCurveEval(benchmark::State& state) {
  auto curve = MakeCubicCurve();
  std::vector<double> frames = RandomFrames();
  FCurve handle{CRef(curve)};
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(handle.Eval(CTime(frames[i++ & 4095])));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FCurveEval);

// The same lookups on the runtime curve, without the handle's checks.
void BM_FCurveEvalRuntime(benchmark::State& state) {
  auto curve = MakeCubicCurve();
  std::vector<double> frames = RandomFrames();
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(curve->Evaluate(frames[i++ & 4095]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FCurveEvalRuntime);

// Appends `count` in-order keys inside BeginEdit / EndEdit; the curve is rebuilt each iteration.
void AppendInOrder(benchmark::State& state, long count) {
  for (auto _ : state) {
    state.PauseTiming();
    auto curve = std::make_shared<rt::FCurveObject>();
    FCurve handle{CRef(curve)};
    state.ResumeTiming();
    handle.BeginEdit();
    for (long k = 0; k < count; ++k) handle.AddKey(CTime(static_cast<double>(k)), CValue(0.5 * k));
    handle.EndEdit();
    benchmark::DoNotOptimize(handle.GetKeyCount());
    state.PauseTiming();
    curve.reset();  // freeing is not part of the measure
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
  state.counters["time_per_key"] =
      benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void BM_FCurveAppendInOrder(benchmark::State& state) { AppendInOrder(state, state.range(0)); }
BENCHMARK(BM_FCurveAppendInOrder)->Arg(1000)->Arg(100000);

void BM_FCurveAppend10M(benchmark::State& state) { AppendInOrder(state, state.range(0)); }
BENCHMARK(BM_FCurveAppend10M)
    ->Arg(1000000)
    ->Arg(10000000)
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace
