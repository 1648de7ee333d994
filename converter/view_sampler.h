// What the run report's 3D view of a take plays: the skeleton's joint positions over the whole
// skill, thinned, and over the made loop, whole, small enough that a take adds well under a
// megabyte to the page however long it is.
//
// Rules:
//   1. A clip is a run of evenly spaced frames of the take: `first` (the frame number the report's
//      charts use), `step` (take frames between two samples) and `count` samples. The skill clip
//      covers the take from its first to its last frame; the loop clip the loop window, its last
//      frame included (the view wraps from it to the first).
//   2. Positions are every joint's global position (x, y, z; Y up, the take's units) per sample,
//      joints in the pose series' order, stored as little-endian signed 16-bit integers times
//      `unit` (the clip's largest absolute coordinate / 32767), base64 encoded: a fixed 2.7
//      characters per coordinate, where decimal text would take six to nine.
//   3. Each clip holds at most kViewClipBytes (converter/report/take_file.h) characters of
//   positions. The skill clip takes every
//      `step`-th frame, `step` the smallest that fits; the loop keeps every frame when it fits
//      (loops last a second or two) and is thinned the same way when it does not.
//   4. The loop clip is the loop as Make Loop made it: the limbs' pose relative to the COG from
//      the made loop, carried by the COG's own motion over the window in the take. Joints the
//      made loop does not have (an optimized actor) keep the take's pose. When the scene's
//      window before Make Loop does not match the take's own poses there (the scene's COG
//      frame or units differ: more than kViewMatchTolerance of the body's size apart), the clip
//      is the take's window as it is and says so (`made` false).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "converter/report/take_file.h"
#include "loop_window.h"
#include "pose_series.h"

namespace knrconvert {

// Largest distance, as a share of the body's size, between the scene's and the take's pose of a
// joint relative to the COG for the two to count as the same (rule 4).
constexpr double kViewMatchTolerance = 0.02;

struct ViewClip {
  int first = 0;          // frame number of the first sample, as the charts count frames
  int step = 1;           // take frames per sample
  int count = 0;          // samples
  double unit = 0;        // take units per integer step of the positions
  std::string positions;  // base64 of int16 [sample][joint][x, y, z] (rule 2)
  bool made = true;       // a loop clip: the loop Make Loop made (rule 4)
};

struct ViewRecord {
  double frameTime = 0;                           // seconds per take frame
  std::vector<int> parents;                       // per joint; -1 for the top joint
  std::vector<std::pair<std::string, int>> feet;  // foot name and its joint
  ViewClip skill;
  std::optional<ViewClip> loop;
};

// The made loop as sampled from the scene: poses relative to the COG for the loop window's
// frames, with their joints' names (the scene's joints, which may differ from the take's).
struct MadeLoop {
  int start = 0, end = 0;  // the window in take frames (indices into the pose series)
  const RelativePoses* source = nullptr;  // the window before Make Loop, sampled the same way
  const RelativePoses* made = nullptr;    // the window after Make Loop
  const std::vector<std::string>* names = nullptr;
};

// The view of `poses` (rules 1 to 3); `firstFrame` is the chart frame of take frame 0, `feet`
// the feet's names and joints. Empty positions when the series has no frames.
ViewRecord SampleView(const PoseSeries& poses, int firstFrame,
                      const std::vector<std::pair<std::string, int>>& feet);

// Adds the loop clip (rules 1 to 4) to `view`; does nothing for a window outside the take.
void AddLoopView(ViewRecord& view, const PoseSeries& poses, int firstFrame, const MadeLoop& loop);

// Base64 of `bytes` (standard alphabet, padded); exposed for tests.
std::string Base64(const std::vector<unsigned char>& bytes);

}  // namespace knrconvert
