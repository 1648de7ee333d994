// What conditioning a long take costs: reading, conditioning, the poses, trimming and writing the
// 90,220-frame Z Y X take (01_03's frames over and over, 65 MB), in seconds per step (wall and
// process CPU, best of the runs) and MB/s of BVH text. The poses come with the conditioning, as
// the road takes them; with KNR_SEPARATE_POSES set, from ComputePoses after it.
//
//   take_conditioning_cost [source.bvh] [repeats] [kept output.bvh]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "bvh_big_file.h"
#include "take_conditioning.h"
#include "take_trim.h"

namespace {

constexpr int kFrames = 90220;
constexpr const char* kBigTake = "/tmp/zyra_bvh_bench_90220.bvh";
constexpr const char* kOutput = "/tmp/take_conditioning_cost_out.bvh";

constexpr int kSteps = 6;  // parse, condition, poses, trim, write, all five
constexpr const char* kStepNames[kSteps] = {"parse", "condition", "poses",
                                            "trim",  "write",     "all five"};

// Wall and process CPU seconds since the clock was made.
struct Clock {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  std::clock_t cpu = std::clock();
  double Wall() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  double Cpu() const { return double(std::clock() - cpu) / CLOCKS_PER_SEC; }
};

}  // namespace

int main(int argc, char** argv) {
  const std::string source = argc > 1 ? argv[1] : "tests/data/mocap/bvh/01_03.bvh";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  if (!MakeBigBvh(source, kBigTake, kFrames)) {
    std::fprintf(stderr, "cannot read %s\n", source.c_str());
    return 1;
  }
  const char* output = argc > 3 ? argv[3] : kOutput;
  const bool separatePoses = std::getenv("KNR_SEPARATE_POSES") != nullptr;
  const double inMb = std::filesystem::file_size(kBigTake) / 1e6;
  double wall[kSteps], cpu[kSteps];
  std::fill_n(wall, kSteps, 1e9);
  std::fill_n(cpu, kSteps, 1e9);
  double outMb = 0;
  for (int r = 0; r < repeats; ++r) {
    knrconvert::BvhTake take;
    std::string error;
    double w[kSteps], c[kSteps];
    const Clock all;
    Clock step;
    auto lap = [&](int i) {
      w[i] = step.Wall(), c[i] = step.Cpu();
      step = Clock();
    };
    if (!knrconvert::ParseBvhTake(kBigTake, take, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
    lap(0);
    knrconvert::PoseSeries poses;
    knrconvert::ConditionReport report =
        separatePoses ? knrconvert::ConditionTake(take) : knrconvert::ConditionTake(take, &poses);
    lap(1);
    if (separatePoses) poses = knrconvert::ComputePoses(take);
    lap(2);
    knrconvert::DropJumpingEndFrames(take, poses, report.notes);
    lap(3);
    if (!knrconvert::WriteBvhTake(take, output, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
    lap(4);
    w[5] = all.Wall(), c[5] = all.Cpu();
    for (int i = 0; i < kSteps; ++i)
      wall[i] = std::min(wall[i], w[i]), cpu[i] = std::min(cpu[i], c[i]);
    outMb = std::filesystem::file_size(output) / 1e6;
    if (r == 0)
      for (const std::string& note : report.notes) std::printf("note: %s\n", note.c_str());
  }
  std::printf("%d frames, %.1f MB in, %.1f MB out; best of %d runs (wall, CPU)\n", kFrames, inMb,
              outMb, repeats);
  for (int i = 0; i < kSteps; ++i) {
    std::printf("%-10s %.3f s  %.3f s CPU", kStepNames[i], wall[i], cpu[i]);
    if (i == 0) std::printf("  %5.0f MB/s", inMb / wall[i]);
    if (i == 4) std::printf("  %5.0f MB/s", outMb / wall[i]);
    std::printf("\n");
  }
  if (argc > 3) return 0;
  std::filesystem::remove(kOutput);
  return 0;
}
