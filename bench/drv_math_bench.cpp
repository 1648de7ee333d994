// Throughput of the plug-in math on its hot paths: building BVH rotations (SetZXY), extracting
// Euler angles for curves, and composing poses down a hierarchy.
#include <benchmark/benchmark.h>

#include <vector>

#include "knrexport/math/drv_math.h"

namespace {

// A small ring of distinct transforms so the compiler cannot fold the work away.
std::vector<DrvTransform> MakeTransforms(size_t count) {
  std::vector<DrvTransform> out(count);
  for (size_t i = 0; i < count; ++i) {
    const float f = static_cast<float>(i);
    DrvTransform_SetIdentity(&out[i]);
    DrvVector_Set(&out[i].translation, f, 0.5f * f, -f);
    DrvQuaternion_SetEulerAngles(&out[i].rotation, 0.1f * f, 0.2f * f, 0.3f * f);
  }
  return out;
}

void BM_SetZXY(benchmark::State& state) {
  float rx = 0.1f, ry = 0.2f, rz = 0.3f;
  for (auto _ : state) {
    benchmark::DoNotOptimize(rx);
    benchmark::DoNotOptimize(ry);
    benchmark::DoNotOptimize(rz);
    DrvQuaternion q;
    DrvQuaternion_SetZXY(&q, rx, ry, rz);
    benchmark::DoNotOptimize(q);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SetZXY);

void BM_GetEulerAngles(benchmark::State& state) {
  const std::vector<DrvTransform> t = MakeTransforms(16);
  size_t i = 0;
  for (auto _ : state) {
    DrvQuaternion q = t[i & 15].rotation;
    DrvVector angles;
    DrvQuaternion_GetEulerAngles(&q, &angles);
    benchmark::DoNotOptimize(angles);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetEulerAngles);

void BM_TransformMultiply(benchmark::State& state) {
  std::vector<DrvTransform> t = MakeTransforms(16);
  size_t i = 0;
  for (auto _ : state) {
    DrvTransform out;
    DrvTransform_Multiply(&out, &t[i & 15], &t[(i + 7) & 15]);
    benchmark::DoNotOptimize(out);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TransformMultiply);

}  // namespace
