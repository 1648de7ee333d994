// The frames of a BVH MOTION section handed to a frame sink (samples, or the action import's
// curves), by one thread or, for a long take, by
// two: the second starts at a line in the middle of the section and reads the frames from there
// while the first reads up to it. Private to the BVH reader (bvh_file.cpp).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "knrexport/bvh/bvh_data.h"
#include "knrexport/bvh/bvh_scanner.h"

// Where each value of a frame goes. A frame is read into a row of 6 x nodeCount floats: the X, Y
// and Z angles (radians) of every joint, then its X, Y and Z positions; places that no channel
// writes keep their rest values (no rotation, the offset).
struct BvMotionLayout {
  struct Value {
    int slot;      // axis * nodeCount + joint
    float factor;  // degrees to radians, or the scale
    int node;      // the joint and channel code, for messages
    int code;
  };
  int nodeCount = 0;
  std::vector<Value> values;  // in file order
  std::vector<float> rest;
  std::vector<std::string> names;  // of the joints, for messages once the table is pruned
};
BvMotionLayout MakeMotionLayout(const ZyraBvHierarchy& table, float scale);

// The sink of ZyraBvFile::ReadMotionData: one DrvTransform per joint and frame (scaling 1) in
// the records' samples.
class BvSampleSink final : public BvFrameSink {
 public:
  BvSampleSink(MocapRecord* records, int count) : records_(records), count_(count) {}
  void Put(int frame, const float* x, const float* y, const float* z,
           const DrvQuaternion* rotations) override;

 private:
  MocapRecord* records_;
  int count_;
};

// Where reading stopped early: the frame, the index in BvMotionLayout::values of the value that
// could not be read, and why; frame -1 when every frame was read.
struct BvMotionStop {
  enum Why : int {
    kNoNumber,   // no number where the value should be (the cursor stands there)
    kShortRow,   // the frame's line ends after `value` values
    kLongRow,    // the frame's line holds more values than a frame
    kNotFinite,  // the value is nan, an infinity or out of the float range
  };
  int frame = -1;
  int value = 0;
  Why why = kNoNumber;
  std::uint64_t offset = 0;  // where the fault is, for the row and number faults
};

// Reads frames into a frame sink, the rotations of a frame's joints built four at a time.
//
// Rows. When the first frame starts on a line of its own and its values all stand on that line,
// the take is taken to hold one frame a line, and every line must then hold exactly one frame: a
// line short of values or with values left over is refused at that line (otherwise one value too
// many or too few would shift every later frame without a word). A first frame spread over
// several lines (some writers wrap long frames) must end where a line ends; its lines are not
// checked further. Every value must be finite.
class BvFrameReader {
 public:
  // `frames` is the number of frames of the section (the last one is checked for values left
  // over on its line).
  BvFrameReader(const BvMotionLayout& layout, BvFrameSink& sink, int frames);
  // Into the samples of `records` (one per joint of the layout).
  BvFrameReader(const BvMotionLayout& layout, MocapRecord* records, int frames);
  BvFrameReader(const BvFrameReader&) = delete;
  BvFrameReader& operator=(const BvFrameReader&) = delete;
  // Reads frames first .. last - 1 with `scanner`.
  BvMotionStop Read(BvScanner& scanner, int first, int last);
  // The take holds one frame a line and the next frame starts at the start of a line (the
  // second reader, which starts on a line of its own, assumes this).
  void AssumeOneFrameALine() {
    rows_ = kRows;
    lineStart_ = true;
  }
  // Whether the take holds one frame a line (known once the first frame is read).
  bool OneFrameALine() const { return rows_ == kRows; }

 private:
  enum RowMode { kUnknown, kRows, kFree };
  // Checks where value `k` of frame `f` stands (`newLine`: it begins a line; `before`: the end of
  // the value before it; `at`: its own offset). False, with `stop` set, when it cannot be there.
  bool CheckBreak(int f, int k, bool newLine, std::uint64_t before, std::uint64_t at,
                  BvMotionStop* stop);

  const BvMotionLayout& layout_;
  BvSampleSink samples_;  // the sink when built on records
  BvFrameSink& sink_;
  int frames_;
  RowMode rows_ = kUnknown;
  bool lineStart_ = false;
  int firstBreak_ = -1;             // the first frame: its first value that began a new line
  std::uint64_t firstLineEnd_ = 0;  // and where its first line's values ended
  std::vector<float> row_;  // every frame writes the same places; the others keep rest values
  std::vector<DrvQuaternion> rotations_;
};

// The second reader of a long take. Cursor() is forked from the first reader's scanner at the
// start of the section (BvScanner::Fork), then Start() sets the second reader off: it finds the
// first line after the middle of the section, takes the lines before it to be one frame each (plus
// the end of the "Frame Time" line) and reads from there to the last frame. The first reader calls
// Reached(f) before each frame f: once it returns true, frame f is where the second reader began,
// and Aligned() tells whether the first reader's cursor agrees (it then stops and Join()s), else
// Abandon() and read on alone. A second reader that finds its starting frame already passed gives
// up by itself; until the first reader reaches that frame, neither puts the other's frames.
class BvSecondReader {
 public:
  BvSecondReader() = default;
  ~BvSecondReader() { Abandon(); }
  BvSecondReader(const BvSecondReader&) = delete;
  BvSecondReader& operator=(const BvSecondReader&) = delete;

  // Whether a section of `bytes` bytes and `frames` frames is worth a second reader.
  static bool WorthIt(std::uint64_t bytes, int frames);
  // Starts reading after byte `middle`; Cursor() is at the start of the section.
  void Start(std::uint64_t middle, int frames, const BvMotionLayout& layout, BvFrameSink& sink);
  // Into the samples of `records` (one per joint of the layout).
  void Start(std::uint64_t middle, int frames, const BvMotionLayout& layout, MocapRecord* records) {
    samples_ = BvSampleSink(records, layout.nodeCount);
    Start(middle, frames, layout, samples_);
  }
  bool Reached(int frame) {
    if (!worker_.joinable()) return false;
    progress_.store(frame);
    return start_.load() == frame;
  }
  // Whether `first`'s cursor (before frame Reached) stands where the second reader began.
  bool Aligned(BvScanner& first) { return !first.AtEnd() && first.Offset() == startOffset_; }
  // Waits for the second reader and returns where it stopped; Cursor() is then where it failed.
  BvMotionStop Join();
  BvScanner& Cursor() { return cursor_; }
  // Stops the second reader and waits for it; whatever it wrote is rewritten by the first.
  void Abandon();

 private:
  void Run(std::uint64_t middle, int frames, const BvMotionLayout& layout, BvFrameSink& sink);

  BvScanner cursor_;
  BvSampleSink samples_{nullptr, 0};
  std::thread worker_;
  std::atomic<int> start_{-1};  // the first frame of the second reader, once known
  // Stored by the first reader at every frame: on a cache line of its own, away from the
  // second reader's cursor.
  alignas(64) std::atomic<int> progress_{-1};
  alignas(64) std::atomic<bool> stop_{false};
  std::uint64_t startOffset_ = 0;  // where its first frame's text begins (set before start_)
  BvMotionStop result_;
};
