// Reading a take's json file for the run report; the rules are in take_file.h.
#include "converter/report/take_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "converter/report/plot_series.h"

namespace knrconvert {

namespace {

using nlohmann::json;

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

// Reads typed fields out of json objects; a field of the wrong type is reported once per field
// path and then treated as absent.
class FieldReader {
 public:
  explicit FieldReader(std::vector<std::string>& warnings) : warnings_(warnings) {}

  const json* Get(const json& object, const std::string& key, json::value_t type,
                  const std::string& where) {
    if (!object.is_object()) return nullptr;
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return nullptr;
    const bool number_wanted = type == json::value_t::number_float;
    if (number_wanted ? !it->is_number() : it->type() != type) {
      warnings_.push_back("\"" + where + key + "\" has the wrong type and is ignored");
      return nullptr;
    }
    return &*it;
  }

  std::optional<double> Number(const json& object, const std::string& key,
                               const std::string& where = "") {
    const json* value = Get(object, key, json::value_t::number_float, where);
    if (value == nullptr) return std::nullopt;
    return value->get<double>();
  }

  std::string Text(const json& object, const std::string& key, const std::string& where = "") {
    const json* value = Get(object, key, json::value_t::string, where);
    return value ? value->get<std::string>() : std::string();
  }

  const json* Object(const json& object, const std::string& key, const std::string& where = "") {
    return Get(object, key, json::value_t::object, where);
  }

  const json* Array(const json& object, const std::string& key, const std::string& where = "") {
    return Get(object, key, json::value_t::array, where);
  }

  // An array of numbers; elements that are not numbers become gaps (NaN).
  std::optional<std::vector<double>> Numbers(const json& object, const std::string& key,
                                             const std::string& where) {
    const json* array = Array(object, key, where);
    if (array == nullptr) return std::nullopt;
    std::vector<double> values;
    values.reserve(array->size());
    for (const json& v : *array) values.push_back(v.is_number() ? v.get<double>() : kMissing);
    return values;
  }

  void Warn(std::string text) { warnings_.push_back(std::move(text)); }

 private:
  std::vector<std::string>& warnings_;
};

// Cuts `series` and `frames` to the shorter of the two, with a warning when they differ.
void MatchLength(std::vector<double>& frames, std::vector<double>& series, const std::string& what,
                 FieldReader& reader) {
  if (series.size() == frames.size()) return;
  reader.Warn("plot series \"" + what + "\" has " + std::to_string(series.size()) + " points for " +
              std::to_string(frames.size()) + " frames; the shorter is drawn");
  const size_t count = std::min(series.size(), frames.size());
  series.resize(count);
  frames.resize(count);
}

// The feet to plot, in the order the take lists them, then any others the plots name.
std::vector<std::string> PlottedFeet(const TakeReport& take, const json* heel,
                                     const json* contacts) {
  std::vector<std::string> feet;
  const auto add = [&feet](const std::string& name) {
    if (std::find(feet.begin(), feet.end(), name) == feet.end()) feet.push_back(name);
  };
  for (const auto& foot : take.feet) add(foot.first);
  if (heel != nullptr) {
    for (const auto& item : heel->items()) add(item.key());
  }
  if (contacts != nullptr) {
    for (const auto& item : contacts->items()) add(item.key());
  }
  return feet;
}

json ContactIntervals(const json* contacts, const std::string& foot, FieldReader& reader) {
  json intervals = json::array();
  const json* list = contacts ? reader.Array(*contacts, foot, "contacts.") : nullptr;
  if (list == nullptr) return intervals;
  size_t malformed = 0;
  for (const json& interval : *list) {
    if (interval.is_array() && interval.size() == 2 && interval[0].is_number() &&
        interval[1].is_number()) {
      intervals.push_back({interval[0].get<double>(), interval[1].get<double>()});
    } else {
      ++malformed;
    }
  }
  if (malformed > 0) {
    reader.Warn(std::to_string(malformed) + " contact interval(s) of " + foot +
                " are not [start, end] pairs and are ignored");
  }
  return intervals;
}

json ContactPlot(const TakeReport& take, const json& plots, const json* contacts,
                 FieldReader& reader) {
  std::optional<std::vector<double>> frames = reader.Numbers(plots, "frames", "plots.");
  const json* heel = reader.Object(plots, "heel", "plots.");
  const json* limits = reader.Object(plots, "heightLimit", "plots.");
  const std::vector<std::string> feet = PlottedFeet(take, heel, contacts);
  if (!frames || feet.empty()) return nullptr;

  std::vector<std::vector<double>> heights;
  for (const std::string& foot : feet) {
    std::optional<std::vector<double>> values =
        heel ? reader.Numbers(*heel, foot, "plots.heel.") : std::nullopt;
    heights.push_back(values ? std::move(*values) : std::vector<double>(frames->size(), kMissing));
    MatchLength(*frames, heights.back(), "heel." + foot, reader);
  }
  // A cut to a shorter series above also shortens the series matched before it.
  for (auto& values : heights) values.resize(frames->size());
  std::vector<std::vector<double>*> series;
  for (auto& values : heights) series.push_back(&values);
  ThinTimeSeries(*frames, series, kPlotPointBudget);

  json result = {{"frames", *frames}, {"feet", json::array()}};
  for (size_t i = 0; i < feet.size(); ++i) {
    json foot = {{"name", feet[i]}, {"heel", heights[i]}, {"limit", nullptr}};
    if (limits != nullptr) {
      if (std::optional<double> limit = reader.Number(*limits, feet[i], "plots.heightLimit.")) {
        foot["limit"] = *limit;
      }
    }
    foot["intervals"] = ContactIntervals(contacts, feet[i], reader);
    result["feet"].push_back(std::move(foot));
  }
  return result;
}

json PathPlot(const json& plots, FieldReader& reader) {
  const json* path = reader.Object(plots, "path", "plots.");
  if (path == nullptr) return nullptr;
  std::optional<std::vector<double>> x = reader.Numbers(*path, "x", "plots.path.");
  std::optional<std::vector<double>> z = reader.Numbers(*path, "z", "plots.path.");
  if (!x || !z) return nullptr;
  MatchLength(*x, *z, "path.z", reader);
  ThinPath(*x, *z, kPlotPointBudget);
  return {{"x", *x}, {"z", *z}};
}

// The seam plot runs over point positions (the window is played twice, so frame numbers go
// back at the join); the frame numbers travel along as labels.
json SeamPlot(const json& plots, FieldReader& reader) {
  const json* seam = reader.Object(plots, "seam", "plots.");
  if (seam == nullptr) return nullptr;
  std::optional<std::vector<double>> frames = reader.Numbers(*seam, "frames", "plots.seam.");
  std::optional<std::vector<double>> before = reader.Numbers(*seam, "before", "plots.seam.");
  std::optional<std::vector<double>> after = reader.Numbers(*seam, "after", "plots.seam.");
  if (!frames || !before || !after) return nullptr;
  MatchLength(*frames, *before, "seam.before", reader);
  MatchLength(*frames, *after, "seam.after", reader);
  before->resize(frames->size());
  if (frames->empty()) return nullptr;

  size_t join = frames->size() / 2;
  for (size_t i = 1; i < frames->size(); ++i) {
    if ((*frames)[i] <= (*frames)[i - 1]) {
      join = i;
      break;
    }
  }
  std::vector<double> x(frames->size());
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i);
  ThinTimeSeries(x, {&*before, &*after}, kPlotPointBudget);
  std::vector<double> labels;
  labels.reserve(x.size());
  for (double at : x) labels.push_back((*frames)[static_cast<size_t>(at)]);
  return {{"channel", reader.Text(*seam, "channel", "plots.seam.")},
          {"x", x},
          {"frame", labels},
          {"before", *before},
          {"after", *after},
          {"joinAt", join}};
}

void ReadLoop(const json& root, TakeReport& take, FieldReader& reader) {
  const json* loop = reader.Object(root, "loop");
  if (loop == nullptr) return;
  std::optional<double> start = reader.Number(*loop, "start", "loop.");
  std::optional<double> end = reader.Number(*loop, "end", "loop.");
  if (!start || !end) return;
  take.loop = TakeLoop{*start, *end, reader.Text(*loop, "foot", "loop."),
                       reader.Number(*loop, "seamBefore", "loop."),
                       reader.Number(*loop, "seamAfter", "loop.")};
}

void ReadFeet(const json& root, TakeReport& take, FieldReader& reader) {
  const json* feet = reader.Array(root, "feet");
  if (feet == nullptr) return;
  for (const json& foot : *feet) {
    std::string joint = reader.Text(foot, "joint", "feet[].");
    if (!joint.empty())
      take.feet.emplace_back(std::move(joint), reader.Text(foot, "found", "feet[]."));
  }
}

// Phases in the order the converter runs them; others follow in name order.
void ReadSeconds(const json& root, TakeReport& take, FieldReader& reader) {
  const json* seconds = reader.Object(root, "seconds");
  if (seconds == nullptr) return;
  static const char* const kPhaseOrder[] = {"condition", "import", "analysis", "generate",
                                            "skill",     "loop",   "save"};
  const auto rank = [](const std::string& phase) {
    const auto* end = std::end(kPhaseOrder);
    return std::find(std::begin(kPhaseOrder), end, phase) - std::begin(kPhaseOrder);
  };
  for (const auto& item : seconds->items()) {
    std::optional<double> value = reader.Number(*seconds, item.key(), "seconds.");
    if (!value) continue;
    if (item.key() == "total") {
      take.total_seconds = value;
    } else {
      take.seconds.emplace_back(item.key(), *value);
    }
  }
  std::stable_sort(take.seconds.begin(), take.seconds.end(),
                   [&rank](const auto& a, const auto& b) { return rank(a.first) < rank(b.first); });
}

// The message of a json exception without its "[json.exception.parse_error.101] " tag.
std::string PlainMessage(const std::exception& error) {
  std::string text = error.what();
  if (!text.empty() && text[0] == '[') {
    const size_t end = text.find("] ");
    if (end != std::string::npos) text.erase(0, end + 2);
  }
  return text;
}

TakeReport UnreadableTake(const std::filesystem::path& path, const std::string& why) {
  TakeReport take;
  take.file = path.filename().string();
  take.name = path.stem().string();
  take.status = "failed";
  take.failed = true;
  take.reason = "cannot read " + path.string() + ": " + why;
  return take;
}

}  // namespace

std::optional<TakeReport> ReadTakeJson(const json& root, const std::string& file) {
  if (!root.is_object() || !root.contains("take")) return std::nullopt;
  TakeReport take;
  take.file = file;
  std::vector<std::string> reading_warnings;
  FieldReader reader(reading_warnings);
  take.name = reader.Text(root, "take");
  if (take.name.empty()) take.name = std::filesystem::path(file).stem().string();
  take.status = reader.Text(root, "status");
  take.failed = take.status != "ok";
  if (take.status.empty()) take.status = "unknown";
  take.reason = reader.Text(root, "reason");
  if (take.failed && take.reason.empty()) take.reason = "no reason given";

  take.frames = reader.Number(root, "frames");
  take.frame_time = reader.Number(root, "frameTime");
  take.joints = reader.Number(root, "joints");
  take.cog = reader.Text(root, "cog");
  take.skill = reader.Text(root, "skill");
  take.threshold = reader.Number(root, "threshold");
  if (const json* conditioning = reader.Object(root, "conditioning")) {
    take.units = reader.Text(*conditioning, "units", "conditioning.");
    if (const json* notes = reader.Array(*conditioning, "notes", "conditioning.")) {
      for (const json& note : *notes)
        if (note.is_string()) take.conditioning.push_back(note.get<std::string>());
    }
  }
  if (const json* agreement = reader.Object(root, "contactAgreement")) {
    for (const auto& [foot, share] : agreement->items())
      if (share.is_number()) take.agreement.emplace_back(foot, share.get<double>());
  }
  take.distance = reader.Number(root, "distance");
  take.heading_change = reader.Number(root, "headingChange");
  ReadFeet(root, take, reader);
  ReadLoop(root, take, reader);
  ReadSeconds(root, take, reader);
  if (const json* warnings = reader.Array(root, "warnings")) {
    for (const json& w : *warnings) {
      if (w.is_string()) take.warnings.push_back(w.get<std::string>());
    }
  }

  if (const json* plots = reader.Object(root, "plots")) {
    const json* contacts = reader.Object(root, "contacts");
    json result = json::object();
    if (json contact = ContactPlot(take, *plots, contacts, reader); !contact.is_null()) {
      result["contacts"] = std::move(contact);
    }
    if (json path = PathPlot(*plots, reader); !path.is_null()) result["path"] = std::move(path);
    if (json seam = SeamPlot(*plots, reader); !seam.is_null()) result["seam"] = std::move(seam);
    if (!result.empty()) take.plots = std::move(result);
  }
  // The take's own warnings first, then what reading its file found.
  take.warnings.insert(take.warnings.end(), reading_warnings.begin(), reading_warnings.end());
  return take;
}

std::optional<TakeReport> ReadTakeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return UnreadableTake(path, std::strerror(errno));
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) return UnreadableTake(path, std::strerror(errno));
  json root;
  try {
    root = json::parse(bytes.str());
  } catch (const json::exception& error) {
    return UnreadableTake(path, PlainMessage(error));
  }
  return ReadTakeJson(root, path.filename().string());
}

}  // namespace knrconvert
