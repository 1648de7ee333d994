#include "knrexport/bvh/bvh_motion.h"

#include <cmath>

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
    layout.names.emplace_back(node.name);
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

void BvSampleSink::Put(int frame, const float* x, const float* y, const float* z,
                       const DrvQuaternion* rotations) {
  for (int i = 0; i < count_; ++i) {
    DrvTransform& sample = records_[i].samples[frame];
    sample.translation = DrvVector{x[i], y[i], z[i]};
    sample.rotation = rotations[i];
    sample.scaling = DrvVector{1.0f, 1.0f, 1.0f};  // unused by the importers; kept defined
  }
}

BvFrameReader::BvFrameReader(const BvMotionLayout& layout, MocapRecord* records, int frames)
    : BvFrameReader(layout, samples_, frames) {
  samples_ = BvSampleSink(records, layout.nodeCount);
}

BvFrameReader::BvFrameReader(const BvMotionLayout& layout, BvFrameSink& sink, int frames)
    : layout_(layout),
      samples_(nullptr, 0),
      sink_(sink),
      frames_(frames),
      row_(layout.rest),
      rotations_(static_cast<std::size_t>(layout.nodeCount)) {}

bool BvFrameReader::CheckBreak(int f, int k, bool newLine, std::uint64_t before, std::uint64_t at,
                               BvMotionStop* stop) {
  const int count = static_cast<int>(layout_.values.size());
  if (rows_ == kRows) {
    if (k == 0 && !newLine) {
      *stop = {f - 1, count, BvMotionStop::kLongRow, at};
      return false;
    }
    if (k > 0 && newLine) {
      *stop = {f, k, BvMotionStop::kShortRow, before};
      return false;
    }
    return true;
  }
  // The first frame tells how frames stand; the first value after it (k == 0 of frame 1, or
  // the end check, k == count) settles it.
  if (f == 0 && k == 0) {
    if (!newLine) rows_ = kFree;  // values on the "Frame Time" line: no rows to speak of
    return true;
  }
  if (f == 0 && k < count) {
    if (newLine && firstBreak_ < 0) {
      firstBreak_ = k;
      firstLineEnd_ = before;
    }
    return true;
  }
  if (newLine) {
    rows_ = firstBreak_ < 0 ? kRows : kFree;
    return true;
  }
  // The first frame ends in the middle of a line: its first line held too many values, or, when
  // the frame ran on to the next line, too few.
  if (firstBreak_ < 0) {
    *stop = {0, count, BvMotionStop::kLongRow, at};
  } else {
    *stop = {0, firstBreak_, BvMotionStop::kShortRow, firstLineEnd_};
  }
  return false;
}

BvMotionStop BvFrameReader::Read(BvScanner& scanner, int first, int last) {
  const auto n = static_cast<std::size_t>(layout_.nodeCount);
  const float* angles = row_.data();
  const float* positions = row_.data() + 3 * n;
  BvMotionStop stop;
  for (int f = first; f < last; ++f) {
    for (std::size_t k = 0; k < layout_.values.size(); ++k) {
      const BvMotionLayout::Value& value = layout_.values[k];
      const std::uint64_t before = scanner.Offset();
      bool newLine = false;
      if (!scanner.SkipSpaceNotingLines(&newLine)) return {f, static_cast<int>(k)};
      newLine |= lineStart_;
      lineStart_ = false;
      if (rows_ != kFree && (rows_ == kUnknown || newLine != (k == 0)) &&
          !CheckBreak(f, static_cast<int>(k), newLine, before, scanner.Offset(), &stop)) {
        return stop;
      }
      const std::uint64_t at = scanner.Offset();
      float number = 0.0f;
      if (!scanner.ReadFloat(&number)) return {f, static_cast<int>(k)};
      if (!std::isfinite(number)) return {f, static_cast<int>(k), BvMotionStop::kNotFinite, at};
      row_[static_cast<std::size_t>(value.slot)] = number * value.factor;
    }
    DrvQuaternion_SetZXYMany(rotations_.data(), angles, angles + n, angles + 2 * n,
                             layout_.nodeCount);
    sink_.Put(f, positions, positions + n, positions + 2 * n, rotations_.data());
  }
  // After the last frame, nothing more may stand on its line.
  if (last == frames_ && last > first && rows_ != kFree) {
    const std::uint64_t before = scanner.Offset();
    bool newLine = false;
    if (scanner.SkipSpaceNotingLines(&newLine) &&
        !CheckBreak(last, 0, newLine, before, scanner.Offset(), &stop)) {
      return stop;
    }
  }
  return {};
}

bool BvSecondReader::WorthIt(std::uint64_t bytes, int frames) {
  return bytes >= kSecondReaderBytes && frames >= kSecondReaderFrames &&
         std::thread::hardware_concurrency() > 1;
}

void BvSecondReader::Start(std::uint64_t middle, int frames, const BvMotionLayout& layout,
                           BvFrameSink& sink) {
  worker_ =
      std::thread([this, middle, frames, &layout, &sink] { Run(middle, frames, layout, sink); });
}

void BvSecondReader::Run(std::uint64_t middle, int frames, const BvMotionLayout& layout,
                         BvFrameSink& sink) {
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
  BvFrameReader reader(layout, sink, frames);
  reader.AssumeOneFrameALine();
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
