// A BVH take as its file holds it: the joints (file order, parents first), their channels, and
// the motion as a frames x columns matrix of floats; reading it, writing it, and its forward
// kinematics.
//
// Reading accepts LF and CRLF, tabs or spaces, numbers such as ".5", "-.5", "+1", "1e-3"; a
// name is one word. Each frame is one line of exactly as many values as the hierarchy declares
// channels; blank lines are skipped, and lines after the declared frame count are ignored.
// Anything else (a missing brace, an unknown channel, more than six channels on a joint, a value
// that is not a finite number, too few or too many values on a line, fewer frames than
// "Frames:" says, a second ROOT, no frames or no channels at all, a "Frames:" or "Frame Time:"
// without its number on the same line, a frame count that is not a whole number, a frame time
// outside kMinFrameTime..kMaxFrameTime) fails with "<file>:<line>: <what>", before any memory
// sized by the file's counts is taken: a frame count is first checked against the bytes present
// (every value takes at least one character and one separator). The frame time is bounded
// because every later step (the scene's frames, its curves, the samplers) grows with the take's
// length in seconds: a header with milliseconds written as seconds (8.3333) or a broken value
// (100000) would otherwise make a take of hours from a few hundred frames.
//
// Writing produces LF lines, tab indentation, and the shortest text that reads back to the same
// float (motion) or double (offsets, frame time).
//
// Forward kinematics honours each joint's listed channel order: its rotation is the product of
// its rotation channels in the order listed (R = R1 R2 R3), and its position channels replace
// the matching components of its OFFSET; global = parent global * (translation, rotation).
// Computed in double, stored in float.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "pose_series.h"
#include "rotation3.h"

namespace knrconvert {

// Seconds a frame that motion capture uses: 1000 down to 1 frame a second.
constexpr double kMinFrameTime = 0.001;
constexpr double kMaxFrameTime = 1.0;

enum class BvhChannel : std::uint8_t {
  kXposition,
  kYposition,
  kZposition,
  kXrotation,
  kYrotation,
  kZrotation
};

// 0, 1, 2 for the x, y, z channels of either kind.
inline int ChannelAxis(BvhChannel c) { return static_cast<int>(c) % 3; }
inline bool IsRotation(BvhChannel c) { return c >= BvhChannel::kXrotation; }
// The channel's name as a file writes it ("Xposition", ...).
const char* ChannelName(BvhChannel c);

struct BvhJoint {
  std::string name;
  int parent = -1;                   // index of the parent joint; -1 for the top joint
  double offset[3] = {};             // from the parent joint, in the take's units
  std::vector<BvhChannel> channels;  // in file order
  int column = 0;                    // the joint's first value in a frame row
  bool hasEndSite = false;           // an "End Site" below the joint, at endSite from it
  double endSite[3] = {};
};

struct BvhTake {
  std::vector<BvhJoint> joints;  // file order, parents before children, subtrees contiguous
  int frames = 0;
  double frameTime = 0;       // seconds
  int columns = 0;            // values per frame
  std::vector<float> values;  // frames x columns, row-major

  float* Row(int frame) { return values.data() + static_cast<size_t>(frame) * columns; }
  const float* Row(int frame) const { return values.data() + static_cast<size_t>(frame) * columns; }
  // Sets every joint's column and `columns` from the channel lists (after editing them).
  void AssignColumns();
};

// Reads `path` into `take`. On failure returns false and `error` names the file and line.
bool ParseBvhTake(const std::filesystem::path& path, BvhTake& take, std::string& error);

// Writes `take` to `path`. On failure returns false with the reason in `error`.
bool WriteBvhTake(const BvhTake& take, const std::filesystem::path& path, std::string& error);

// The joint's transform relative to its parent in the frame `row`: position channels replacing
// OFFSET components, rotation channels multiplied in the order listed.
inline void LocalPose(const BvhJoint& joint, const float* row, double position[3], Mat3& rotation) {
  std::copy_n(joint.offset, 3, position);
  rotation = Mat3();
  const float* v = row + joint.column;
  for (const BvhChannel c : joint.channels) {
    if (IsRotation(c))
      PostRotate(rotation, ChannelAxis(c), *v++);
    else
      position[ChannelAxis(c)] = *v++;
  }
}

// Calls work(begin, end) over frame ranges covering [0, frames): on two threads when the work
// (frames x `perFrame` units, one unit about a joint's kinematics) is large enough to gain.
void ForFrameRanges(int frames, size_t perFrame, const std::function<void(int, int)>& work);

// Takes the memory of [data, data + bytes) from the system in one go, in large pages where the
// system has them: on a virtual machine a first touch page by page costs more than reading a
// long take.
void PrefaultPages(const void* data, size_t bytes);

// v.resize(n) for a large fresh vector, its pages taken in one go.
template <class T>
void ResizeFresh(std::vector<T>& v, size_t n) {
  v.reserve(n);
  PrefaultPages(v.data(), n * sizeof(T));
  v.resize(n);
}

// The global position of every joint at every frame and the top joint's rotation (see above).
PoseSeries ComputePoses(const BvhTake& take);

}  // namespace knrconvert
