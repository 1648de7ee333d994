// Reader of Biovision BVH motion-capture files: the HIERARCHY section into a ZyraBvHierarchy, the
// MOTION section into MocapData, and the pruning that the importers apply before they build
// anything in the scene.
//
// Typical use: Open, ReadHierarchy, ReadMotionData, then RemoveNodes / RemoveTree per option
// item (GetTag in knrexport/scene/text_utils.h splits the option texts), UpdateEndsite, read
// Hierarchy() and the data, Close. An importer that wants no samples of the whole take reads
// ReadMotionHeader instead of ReadMotionData, prunes, then ReadFrames into a BvFrameSink of its
// own, replaying MocapData::folds on each frame.
// Every failure is a false result; LastError() says what was wrong and LastErrorLine() where.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "knrexport/bvh/bvh_data.h"

class BvScanner;
struct BvMotionLayout;
struct BvMotionStop;

class ZyraBvFile {
 public:
  ZyraBvFile();
  ~ZyraBvFile();  // closes
  ZyraBvFile(const ZyraBvFile&) = delete;
  ZyraBvFile& operator=(const ZyraBvFile&) = delete;

  // Opens `path` for reading; lengths read later are multiplied by `scale`. False when a file
  // or a hierarchy is already held, or the file cannot be opened.
  bool Open(const wchar_t* path, float scale);
  // Opens the reader on a copy of `size` bytes of BVH text instead of a file; the same parser
  // then reads it (the fuzz harness and in-memory tests use this).
  bool OpenMemory(const char* data, std::size_t size, float scale);
  // Closes the file and frees the hierarchy (not the MocapData, which the caller owns). False
  // when nothing was open or closing the stream failed.
  bool Close();
  // The joint table read so far, or null. Owned by the reader.
  ZyraBvHierarchy* Hierarchy() { return hierarchy_.get(); }

  // Reads "HIERARCHY ROOT" and the root joint with everything inside it. False on a malformed
  // section; the partly filled table stays held until Close.
  bool ReadHierarchy();
  // Reads one joint block (its name, "{", its keywords, "}") and recursively its children, as
  // the child of node `parent` (-1 for the root).
  bool ReadHierarchyNodes(int parent);
  // Reads the MOTION section into `data` (anything `data` held is freed first): only the first
  // frame when `firstFrameOnly`. False on a malformed section; `data` may then hold records,
  // which FreeMocapData (or its destructor) releases. A long take (megabytes of frames, one a
  // line) is read by two threads, each from its half on; the samples and every message are those
  // of one reader.
  bool ReadMotionData(MocapData* data, bool firstFrameOnly);
  // The MOTION section in two steps, for a caller that takes the frames as they are parsed
  // instead of as samples. ReadMotionHeader reads the section up to its first frame and gives
  // `data` its records without samples (frame counts 0); the pruning may then run on `data`,
  // noting its folds there. ReadFrames parses the MotionFrames() frames into `sink`, each in the
  // joints of the file as read (record origins), by two threads for a long take, with the
  // refusals and messages of ReadMotionData. A second ReadFrames fails.
  bool ReadMotionHeader(MocapData* data);
  int MotionFrames() const { return motionFrames_; }
  bool ReadFrames(BvFrameSink& sink);

  // Drops every joint whose name contains `tag`; their motion is folded into their children's
  // samples. Returns true (false only when `data` does not match the hierarchy).
  bool RemoveNodes(const char* tag, MocapData* data);
  // Drops every joint below the first joint named `name`, and that joint too unless `keepRoot`.
  // Without such a joint nothing changes. Returns true (false only when `data` does not match).
  bool RemoveTree(const char* name, MocapData* data, bool keepRoot);

  // Why the last call failed ("" after success), and the 1-based line of the file where the
  // problem was found (0 when it has no place in the file).
  const char* LastError() const { return error_.c_str(); }
  int LastErrorLine() const { return errorLine_; }

 private:
  bool OpenScanner(float scale);
  // Records `message` at the line holding the cursor (or the end of the text) and returns false.
  bool Fail(const std::string& message);
  bool FailAtOffset(std::uint64_t offset, const std::string& message);
  bool FailNoPlace(const std::string& message);
  // The message for a scan that found no number or no token where one was needed, at the
  // cursor of the reader's scanner or of `at` (a second cursor over the same text).
  bool FailExpected(const char* what, const std::string& context);
  bool FailExpectedAt(BvScanner& at, const char* what, const std::string& context);
  bool FailReadingFrame(BvScanner& at, const BvMotionLayout& layout, const BvMotionStop& stop);
  // Reads a float that must be finite; a non-finite one is noted for FailNumber.
  bool ReadFinite(float* value);
  // The failure after ReadFinite: the non-finite value at its place, else FailExpected.
  bool FailNumber(const char* what, const std::string& context);
  bool CheckData(const MocapData* data, const char* operation);
  bool ReadHeader(MocapData* data, bool firstFrameOnly);
  void ReplaceTables(ZyraBvHierarchy* nodes, MocapRecord* records, int count, MocapData* data);

  std::unique_ptr<BvScanner> scanner_;
  std::string path_;  // of the open file (UTF-8), for a second stream over it
  std::unique_ptr<ZyraBvHierarchy> hierarchy_;
  float scale_ = 1.0f;
  std::string error_;
  int errorLine_ = 0;
  static constexpr std::uint64_t kNoOffset = ~std::uint64_t{0};
  std::uint64_t nonFinite_ = kNoOffset;  // where ReadFinite met a non-finite value
  // Set by the motion header for ReadFrames: where each value of a frame goes (made from the
  // table before any pruning), how many frames to read, and whether only the first is read.
  std::unique_ptr<BvMotionLayout> layout_;
  int motionFrames_ = 0;
  bool firstFrameOnly_ = false;
};

// Sets the end site of every joint that has children to the mean of its children's first-frame
// translations; raises *maxLength (when not null) to the longest end-site length.
void UpdateEndsite(ZyraBvHierarchy* hierarchy, MocapData& data, float* maxLength);
