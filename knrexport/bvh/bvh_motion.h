// The frames of a BVH MOTION section turned into samples, by one thread or, for a long take, by
// two: the second starts at a line in the middle of the section and reads the frames from there
// while the first reads up to it. Private to the BVH reader (bvh_file.cpp).
#pragma once

#include <atomic>
#include <cstdint>
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
};
BvMotionLayout MakeMotionLayout(const ZyraBvHierarchy& table, float scale);

// Where reading stopped early: the frame and the index in BvMotionLayout::values of the value
// that could not be read; frame -1 when every frame was read.
struct BvMotionStop {
  int frame = -1;
  int value = 0;
};

// Reads frames into the records' samples: one DrvTransform per joint and frame (scaling 1), the
// rotations of a frame's joints built four at a time.
class BvFrameReader {
 public:
  BvFrameReader(const BvMotionLayout& layout, MocapRecord* records);
  // Reads frames first .. last - 1 with `scanner`.
  BvMotionStop Read(BvScanner& scanner, int first, int last);

 private:
  const BvMotionLayout& layout_;
  MocapRecord* records_;
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
// up by itself; until the first reader reaches that frame, neither writes the other's samples.
class BvSecondReader {
 public:
  BvSecondReader() = default;
  ~BvSecondReader() { Abandon(); }
  BvSecondReader(const BvSecondReader&) = delete;
  BvSecondReader& operator=(const BvSecondReader&) = delete;

  // Whether a section of `bytes` bytes and `frames` frames is worth a second reader.
  static bool WorthIt(std::uint64_t bytes, int frames);
  // Starts reading after byte `middle`; Cursor() is at the start of the section.
  void Start(std::uint64_t middle, int frames, const BvMotionLayout& layout, MocapRecord* records);
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
  void Run(std::uint64_t middle, int frames, const BvMotionLayout& layout, MocapRecord* records);

  BvScanner cursor_;
  std::thread worker_;
  std::atomic<int> start_{-1};  // the first frame of the second reader, once known
  // Stored by the first reader at every frame: on a cache line of its own, away from the
  // second reader's cursor.
  alignas(64) std::atomic<int> progress_{-1};
  alignas(64) std::atomic<bool> stop_{false};
  std::uint64_t startOffset_ = 0;  // where its first frame's text begins (set before start_)
  BvMotionStop result_;
};
