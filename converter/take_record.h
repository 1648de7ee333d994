// What the converter learnt about one take, and its `<take>.json` file.
//
// Fields that are not known (a take that failed early) stay unset and are left out of the file.
// Plot series are thinned to the report's point budget by the report's own rules
// (converter/report/plot_series.h): the heel heights and the seam min/max per bucket of frames, so
// a short lift or landing still shows; the root path by even steps along it, ends kept.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "loop_window.h"
#include "view_sampler.h"

namespace knrconvert {

struct FootRecord {
  std::string joint;
  std::string found;  // "name" or "shape"
};

struct LoopRecord {
  int start = 0, end = 0;
  std::string foot;  // empty for a window that is no gait cycle
  // How far the pose at the end is from the pose at the start (the largest distance of a joint
  // relative to the COG, in the take's units), before and after Make Loop blended it.
  double seamBefore = 0, seamAfter = 0;
  // The largest one-frame move of a joint relative to the COG in the made loop (its wrap
  // included) and inside the source window; windows tried before this one popped.
  double loopStep = 0, sourceStep = 0;
  int rejected = 0;
};

// What conditioning did to the take before the plug-in read it.
struct ConditionRecord {
  bool changed = false;
  std::vector<std::string> notes;
  std::string units;  // "centimetres", "metres", ... as inferred from the skeleton
  double metresPerUnit = 0;
  std::string keptFile;  // the conditioned take, when kept beside the outputs
};

struct SeamPlot {
  std::string channel;
  std::vector<double> frames, before, after;
};

struct TakeRecord {
  std::string take, source;
  bool ok = false;
  std::string reason;
  std::optional<int> frames, joints;
  std::optional<double> frameTime;
  std::string cog;
  std::vector<FootRecord> feet;
  std::optional<ConditionRecord> conditioning;
  std::string skill;  // "Locomotion" or "Basic"
  std::optional<double> threshold;
  std::map<std::string, std::vector<Interval>> contacts;
  // Per foot, the share of frames where the keyed contacts agree with the converter's own
  // stance estimate (a Basic take: where the estimate says the foot is planted, in `contacts`).
  std::map<std::string, double> contactAgreement;
  std::optional<double> distance, headingChange, hipHeight, legLength;
  std::optional<LoopRecord> loop;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, double>> seconds;  // phase -> seconds, in order
  bool filesWritten = false;

  // Per-frame series over the skill's frames (index 0 = firstFrame), before decimation.
  int firstFrame = 0;
  std::map<std::string, std::vector<double>> heel;
  std::map<std::string, std::vector<double>> footSpeed;  // take units a second
  std::map<std::string, double> heightLimit;
  std::vector<double> pathX, pathZ;
  std::optional<SeamPlot> seam;
  std::optional<ViewRecord> view;  // the report's 3D view, already within its size budget
};

// Writes `dir/<take>.json` (through a temporary file and a rename, as the host writes files).
// False with `error` set when the file cannot be written.
bool WriteTakeRecord(const TakeRecord& record, const std::filesystem::path& dir,
                     std::string& error);

}  // namespace knrconvert
