// What conditioning a long take costs: reading, conditioning and writing the 90,220-frame Z Y X
// take (01_03's frames over and over, 65 MB), in seconds per step and MB/s of BVH text.
//
//   take_conditioning_cost [source.bvh] [repeats]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "bvh_big_file.h"
#include "take_conditioning.h"

namespace {

constexpr int kFrames = 90220;
constexpr const char* kBigTake = "/tmp/zyra_bvh_bench_90220.bvh";
constexpr const char* kOutput = "/tmp/take_conditioning_cost_out.bvh";

double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string source = argc > 1 ? argv[1] : "tests/data/mocap/bvh/01_03.bvh";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  if (!MakeBigBvh(source, kBigTake, kFrames)) {
    std::fprintf(stderr, "cannot read %s\n", source.c_str());
    return 1;
  }
  const double inMb = std::filesystem::file_size(kBigTake) / 1e6;
  double best[4] = {1e9, 1e9, 1e9, 1e9};  // parse, condition, write, all three
  double outMb = 0;
  for (int r = 0; r < repeats; ++r) {
    knrconvert::BvhTake take;
    std::string error;
    const auto start = std::chrono::steady_clock::now();
    if (!knrconvert::ParseBvhTake(kBigTake, take, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
    const double parsed = Since(start);
    const knrconvert::ConditionReport report = knrconvert::ConditionTake(take);
    const double conditioned = Since(start);
    if (!knrconvert::WriteBvhTake(take, kOutput, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
    const double written = Since(start);
    const double steps[4] = {parsed, conditioned - parsed, written - conditioned, written};
    for (int i = 0; i < 4; ++i) best[i] = std::min(best[i], steps[i]);
    outMb = std::filesystem::file_size(kOutput) / 1e6;
    if (r == 0)
      for (const std::string& note : report.notes) std::printf("note: %s\n", note.c_str());
  }
  std::printf("%d frames, %.1f MB in, %.1f MB out; best of %d runs\n", kFrames, inMb, outMb,
              repeats);
  std::printf("parse      %.3f s  %6.0f MB/s\n", best[0], inMb / best[0]);
  std::printf("condition  %.3f s\n", best[1]);
  std::printf("write      %.3f s  %6.0f MB/s\n", best[2], outMb / best[2]);
  std::printf("all three  %.3f s\n", best[3]);
  std::filesystem::remove(kOutput);
  return 0;
}
