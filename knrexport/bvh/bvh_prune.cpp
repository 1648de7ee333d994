// Pruning of a read BVH file (RemoveNodes, RemoveTree) and end sites for the actor's bones
// (UpdateEndsite).
#include <cmath>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "knrexport/bvh/bvh_file.h"

namespace {

// Index of the first of the first `count` nodes named `name`, or -1.
int FindByName(const ZyraBvHierarchy& table, int count, const char* name) {
  for (int k = 0; k < count; ++k) {
    if (std::strcmp(table.nodes[k].name, name) == 0) return k;
  }
  return -1;
}

// Copies the kept nodes of `old` (keep[i]) in order into `nodes`, moving their samples from
// `data` into `records`. Parents are found again by name among the nodes copied before, since
// indices change; a parent that was not kept leaves the node a root.
int CopyKept(const ZyraBvHierarchy& old, const std::vector<char>& keep, bool keepChildCounts,
             MocapData& data, ZyraBvHierarchy& nodes, MocapRecord* records) {
  int k = 0;
  for (int i = 0; i < old.nodeCount; ++i) {
    if (!keep[static_cast<std::size_t>(i)]) continue;
    const ZyraBvNode& src = old.nodes[i];
    ZyraBvNode& dst = nodes.nodes[k];
    std::memcpy(dst.name, src.name, sizeof dst.name);
    dst.channelCount = src.channelCount;
    std::memcpy(dst.channels, src.channels, sizeof dst.channels);
    dst.offset = src.offset;
    dst.endsite = src.endsite;
    dst.childCount = keepChildCounts ? src.childCount : 0;
    dst.parent = src.parent >= 0 ? FindByName(nodes, k, old.nodes[src.parent].name) : -1;

    MocapRecord& from = data.records[i];
    MocapRecord& to = records[k];
    std::memcpy(to.name, from.name, sizeof to.name);
    to.frameCount = from.frameCount;
    to.origin = from.origin;
    to.samples = from.samples;
    from.samples = nullptr;
    from.frameCount = 0;
    ++k;
  }
  nodes.nodeCount = k;
  return k;
}

}  // namespace

bool ZyraBvFile::CheckData(const MocapData* data, const char* operation) {
  error_.clear();
  errorLine_ = 0;
  if (!hierarchy_) return FailNoPlace(std::string(operation) + ": no hierarchy has been read");
  if (!data || data->nodeCount != hierarchy_->nodeCount ||
      (data->nodeCount > 0 && !data->records)) {
    return FailNoPlace(std::string(operation) + ": the motion data does not match the hierarchy");
  }
  return true;
}

void ZyraBvFile::ReplaceTables(ZyraBvHierarchy* nodes, MocapRecord* records, int count,
                               MocapData* data) {
  std::vector<BvFold> folds = std::move(data->folds);
  FreeMocapData(*data);
  data->folds = std::move(folds);
  data->records = records;
  data->nodeCount = count;
  hierarchy_.reset(nodes);
}

bool ZyraBvFile::RemoveNodes(const char* tag, MocapData* data) {
  if (!CheckData(data, "RemoveNodes")) return false;
  if (!tag) return true;
  ZyraBvHierarchy& old = *hierarchy_;
  const int n = old.nodeCount;
  std::vector<char> keep(static_cast<std::size_t>(n));
  int survivors = 0;
  for (int i = 0; i < n; ++i) {
    keep[static_cast<std::size_t>(i)] = std::strstr(old.nodes[i].name, tag) == nullptr;
    survivors += keep[static_cast<std::size_t>(i)];
  }
  if (survivors == n) return true;

  // Parents precede children, so by the time a node is reached its parent already carries the
  // motion of every dropped joint above it: a chain of dropped joints lands in the first kept
  // descendant, which is re-parented to the nearest kept ancestor.
  for (int i = 0; i < n; ++i) {
    const int p = old.nodes[i].parent;
    if (p < 0 || p >= i || keep[static_cast<std::size_t>(p)]) continue;
    MocapRecord& child = data->records[i];
    MocapRecord& up = data->records[p];
    const int frames = child.frameCount < up.frameCount ? child.frameCount : up.frameCount;
    for (int f = 0; f < frames; ++f) {
      DrvTransform_Multiply(&child.samples[f], &up.samples[f], &child.samples[f]);
    }
    data->folds.push_back({child.origin, up.origin});
    old.nodes[i].parent = old.nodes[p].parent;
    --old.nodes[p].childCount;
  }

  auto* nodes = new (std::nothrow) ZyraBvHierarchy;
  auto* records = new (std::nothrow) MocapRecord[static_cast<std::size_t>(survivors)];
  if (!nodes || !records) {
    delete nodes;
    delete[] records;
    return FailNoPlace("RemoveNodes: out of memory");
  }
  CopyKept(old, keep, true, *data, *nodes, records);
  ReplaceTables(nodes, records, survivors, data);
  return true;
}

bool ZyraBvFile::RemoveTree(const char* name, MocapData* data, bool keepRoot) {
  if (!CheckData(data, "RemoveTree")) return false;
  const ZyraBvHierarchy& old = *hierarchy_;
  const int n = old.nodeCount;
  // A name the file does not hold removes nothing (the option text may carry a typing error).
  const int r = name ? FindByName(old, n, name) : -1;
  if (r < 0) return true;

  std::vector<char> below(static_cast<std::size_t>(n), 0);
  std::vector<char> keep(static_cast<std::size_t>(n), 1);
  int survivors = n;
  for (int j = r + 1; j < n; ++j) {
    const int p = old.nodes[j].parent;
    below[static_cast<std::size_t>(j)] =
        p == r || (p > r && p < j && below[static_cast<std::size_t>(p)]);
    if (below[static_cast<std::size_t>(j)]) {
      keep[static_cast<std::size_t>(j)] = 0;
      --survivors;
    }
  }
  if (!keepRoot) {
    keep[static_cast<std::size_t>(r)] = 0;
    --survivors;
  }
  if (survivors == n) return true;

  auto* nodes = new (std::nothrow) ZyraBvHierarchy;
  auto* records = new (std::nothrow) MocapRecord[static_cast<std::size_t>(survivors)];
  if (!nodes || !records) {
    delete nodes;
    delete[] records;
    return FailNoPlace("RemoveTree: out of memory");
  }
  // Child counts are not carried over: the kept root of the subtree has lost its children.
  CopyKept(old, keep, false, *data, *nodes, records);
  ReplaceTables(nodes, records, survivors, data);
  return true;
}

void UpdateEndsite(ZyraBvHierarchy* hierarchy, MocapData& data, float* maxLength) {
  if (!hierarchy || (data.nodeCount > 0 && !data.records)) return;
  const int n = hierarchy->nodeCount < data.nodeCount ? hierarchy->nodeCount : data.nodeCount;
  for (int i = 0; i < n; ++i) {
    ZyraBvNode& node = hierarchy->nodes[i];
    DrvVector sum{0.0f, 0.0f, 0.0f};
    int count = 0;
    for (int j = 0; j < n; ++j) {
      const MocapRecord& child = data.records[j];
      if (hierarchy->nodes[j].parent != i || child.frameCount < 1) continue;
      sum.x += child.samples[0].translation.x;
      sum.y += child.samples[0].translation.y;
      sum.z += child.samples[0].translation.z;
      ++count;
    }
    if (count > 0) {
      const float share = 1.0f / static_cast<float>(count);
      node.endsite = DrvVector{sum.x * share, sum.y * share, sum.z * share};
    }
    if (maxLength) {
      const DrvVector& e = node.endsite;
      const float length = std::sqrt(e.x * e.x + e.y * e.y + e.z * e.z);
      if (length > *maxLength) *maxLength = length;
    }
  }
}
