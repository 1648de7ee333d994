// The take file: the plot series thinned and the JSON text (layout in take_record.h).
#include "take_record.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "converter/report/plot_series.h"
#include "converter/report/take_file.h"
#include "files/atomic_file.h"

namespace knrconvert {
namespace {

using json = nlohmann::ordered_json;

json Intervals(const std::vector<Interval>& intervals) {
  json out = json::array();
  for (const auto& [first, last] : intervals) out.push_back({first, last});
  return out;
}

json Clip(const ViewClip& clip) {
  return {{"first", clip.first}, {"step", clip.step},           {"count", clip.count},
          {"unit", clip.unit},   {"positions", clip.positions}, {"made", clip.made}};
}

}  // namespace

std::string TakeRecordText(const TakeRecord& r) {
  json j;
  j["take"] = r.take;
  j["source"] = r.source;
  j["status"] = r.ok ? "ok" : "failed";
  if (!r.ok) j["reason"] = r.reason;
  if (r.frames) j["frames"] = *r.frames;
  if (r.frameTime) j["frameTime"] = *r.frameTime;
  if (r.joints) j["joints"] = *r.joints;
  if (!r.cog.empty()) j["cog"] = r.cog;
  if (!r.feet.empty()) {
    j["feet"] = json::array();
    for (const FootRecord& foot : r.feet)
      j["feet"].push_back({{"joint", foot.joint}, {"found", foot.found}});
  }
  if (r.conditioning) {
    const ConditionRecord& c = *r.conditioning;
    j["conditioning"] = {{"changed", c.changed}, {"notes", c.notes}, {"units", c.units}};
    if (c.metresPerUnit > 0) j["conditioning"]["metresPerUnit"] = c.metresPerUnit;
    if (!c.keptFile.empty()) j["conditioning"]["file"] = c.keptFile;
  }
  if (!r.skill.empty()) j["skill"] = r.skill;
  if (r.threshold) j["threshold"] = *r.threshold;
  if (!r.contacts.empty()) {
    j["contacts"] = json::object();
    for (const auto& [foot, intervals] : r.contacts) j["contacts"][foot] = Intervals(intervals);
  }
  if (!r.contactAgreement.empty()) j["contactAgreement"] = r.contactAgreement;
  if (r.distance) j["distance"] = *r.distance;
  if (r.headingChange) j["headingChange"] = *r.headingChange;
  if (r.hipHeight) j["hipHeight"] = *r.hipHeight;
  if (r.legLength) j["legLength"] = *r.legLength;
  if (r.loop) {
    j["loop"] = {{"start", r.loop->start},           {"end", r.loop->end},
                 {"seamBefore", r.loop->seamBefore}, {"seamAfter", r.loop->seamAfter},
                 {"loopStep", r.loop->loopStep},     {"sourceStep", r.loop->sourceStep},
                 {"rejected", r.loop->rejected}};
    if (!r.loop->foot.empty()) j["loop"]["foot"] = r.loop->foot;
  }
  j["warnings"] = r.warnings;
  j["seconds"] = json::object();
  for (const auto& [phase, s] : r.seconds) j["seconds"][phase] = s;
  if (r.filesWritten) {
    j["files"] = {{"scene", r.take + ".zyra"},
                  {"actor", r.take + ".actor.zyra"},
                  {"weights", r.take + ".actor.wgmp"},
                  {"gltf", r.take + ".glb"}};
  }
  size_t count = r.pathX.size();
  for (const auto& [foot, series] : r.heel) count = std::max(count, series.size());
  if (count > 0 || r.seam) {
    json plots = json::object();
    if (count > 0) {
      std::vector<double> frames(count);
      for (size_t i = 0; i < count; ++i) frames[i] = r.firstFrame + static_cast<double>(i);
      std::map<std::string, std::vector<double>> heel = r.heel;
      std::vector<std::vector<double>*> series;
      std::map<std::string, std::vector<double>> speed = r.footSpeed;
      for (auto* map : {&heel, &speed}) {
        for (auto& [foot, values] : *map) {
          values.resize(count, std::numeric_limits<double>::quiet_NaN());
          series.push_back(&values);
        }
      }
      ThinTimeSeries(frames, series, kPlotPointBudget);
      json whole = json::array();
      for (double f : frames) whole.push_back(static_cast<int>(f));
      plots["frames"] = std::move(whole);
      plots["heel"] = heel;
      if (!speed.empty()) plots["speed"] = speed;
      plots["heightLimit"] = r.heightLimit;
      std::vector<double> x = r.pathX, z = r.pathZ;
      ThinPath(x, z, kPlotPointBudget);
      plots["path"] = {{"x", x}, {"z", z}};
    }
    if (r.seam) {
      SeamPlot seam = *r.seam;
      ThinTimeSeries(seam.frames, {&seam.before, &seam.after}, kPlotPointBudget);
      plots["seam"] = {{"channel", seam.channel},
                       {"frames", seam.frames},
                       {"before", seam.before},
                       {"after", seam.after}};
    }
    j["plots"] = plots;
  }
  if (r.view && r.view->skill.count > 0) {
    json feet = json::array();
    for (const auto& [name, joint] : r.view->feet)
      feet.push_back({{"name", name}, {"joint", joint}});
    j["view"] = {{"frameTime", r.view->frameTime},
                 {"parents", r.view->parents},
                 {"feet", feet},
                 {"skill", Clip(r.view->skill)}};
    if (r.view->loop) j["view"]["loop"] = Clip(*r.view->loop);
  }

  return j.dump() + "\n";
}

bool WriteTakeRecord(const TakeRecord& r, const std::filesystem::path& dir, std::string& error) {
  return WriteTakeRecordTo(r, dir / (r.take + ".json"), error);
}

bool WriteTakeRecordTo(const TakeRecord& r, const std::filesystem::path& target,
                       std::string& error) {
  const Zyra::CStatus status = Zyra::rt::WriteFileReplacing(target.string(), TakeRecordText(r));
  if (!status.Succeeded()) {
    error = "cannot write \"" + target.string() + "\": " + Zyra::ToUtf8(status.GetMessage().Wide());
    return false;
  }
  return true;
}

}  // namespace knrconvert
