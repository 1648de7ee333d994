// The in-memory form of a BVH motion-capture file: a fixed-capacity joint table and the sampled
// motion of every joint. Filled by ZyraBvFile (bvh_file.h), read by the BVH importers.
//
// Rules that every operation of the reader keeps:
//   1. 0 <= nodeCount <= kBvMaxNodes; nodes[0] is the root of a freshly read file.
//   2. A parent precedes its children: nodes[i].parent < i, or -1 for a root.
//   3. 0 <= channelCount <= kBvMaxChannels and every channel code is one of BvChannel.
//   4. MocapData::nodeCount equals the hierarchy's node count and record i describes node i.
//   5. Every record holds frameCount samples (null exactly when frameCount is 0).
#pragma once

#include <vector>

#include "knrexport/math/drv_math.h"
#include "zyra/fcurve.h"
#include "zyra/x3dobject.h"

inline constexpr int kBvMaxNodes = 200;
inline constexpr int kBvMaxChannels = 6;
// Names are NUL-terminated, so a name holds at most kBvNameSize - 1 characters.
inline constexpr int kBvNameSize = 512;
// Degrees to radians, in single precision as the motion is stored.
inline constexpr float kBvDegToRad = 0.017453292f;

// Channel codes, in the order of the names a file may list.
enum BvChannel : int {
  kBvXrotation = 0,
  kBvYrotation = 1,
  kBvZrotation = 2,
  kBvXposition = 3,
  kBvYposition = 4,
  kBvZposition = 5,
};

// The name of channel `code` as the file writes it ("Xrotation" ...); "?" for a bad code.
const char* BvChannelName(int code);

// One joint of the table.
struct ZyraBvNode {
  char name[kBvNameSize];
  int parent;                    // index of the parent joint, -1 for a root
  int childCount;                // JOINT blocks directly inside this joint, as read
  int channelCount;              // used entries of `channels`
  int channels[kBvMaxChannels];  // BvChannel codes in file order
  DrvVector offset;              // scaled OFFSET
  DrvVector endsite;  // scaled End Site offset; UpdateEndsite moves it for joints with children
  float spare[3];     // left to the importers
  Zyra::X3DObject object;  // empty after reading; the actor importer keeps the joint's object here
};

// The joint table: one block for kBvMaxNodes joints, in file order. Constructed empty: node count
// 0 and every field of every node zeroed (parents -1, no channels, empty handles).
struct ZyraBvHierarchy {
  ZyraBvHierarchy();
  ZyraBvHierarchy(const ZyraBvHierarchy&) = delete;
  ZyraBvHierarchy& operator=(const ZyraBvHierarchy&) = delete;

  int nodeCount;
  ZyraBvNode nodes[kBvMaxNodes];
};

// The motion of one joint.
struct MocapRecord {
  char name[kBvNameSize] = {};
  int frameCount = 0;
  // frameCount transforms (translation and rotation; scaling 1), malloc'ed, owned here.
  DrvTransform* samples = nullptr;
  // Curves the action importer creates: translation X, Y, Z, then rotation X, Y, Z.
  Zyra::FCurve curves[6];
  // The joint's index in the hierarchy as the file gave it, before any pruning.
  int origin = -1;
};

// One step of the pruning (ZyraBvFile::RemoveNodes): the motion of the joint with origin
// `parent` was folded into that of `child`, sample by sample: child = parent x child.
struct BvFold {
  int child;
  int parent;
};

// The sampled motion of every joint; owns its records and their samples and frees them on
// destruction (FreeMocapData frees them earlier). Not copyable: the samples have one owner.
struct MocapData {
  MocapData() = default;
  ~MocapData();
  MocapData(const MocapData&) = delete;
  MocapData& operator=(const MocapData&) = delete;

  int nodeCount = 0;
  float frameTime = 0.0f;  // seconds per frame, as the file gives it
  // Frames per second: 1 / frameTime, or the whole number it is within 0.01% of (see
  // ExactFrameRate); 0 when the frame time is not positive.
  double frameRate = 0.0;
  MocapRecord* records = nullptr;  // nodeCount records, new[]'ed
  // Every fold the pruning made, in the order made: replaying them on the frames of the file as
  // read gives the pruned joints' motion (what a reader that keeps no samples needs).
  std::vector<BvFold> folds;
};

// Receives the frames of a take as they are parsed (ZyraBvFile::ReadFrames), for a reader that
// wants them otherwise than as samples: frame `frame`'s joint translations (x, y, z: one float
// per joint of the file as read, before pruning, scaled) and rotations. A long take is parsed by
// two threads, so Put runs on both at once for different frames, in no set order, and a frame may
// be put again later (the later call wins): it must write only what belongs to its frame.
class BvFrameSink {
 public:
  virtual void Put(int frame, const float* x, const float* y, const float* z,
                   const DrvQuaternion* rotations) = 0;

 protected:
  ~BvFrameSink() = default;
};

// The frame rate of a frame time: a whole number of frames per second when 1 / frameTime is
// within 0.01% of one (0.0083333 s gives exactly 120), else 1 / frameTime; 0 for a frame time
// that is not a positive finite number.
double ExactFrameRate(float frameTime);
// Frees every record's samples and the record array; leaves `data` empty (count 0, no records,
// no folds).
void FreeMocapData(MocapData& data);
