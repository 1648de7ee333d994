// libFuzzer harness of the BVH reader: the input is read as a BVH file through the same parser
// that reads files (ZyraBvFile::OpenMemory), then pruned and measured as the importers do, and
// the table invariants are checked after every step.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "knrexport/bvh/bvh_file.h"

namespace {

void CheckTables(ZyraBvFile& file, const MocapData& data) {
  const ZyraBvHierarchy* h = file.Hierarchy();
  if (!h || h->nodeCount < 0 || h->nodeCount > kBvMaxNodes) std::abort();
  if (data.nodeCount != h->nodeCount) std::abort();
  for (int i = 0; i < h->nodeCount; ++i) {
    const ZyraBvNode& node = h->nodes[i];
    if (node.parent >= i || node.parent < -1) std::abort();
    if (node.channelCount < 0 || node.channelCount > kBvMaxChannels) std::abort();
    if (std::strcmp(node.name, data.records[i].name) != 0) std::abort();
    const MocapRecord& record = data.records[i];
    if (record.frameCount < 0 || (record.frameCount > 0) != (record.samples != nullptr)) {
      std::abort();
    }
    // Touch the first and last samples so that a short allocation shows.
    if (record.frameCount > 0) {
      volatile float x =
          record.samples[0].translation.x + record.samples[record.frameCount - 1].rotation.w;
      (void)x;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(bytes);
  for (const bool firstFrameOnly : {false, true}) {
    ZyraBvFile file;
    MocapData data;
    if (!file.OpenMemory(text, size, 0.5f)) std::abort();
    if (!file.ReadHierarchy() || !file.ReadMotionData(&data, firstFrameOnly)) {
      if (file.LastError()[0] == '\0') std::abort();  // every failure says why
      continue;
    }
    CheckTables(file, data);
    if (firstFrameOnly) {
      ZyraBvHierarchy* h = file.Hierarchy();
      // Prune by a piece of a joint's name and by a whole name, chosen by the input's last bytes.
      const int pick = size > 0 ? bytes[size - 1] : 0;
      const std::string tag = std::string(h->nodes[pick % h->nodeCount].name).substr(0, 2);
      if (!file.RemoveNodes(tag.c_str(), &data)) std::abort();
      CheckTables(file, data);
      if (h = file.Hierarchy(); h->nodeCount > 0) {
        const std::string name = h->nodes[(pick / 7) % h->nodeCount].name;
        if (!file.RemoveTree(name.c_str(), &data, (pick & 1) != 0)) std::abort();
        CheckTables(file, data);
      }
      float longest = 0.0f;
      UpdateEndsite(file.Hierarchy(), data, &longest);
    }
    if (!file.Close()) std::abort();
  }
  return 0;
}
