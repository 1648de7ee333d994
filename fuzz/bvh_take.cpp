// libFuzzer harness of the converter's own take reader and what it does to a take: any bytes as
// a BVH file, read; a take that reads is conditioned, its poses composed, its jumping end frames
// dropped and the result written. Nothing may crash, hang or read out of bounds.
#include "bvh_take.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "take_conditioning.h"
#include "take_trim.h"

namespace {

// A file of this process's own, written anew for each input.
const std::string& Scratch(const char* suffix) {
  static const std::string in = "/tmp/fuzz_bvh_take_" + std::to_string(getpid()) + ".bvh";
  static const std::string out = "/tmp/fuzz_bvh_take_" + std::to_string(getpid()) + ".out.bvh";
  return suffix[0] == 'i' ? in : out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = Scratch("in");
  if (FILE* file = std::fopen(path.c_str(), "wb")) {
    std::fwrite(data, 1, size, file);
    std::fclose(file);
  }
  knrconvert::BvhTake take;
  std::string error;
  if (!knrconvert::ParseBvhTake(path, take, error)) return 0;
  knrconvert::ConditionTake(take);
  knrconvert::PoseSeries poses = knrconvert::ComputePoses(take);
  std::vector<std::string> notes;
  knrconvert::DropJumpingEndFrames(take, poses, notes);
  knrconvert::WriteBvhTake(take, Scratch("out"), error);
  return 0;
}
