// Throughput of the plug-in math on its hot paths: building BVH rotations (SetZXY, one at a time
// and a frame's joints at once), extracting Euler angles for curves, and composing poses down a
// hierarchy.
#include <benchmark/benchmark.h>

#include <vector>

#include "knrexport/math/drv_batch.h"
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

// One frame of a 31-joint take: the joints one at a time, then four at a time.
struct FrameAngles {
  static constexpr int kJoints = 31;
  std::vector<float> rx, ry, rz;
  std::vector<DrvQuaternion> out;
  FrameAngles() : rx(kJoints), ry(kJoints), rz(kJoints), out(kJoints) {
    for (int i = 0; i < kJoints; ++i) {
      rx[i] = 0.11f * i - 1.7f;
      ry[i] = 2.9f - 0.13f * i;
      rz[i] = 0.07f * i;
    }
  }
};

void BM_SetZXYFrameOneByOne(benchmark::State& state) {
  FrameAngles frame;
  for (auto _ : state) {
    benchmark::DoNotOptimize(frame.rx.data());
    for (int i = 0; i < FrameAngles::kJoints; ++i) {
      DrvQuaternion_SetZXY(&frame.out[i], frame.rx[i], frame.ry[i], frame.rz[i]);
    }
    benchmark::DoNotOptimize(frame.out.data());
  }
  state.SetItemsProcessed(state.iterations() * FrameAngles::kJoints);
}
BENCHMARK(BM_SetZXYFrameOneByOne);

void BM_SetZXYFrameMany(benchmark::State& state) {
  FrameAngles frame;
  for (auto _ : state) {
    benchmark::DoNotOptimize(frame.rx.data());
    DrvQuaternion_SetZXYMany(frame.out.data(), frame.rx.data(), frame.ry.data(), frame.rz.data(),
                             FrameAngles::kJoints);
    benchmark::DoNotOptimize(frame.out.data());
  }
  state.SetItemsProcessed(state.iterations() * FrameAngles::kJoints);
}
BENCHMARK(BM_SetZXYFrameMany);

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
