// Throughput of the math that the kinematics evaluates once per object and frame.
#include <benchmark/benchmark.h>

#include <vector>

#include "zyra/math.h"

namespace {

using Zyra::MATH::CQuaternion;
using Zyra::MATH::CTransformation;

// A small ring of distinct transformations so the compiler cannot fold the work away.
std::vector<CTransformation> MakeTransforms(size_t count) {
  std::vector<CTransformation> out(count);
  for (size_t i = 0; i < count; ++i) {
    const double f = static_cast<double>(i);
    out[i]
        .SetTranslationFromValues(f, 0.5 * f, -f)
        .SetRotationFromXYZAnglesValues(0.1 * f, 0.2 * f, 0.3 * f)
        .SetScalingFromValues(1.0 + 0.01 * f, 1.0, 1.0 - 0.01 * f);
  }
  return out;
}

void BM_Compose(benchmark::State& state) {
  const std::vector<CTransformation> t = MakeTransforms(16);
  size_t i = 0;
  for (auto _ : state) {
    CTransformation g = CTransformation::Compose(t[i & 15], t[(i + 7) & 15]);
    benchmark::DoNotOptimize(g);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Compose);

void BM_QuaternionFromXYZAngles(benchmark::State& state) {
  double rx = 0.1, ry = 0.2, rz = 0.3;
  for (auto _ : state) {
    benchmark::DoNotOptimize(rx);
    benchmark::DoNotOptimize(ry);
    benchmark::DoNotOptimize(rz);
    CQuaternion q = CQuaternion::FromXYZAngles(rx, ry, rz);
    benchmark::DoNotOptimize(q);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QuaternionFromXYZAngles);

}  // namespace
