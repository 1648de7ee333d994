#include "knrexport/bvh/bvh_motion.h"

#include "knrexport/math/drv_batch.h"

namespace {

// A second reader pays for itself from a few megabytes of text on.
constexpr std::uint64_t kSecondReaderBytes = std::uint64_t{4} << 20;
constexpr int kSecondReaderFrames = 1000;
// Frames the second reader reads between looks at whether it should stop.
constexpr int kStretch = 256;

}  // namespace

BvMotionLayout MakeMotionLayout(const ZyraBvHierarchy& table, float scale) {
  BvMotionLayout layout;
  const int n = table.nodeCount;
  const auto rows = static_cast<std::size_t>(n);
  layout.nodeCount = n;
  layout.rest.assign(6 * rows, 0.0f);
  for (int i = 0; i < n; ++i) {
    const ZyraBvNode& node = table.nodes[i];
    layout.rest[3 * rows + i] = node.offset.x;
    layout.rest[4 * rows + i] = node.offset.y;
    layout.rest[5 * rows + i] = node.offset.z;
    for (int c = 0; c < node.channelCount; ++c) {
      const int code = node.channels[c];
      layout.values.push_back({code * n + i, code < kBvXposition ? kBvDegToRad : scale, i, code});
    }
  }
  return layout;
}

BvFrameReader::BvFrameReader(const BvMotionLayout& layout, MocapRecord* records)
    : layout_(layout),
      records_(records),
      row_(layout.rest),
      rotations_(static_cast<std::size_t>(layout.nodeCount)) {}

BvMotionStop BvFrameReader::Read(BvScanner& scanner, int first, int last) {
  const auto n = static_cast<std::size_t>(layout_.nodeCount);
  const float* angles = row_.data();
  const float* positions = row_.data() + 3 * n;
  for (int f = first; f < last; ++f) {
    for (std::size_t k = 0; k < layout_.values.size(); ++k) {
      const BvMotionLayout::Value& value = layout_.values[k];
      float number = 0.0f;
      if (!scanner.ReadFloat(&number)) return {f, static_cast<int>(k)};
      row_[static_cast<std::size_t>(value.slot)] = number * value.factor;
    }
    DrvQuaternion_SetZXYMany(rotations_.data(), angles, angles + n, angles + 2 * n,
                             layout_.nodeCount);
    for (std::size_t i = 0; i < n; ++i) {
      DrvTransform& sample = records_[i].samples[f];
      sample.translation = DrvVector{positions[i], positions[n + i], positions[2 * n + i]};
      sample.rotation = rotations_[i];
      sample.scaling = DrvVector{1.0f, 1.0f, 1.0f};  // unused by the importers; kept defined
    }
  }
  return {};
}

bool BvSecondReader::WorthIt(std::uint64_t bytes, int frames) {
  return bytes >= kSecondReaderBytes && frames >= kSecondReaderFrames &&
         std::thread::hardware_concurrency() > 1;
}

void BvSecondReader::Start(std::uint64_t middle, int frames, const BvMotionLayout& layout,
                           MocapRecord* records) {
  worker_ = std::thread(
      [this, middle, frames, &layout, records] { Run(middle, frames, layout, records); });
}

void BvSecondReader::Run(std::uint64_t middle, int frames, const BvMotionLayout& layout,
                         MocapRecord* records) {
  // The section starts with the end of the "Frame Time" line; each line after it is a frame.
  std::uint64_t lineEnds = 0;
  if (!cursor_.SkipToLineStart(middle, &lineEnds) || cursor_.AtEnd()) return;
  const int first = static_cast<int>(lineEnds - 1);
  if (lineEnds < 2 || lineEnds - 1 >= static_cast<std::uint64_t>(frames)) return;
  startOffset_ = cursor_.Offset();
  start_.store(first);
  // Until the first reader is seen short of `first`, it may be writing these frames itself.
  // Both sides store, then load (sequentially consistent): if this load misses the first
  // reader's arrival at `first`, that reader's look at start_ sees `first`.
  if (progress_.load() >= first) return;
  BvFrameReader reader(layout, records);
  for (int f = first; f < frames; f += kStretch) {
    if (stop_.load(std::memory_order_relaxed)) return;
    const int last = frames - f > kStretch ? f + kStretch : frames;
    result_ = reader.Read(cursor_, f, last);
    if (result_.frame >= 0) return;
  }
}

BvMotionStop BvSecondReader::Join() {
  if (worker_.joinable()) worker_.join();
  return result_;
}

void BvSecondReader::Abandon() {
  if (!worker_.joinable()) return;
  stop_.store(true, std::memory_order_relaxed);
  worker_.join();
}
