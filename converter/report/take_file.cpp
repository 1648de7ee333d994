// Reading a take's json file for the run report; the rules are in take_file.h.
#include "converter/report/take_file.h"

#include <algorithm>
#include <cctype>
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
  const json* speed = reader.Object(plots, "speed", "plots.");
  const std::vector<std::string> feet = PlottedFeet(take, heel, contacts);
  if (!frames || feet.empty()) return nullptr;

  std::vector<std::vector<double>> heights;
  for (const std::string& foot : feet) {
    std::optional<std::vector<double>> values =
        heel ? reader.Numbers(*heel, foot, "plots.heel.") : std::nullopt;
    heights.push_back(values ? std::move(*values) : std::vector<double>(frames->size(), kMissing));
    MatchLength(*frames, heights.back(), "heel." + foot, reader);
  }
  // A foot without a speed series gets gaps; a series that does not match its frames is cut.
  std::vector<std::vector<double>> speeds;
  for (const std::string& foot : feet) {
    std::optional<std::vector<double>> values =
        speed ? reader.Numbers(*speed, foot, "plots.speed.") : std::nullopt;
    speeds.push_back(values ? std::move(*values) : std::vector<double>(frames->size(), kMissing));
    MatchLength(*frames, speeds.back(), "speed." + foot, reader);
  }
  // A cut to a shorter series above also shortens the series matched before it.
  for (auto& values : heights) values.resize(frames->size());
  for (auto& values : speeds) values.resize(frames->size());
  std::vector<std::vector<double>*> series;
  for (auto& values : heights) series.push_back(&values);
  for (auto& values : speeds) series.push_back(&values);
  ThinTimeSeries(*frames, series, kPlotPointBudget);

  json result = {{"frames", *frames}, {"feet", json::array()}};
  for (size_t i = 0; i < feet.size(); ++i) {
    json foot = {{"name", feet[i]}, {"heel", heights[i]}, {"limit", nullptr}};
    if (speed != nullptr) foot["speed"] = speeds[i];
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

// Whether `text` is base64 of exactly `bytes` bytes (standard alphabet, padded).
bool IsBase64Of(const std::string& text, size_t bytes) {
  if (text.size() != (bytes + 2) / 3 * 4) return false;
  const size_t padding = (3 - bytes % 3) % 3;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (i >= text.size() - padding) {
      if (c != '=') return false;
    } else if (!std::isalnum(c) && c != '+' && c != '/') {
      return false;
    }
  }
  return true;
}

// A clip of the view, or null with `why` set (rule 7).
json ViewClip(const json& clip, size_t joints, std::string& why) {
  const auto whole = [&](const char* key, long long least) {
    const auto it = clip.find(key);
    return it != clip.end() && it->is_number_integer() && it->get<long long>() >= least;
  };
  if (!clip.is_object()) return why = "is not an object", nullptr;
  if (!whole("first", std::numeric_limits<int>::min()) || !whole("step", 1) || !whole("count", 1))
    return why = "needs a whole \"first\" and a \"step\" and \"count\" of at least 1", nullptr;
  const auto unit = clip.find("unit");
  if (unit == clip.end() || !unit->is_number() || !(unit->get<double>() > 0) ||
      !std::isfinite(unit->get<double>()))
    return why = "needs a positive \"unit\"", nullptr;
  const auto positions = clip.find("positions");
  if (positions == clip.end() || !positions->is_string())
    return why = "has no \"positions\"", nullptr;
  const std::string& text = positions->get_ref<const std::string&>();
  if (text.size() > kViewClipBytes)
    return why = "holds " + std::to_string(text.size()) + " characters of positions, more than " +
                 std::to_string(kViewClipBytes),
           nullptr;
  const auto count = clip["count"].get<unsigned long long>();
  if (count > kViewClipBytes || !IsBase64Of(text, count * joints * 3 * 2))
    return why = "\"positions\" is not base64 of " + std::to_string(count) + " x " +
                 std::to_string(joints) + " joints x 3 16-bit values",
           nullptr;
  const auto made = clip.find("made");
  return {{"first", clip["first"]},
          {"step", clip["step"]},
          {"count", count},
          {"unit", *unit},
          {"positions", text},
          {"made", made == clip.end() || !made->is_boolean() || made->get<bool>()}};
}

// The take's 3D view (rule 7), or null with a warning.
json ReadView(const json& root, FieldReader& reader) {
  const json* view = reader.Object(root, "view");
  if (view == nullptr) return nullptr;
  const auto bad = [&reader](const std::string& why) {
    reader.Warn("the 3D view data " + why + "; the take is shown without its 3D view");
    return nullptr;
  };
  const auto parents = view->find("parents");
  if (parents == view->end() || !parents->is_array() || parents->empty())
    return bad("has no \"parents\"");
  for (size_t j = 0; j < parents->size(); ++j) {
    const json& p = (*parents)[j];
    if (!p.is_number_integer() || p.get<long long>() < -1 ||
        p.get<long long>() >= static_cast<long long>(j))
      return bad("has a parent that is not -1 or an earlier joint (joint " + std::to_string(j) +
                 ")");
  }
  const size_t joints = parents->size();
  json feet = json::array();
  if (const auto list = view->find("feet"); list != view->end() && list->is_array()) {
    for (const json& foot : *list) {
      const auto joint = foot.is_object() ? foot.find("joint") : foot.end();
      if (!foot.is_object() || joint == foot.end() || !joint->is_number_integer() ||
          joint->get<long long>() < 0 || joint->get<long long>() >= static_cast<long long>(joints))
        return bad("has a foot whose joint is out of range");
      const auto name = foot.find("name");
      feet.push_back({{"name", name != foot.end() && name->is_string() ? *name : json("")},
                      {"joint", *joint}});
    }
  }
  const auto frameTime = view->find("frameTime");
  if (frameTime == view->end() || !frameTime->is_number() || !(frameTime->get<double>() > 0))
    return bad("needs a positive \"frameTime\"");
  std::string why;
  const auto skill = view->find("skill");
  json result = {{"frameTime", *frameTime}, {"parents", *parents}, {"feet", feet}};
  if (skill == view->end()) return bad("has no \"skill\" clip");
  result["skill"] = ViewClip(*skill, joints, why);
  if (result["skill"].is_null()) return bad("\"skill\" clip " + why);
  if (const auto loop = view->find("loop"); loop != view->end() && !loop->is_null()) {
    result["loop"] = ViewClip(*loop, joints, why);
    if (result["loop"].is_null()) return bad("\"loop\" clip " + why);
  }
  return result;
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
  take.view = ReadView(root, reader);
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
