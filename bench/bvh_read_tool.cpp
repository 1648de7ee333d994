// Reads a BVH file with the plug-in's reader and prints what it found and how long it took;
// with --make-big, writes a large test file from a real one. Used by bench/compare_bvh.sh.
//   bvh_read_tool FILE
//   bvh_read_tool --make-big SOURCE FRAMES OUT
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/bvh_big_file.h"
#include "knrexport/bvh/bvh_file.h"

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--make-big") == 0) {
    if (!MakeBigBvh(argv[2], argv[4], std::atoi(argv[3]))) {
      std::fprintf(stderr, "bvh_read_tool: cannot make %s from %s\n", argv[4], argv[2]);
      return 1;
    }
    return 0;
  }
  if (argc != 2) {
    std::fprintf(stderr, "usage: bvh_read_tool FILE | --make-big SOURCE FRAMES OUT\n");
    return 2;
  }
  const std::string path = argv[1];
  const std::wstring wide(path.begin(), path.end());
  const auto start = std::chrono::steady_clock::now();
  ZyraBvFile file;
  MocapData data;
  if (!file.Open(wide.c_str(), 1.0f) || !file.ReadHierarchy() ||
      !file.ReadMotionData(&data, false)) {
    std::fprintf(stderr, "bvh_read_tool: %s: line %d: %s\n", path.c_str(), file.LastErrorLine(),
                 file.LastError());
    return 1;
  }
  file.Close();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%s: %d joints, %d frames, frame time %g, read in %.3f s\n", path.c_str(),
              data.nodeCount, data.records[0].frameCount, static_cast<double>(data.frameTime),
              seconds);
  return 0;
}
