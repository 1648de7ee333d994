// The take file: decimation of the plot series and the JSON text (layout in take_record.h).
#include "take_record.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace knrconvert {
namespace {

using json = nlohmann::ordered_json;

struct Bucket {
  size_t begin, end;
};

std::vector<Bucket> Buckets(size_t count) {
  std::vector<Bucket> buckets;
  const size_t n = kMaxPlotPoints / 2;
  for (size_t b = 0; b < n; ++b) buckets.push_back({b * count / n, (b + 1) * count / n});
  return buckets;
}

json Intervals(const std::vector<Interval>& intervals) {
  json out = json::array();
  for (const auto& [first, last] : intervals) out.push_back({first, last});
  return out;
}

}  // namespace

std::vector<size_t> PlotIndices(size_t count) {
  std::vector<size_t> indices;
  if (count <= kMaxPlotPoints) {
    for (size_t i = 0; i < count; ++i) indices.push_back(i);
    return indices;
  }
  for (const Bucket& b : Buckets(count)) {
    indices.push_back(b.begin);
    indices.push_back(b.begin + (b.end - b.begin) / 2);
  }
  return indices;
}

std::vector<double> DecimateSeries(const std::vector<double>& series, bool minMax) {
  if (series.size() <= kMaxPlotPoints) return series;
  std::vector<double> out;
  if (!minMax) {
    for (size_t i : PlotIndices(series.size())) out.push_back(series[i]);
    return out;
  }
  for (const Bucket& b : Buckets(series.size())) {
    const auto first = series.begin() + static_cast<std::ptrdiff_t>(b.begin);
    const auto last = series.begin() + static_cast<std::ptrdiff_t>(b.end);
    const auto [low, high] = std::minmax_element(first, last);
    out.push_back(low < high ? *low : *high);
    out.push_back(low < high ? *high : *low);
  }
  return out;
}

bool WriteTakeRecord(const TakeRecord& r, const std::filesystem::path& dir, std::string& error) {
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
  if (!r.skill.empty()) j["skill"] = r.skill;
  if (r.threshold) j["threshold"] = *r.threshold;
  if (!r.contacts.empty()) {
    j["contacts"] = json::object();
    for (const auto& [foot, intervals] : r.contacts) j["contacts"][foot] = Intervals(intervals);
  }
  if (r.distance) j["distance"] = *r.distance;
  if (r.headingChange) j["headingChange"] = *r.headingChange;
  if (r.loop) {
    j["loop"] = {{"start", r.loop->start},
                 {"end", r.loop->end},
                 {"seamBefore", r.loop->seamBefore},
                 {"seamAfter", r.loop->seamAfter}};
    if (!r.loop->foot.empty()) j["loop"]["foot"] = r.loop->foot;
  }
  j["warnings"] = r.warnings;
  j["seconds"] = json::object();
  for (const auto& [phase, s] : r.seconds) j["seconds"][phase] = s;
  if (r.filesWritten) {
    j["files"] = {{"scene", r.take + ".zyra"},
                  {"actor", r.take + ".actor.zyra"},
                  {"weights", r.take + ".actor.wgmp"}};
  }
  size_t count = r.pathX.size();
  for (const auto& [foot, series] : r.heel) count = std::max(count, series.size());
  if (count > 0 || r.seam) {
    json plots = json::object();
    if (count > 0) {
      json frames = json::array();
      for (size_t i : PlotIndices(count)) frames.push_back(r.firstFrame + static_cast<int>(i));
      plots["frames"] = frames;
      plots["heel"] = json::object();
      for (const auto& [foot, series] : r.heel) plots["heel"][foot] = DecimateSeries(series, true);
      plots["heightLimit"] = r.heightLimit;
      plots["path"] = {{"x", DecimateSeries(r.pathX, false)},
                       {"z", DecimateSeries(r.pathZ, false)}};
    }
    if (r.seam) {
      plots["seam"] = {{"channel", r.seam->channel},
                       {"frames", r.seam->frames},
                       {"before", r.seam->before},
                       {"after", r.seam->after}};
    }
    j["plots"] = plots;
  }

  const std::filesystem::path target = dir / (r.take + ".json");
  const std::filesystem::path temp = dir / ("." + r.take + ".json.part");
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << j.dump() << "\n";
    if (!out.good()) {
      error = "cannot write \"" + target.string() + "\"";
      return false;
    }
  }
  std::error_code ec;
  std::filesystem::rename(temp, target, ec);
  if (ec) {
    std::filesystem::remove(temp, ec);
    error = "cannot write \"" + target.string() + "\"";
    return false;
  }
  return true;
}

}  // namespace knrconvert
