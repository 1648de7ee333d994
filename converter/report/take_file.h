// One converted take as the run report shows it, read from the take's json file.
//
// Rules for reading a take file:
//   1. A file that is not valid json is still a take, failed, named after the file (without
//      ".json"), with the reason "cannot read <file>: <why>". Its converter crashed or the disk
//      filled; the user must see it rather than lose it from the list.
//   2. A json file without a "take" key at the top is not a take file and is left out.
//   3. Every other key may be absent (a failed take knows little) and is then shown as unknown.
//      A key of the wrong type counts as absent and adds a warning naming it.
//   4. "status" other than "ok" is a failure; a failed take without a reason gets "no reason
//   given".
//   5. Plot series are checked against their frames: a series shorter or longer than its frames
//      is cut to the shorter of the two with a warning; values that are not numbers are gaps.
//   6. Series longer than the point budget are thinned again (plot_series.h): the page must draw
//      fast whoever wrote the file.
//   7. The 3D view ("view", written by converter/view_sampler.h) is kept only when it holds
//      together: "parents" integers, each -1 or an earlier joint; "feet" [{name, joint}] with
//      joints in range; a "skill" clip and an optional "loop" clip, each with a whole "first",
//      a "step" and "count" of at least 1, a positive "unit" and "positions", base64 of exactly
//      count x joints x 3 int16 values and at most kViewClipBytes characters long. Otherwise it
//      is left out with a warning that names what is wrong: a page whose view data is broken
//      or outsized would draw nonsense or grow without bound.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace knrconvert {

// Points kept per plotted series: two per pixel of the widest plot the page draws (min and max
// of each pixel column), which also keeps a report of a hundred takes near 8 MB.
constexpr size_t kPlotPointBudget = 2400;

// Characters of base64 joint positions one clip of a take's 3D view may hold: with the skill and
// the loop clip, a take adds at most about 640 KB to the page however long it is.
constexpr size_t kViewClipBytes = 320 * 1024;

struct TakeLoop {
  double start = 0;
  double end = 0;
  std::string foot;
  std::optional<double> seam_before;
  std::optional<double> seam_after;
};

struct TakeReport {
  std::string file;  // file name of the take's json, without folder
  std::string name;
  std::string status;  // as written ("ok", "failed", ...)
  bool failed = false;
  std::string reason;
  std::optional<double> frames;
  std::optional<double> frame_time;
  std::optional<double> joints;
  std::string cog;
  std::string skill;
  std::vector<std::pair<std::string, std::string>> feet;  // joint, how it was found
  std::optional<double> threshold;
  std::vector<std::string> conditioning;  // what was done to the take before its import
  std::string units;                      // as inferred from the skeleton
  std::vector<std::pair<std::string, double>> agreement;  // per foot: contacts vs the feet's motion
  std::optional<double> distance;
  std::optional<double> heading_change;
  std::optional<TakeLoop> loop;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, double>> seconds;  // phase and seconds, in run order
  std::optional<double> total_seconds;
  // Data for the page's plots, already checked and thinned (rules 5 and 6); null when the take
  // has nothing to plot. Keys: "contacts" {frames, feet: [{name, heel, speed, limit, intervals}]},
  // "path" {x, z}, "seam" {channel, x, frame, before, after, joinAt}; a foot's "speed" (take
  // units a second) is there when the file gives speeds.
  nlohmann::json plots;
  // The 3D view's data as the take file gives it, checked (rule 7); null without one.
  nlohmann::json view;
};

// Reads the take file at `path` (rules above). Nothing when the file is not a take file (rule 2).
std::optional<TakeReport> ReadTakeFile(const std::filesystem::path& path);

// Builds the report entry of a parsed take file named `file` (rules 2 to 6); exposed for tests.
std::optional<TakeReport> ReadTakeJson(const nlohmann::json& root, const std::string& file);

}  // namespace knrconvert
