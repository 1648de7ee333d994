// Function curves in scene files: the key-by-key form and the column form, written and read.
#include "scene_file/scene_file_fcurve.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <future>
#include <thread>
#include <type_traits>

#include "scene_file/scene_file_columns.h"

namespace Zyra::rt {

using OrderedJson = nlohmann::ordered_json;

namespace {

// Longest text of one number: "-2.2250738585072014e-308".
constexpr size_t kNumberChars = 24;

// Writes `v` at `at` (non-finite numbers as the words from_chars reads back); returns the end.
char* PutNumber(double v, char* at) {
  if (std::isnan(v)) return std::copy_n("nan", 3, at);
  if (std::isinf(v)) return v > 0 ? std::copy_n("inf", 3, at) : std::copy_n("-inf", 4, at);
  return std::to_chars(at, at + kNumberChars, v).ptr;
}

char* PutFloat(float v, char* at) { return std::to_chars(at, at + kNumberChars, v).ptr; }

// Columns of at least this many keys are formatted by two threads.
constexpr size_t kSplitKeys = 16384;
// Keys formatted between two looks at whether the text is due to be handed on.
constexpr size_t kKeysPerBlock = 8192;

// Appends items [from, to) of the column to `out`, each preceded by a space but the column's first.
void FormatItems(const ColumnJob& job, size_t from, size_t to, std::string& out) {
  const size_t start = out.size();
  out.resize(start + (to - from) * (kNumberChars + 1));
  char* at = out.data() + start;
  const FCurveKeys& keys = *job.keys;
  for (size_t i = from; i < to; ++i) {
    if (i > 0) *at++ = ' ';
    switch (job.kind) {
      case ColumnJob::kFrames:
        at = PutNumber(keys.Frame(i), at);
        break;
      case ColumnJob::kValues:
        at = PutNumber(keys.Value(i), at);
        break;
      case ColumnJob::kFloatValues:
        at = PutFloat(static_cast<float>(keys.Value(i)), at);
        break;
    }
  }
  out.resize(static_cast<size_t>(at - out.data()));
}

OrderedJson KeyByKey(const FCurveKeys& keys) {
  OrderedJson list = OrderedJson::array();
  for (size_t i = 0; i < keys.size(); ++i) {
    FCurveKey k = keys.Get(i);
    OrderedJson key =
        OrderedJson::array({NumberJson(k.frame), NumberJson(k.value), k.interpolation});
    if (k.hasTangents) {
      for (double t : {k.leftTanX, k.leftTanY, k.rightTanX, k.rightTanY})
        key.push_back(NumberJson(t));
    }
    list.push_back(std::move(key));
  }
  return list;
}

// A column in the document: a binary value whose subtype is the job's index (no other value
// the writer makes is binary, so no text of the scene can be mistaken for one).
OrderedJson ColumnPlaceholder(ColumnJobs& jobs, ColumnJob job) {
  jobs.push_back(std::move(job));
  return OrderedJson::binary(OrderedJson::binary_t::container_type(), jobs.size() - 1);
}

void ByColumns(const FCurveKeys& keys, const std::shared_ptr<const FCurveObject>& settled,
               ColumnJobs& jobs, OrderedJson& out) {
  const size_t n = keys.size();
  double start = 0, step = 0;
  if (keys.EvenFrames(start, step)) {
    out["start"] = NumberJson(start);
    out["step"] = NumberJson(step);
  } else {
    out["frames"] = ColumnPlaceholder(jobs, {settled, &keys, ColumnJob::kFrames, 0});
  }
  // The values column is the one that reports the curve's keys as done.
  if (keys.FloatValues()) {
    out["floatValues"] = ColumnPlaceholder(jobs, {settled, &keys, ColumnJob::kFloatValues, n});
  } else {
    out["values"] = ColumnPlaceholder(jobs, {settled, &keys, ColumnJob::kValues, n});
  }
  int code = 0;
  if (keys.CommonInterpolation(code)) {
    out["keyInterpolation"] = code;
  } else {
    std::string codes(n, '0');
    for (size_t i = 0; i < n; ++i) codes[i] = static_cast<char>('0' + keys.Interpolation(i));
    out["keyInterpolations"] = std::move(codes);
  }
  if (!keys.Tangents().empty()) {
    OrderedJson tangents = OrderedJson::array();
    for (const KeyTangents& t : keys.Tangents()) {
      tangents.push_back(OrderedJson::array({t.key, NumberJson(t.leftX), NumberJson(t.leftY),
                                             NumberJson(t.rightX), NumberJson(t.rightY)}));
    }
    out["tangents"] = std::move(tangents);
  }
}

}  // namespace

OrderedJson NewObject() {
  OrderedJson out = OrderedJson::object();
  out.get_ref<OrderedJson::object_t&>().reserve(16);
  return out;
}

OrderedJson NumberJson(double v) {
  if (std::isfinite(v)) return OrderedJson(v);
  if (std::isnan(v)) return OrderedJson("nan");
  return OrderedJson(v > 0 ? "inf" : "-inf");
}

OrderedJson FCurveToJson(const FCurveObject& curve, ColumnJobs& jobs) {
  std::shared_ptr<const FCurveObject> settled = curve.editDepth > 0 ? curve.Clone() : nullptr;
  const FCurveKeys& keys = settled ? settled->keys : curve.keys;
  OrderedJson out = NewObject();
  out["interpolation"] = curve.interpolation;
  if (keys.size() <= kKeysPerKeyForm) {
    out["keys"] = KeyByKey(keys);
  } else {
    ByColumns(keys, settled, jobs, out);
  }
  return out;
}

void PrintColumn(const ColumnJob& job, std::string& out, const std::function<void()>& handOn) {
  const size_t n = job.keys->size();
  size_t half = n;
  std::future<std::string> second;
  if (n >= kSplitKeys && std::thread::hardware_concurrency() >= 2) {
    half = n / 2;
    second = std::async(std::launch::async, [&job, half, n] {
      std::string text;
      FormatItems(job, half, n, text);
      return text;
    });
  }
  for (size_t i = 0; i < half; i += kKeysPerBlock) {
    FormatItems(job, i, std::min(half, i + kKeysPerBlock), out);
    handOn();
  }
  if (second.valid()) {
    out += second.get();
    handOn();
  }
}

namespace scene_reading {

namespace {

// The items of a column: one parsed as the file was read, or a string of numbers still in the
// document (a short one); an item that does not read, or reads past the type's range, fails at
// its index.
template <class T>
std::vector<T> ReadColumn(const Json& j, const Path& p, Columns& columns) {
  constexpr bool kSingle = std::is_same_v<T, float>;
  Column read;
  if (Column* column = ColumnRef(j, columns, kSingle)) {
    column->taken = true;
    read = std::move(*column);
  } else {
    if (!j.is_string()) Fail(p, "expected a string of numbers, found " + Describe(j));
    const std::string& text = j.get_ref<const std::string&>();
    read = ParseColumn(text.data(), text.data() + text.size(), kSingle);
  }
  if (!read.error.empty()) Fail(p[read.errorAt], read.error);
  if constexpr (kSingle) {
    return std::move(read.floats);
  } else {
    return std::move(read.doubles);
  }
}

void ReadKeyByKey(const Json& list, const Path& kp, FCurveObject& curve) {
  ExpectArray(list, kp);
  curve.keys.Reserve(list.size());
  for (size_t i = 0; i < list.size(); ++i) {
    Path at = kp[i];
    const Json& k = ExpectArray(list[i], at);
    if (k.size() != 3 && k.size() != 7) {
      Fail(at, "a key is [frame, value, interpolation] or that and four tangent numbers; found " +
                   std::to_string(k.size()) + " items");
    }
    FCurveKey key;
    key.frame = ReadNumber(k[0], at[0]);
    if (!std::isfinite(key.frame)) Fail(at[0], "a key frame must be finite");
    if (!curve.keys.empty() && !(curve.keys.Frame(curve.keys.size() - 1) < key.frame)) {
      Fail(at[0], "keys must be in increasing frame order");
    }
    key.value = ReadNumber(k[1], at[1]);
    key.interpolation = static_cast<int>(ReadInt(k[2], at[2], 0, 3));
    if (k.size() == 7) {
      key.hasTangents = true;
      key.leftTanX = ReadNumber(k[3], at[3]);
      key.leftTanY = ReadNumber(k[4], at[4]);
      key.rightTanX = ReadNumber(k[5], at[5]);
      key.rightTanY = ReadNumber(k[6], at[6]);
    }
    curve.keys.PushBack(key);
  }
}

void ReadColumns(const Json& j, const Path& p, Columns& columns, FCurveObject& curve) {
  const Json* doubles = Find(j, "values");
  const Json* floats = Find(j, "floatValues");
  if (!doubles == !floats) Fail(p, "a curve has either \"values\" or \"floatValues\"");
  // Float columns go into the curve as they were read, without a wider copy.
  std::vector<double> values;
  std::vector<float> single;
  if (doubles) {
    values = ReadColumn<double>(*doubles, p / "values", columns);
  } else {
    single = ReadColumn<float>(*floats, p / "floatValues", columns);
  }
  const size_t n = doubles ? values.size() : single.size();

  int code = 0;
  std::string codes;
  if (const Json* v = Find(j, "keyInterpolations")) {
    Path cp = p / "keyInterpolations";
    codes = ToUtf8(ReadString(*v, cp));
    if (codes.size() != n) {
      Fail(cp, std::to_string(codes.size()) + " interpolation codes for " + std::to_string(n) +
                   " keys");
    }
    for (size_t i = 0; i < n; ++i) {
      if (codes[i] < '0' || codes[i] > '3') Fail(cp[i], "a key interpolation is 0, 1, 2 or 3");
    }
  } else {
    code =
        static_cast<int>(ReadInt(Member(j, "keyInterpolation", p), p / "keyInterpolation", 0, 3));
  }

  if (const Json* v = Find(j, "frames")) {
    Path fp = p / "frames";
    std::vector<double> frames = ReadColumn<double>(*v, fp, columns);
    if (frames.size() != n) {
      Fail(fp, std::to_string(frames.size()) + " frames for " + std::to_string(n) + " values");
    }
    for (size_t i = 0; i < n; ++i) {
      if (!std::isfinite(frames[i])) Fail(fp[i], "a key frame must be finite");
      if (i > 0 && !(frames[i - 1] < frames[i]))
        Fail(fp[i], "keys must be in increasing frame order");
    }
    if (doubles) {
      curve.keys.Assign(frames.data(), values.data(), n, code);
    } else {
      curve.keys.Assign(frames.data(), std::move(single), code);
    }
  } else {
    double start = ReadNumber(Member(j, "start", p), p / "start");
    double step = ReadNumber(Member(j, "step", p), p / "step");
    if (!std::isfinite(start)) Fail(p / "start", "a key frame must be finite");
    if (!(step > 0) || !std::isfinite(step)) Fail(p / "step", "the step must be a positive number");
    if (doubles) {
      curve.keys.AssignEven(start, step, values.data(), n, code);
    } else {
      curve.keys.AssignEven(start, step, std::move(single), code);
    }
    // Far from 0 a small step can round two frames onto one, or the last frame past the range.
    for (size_t i = 1; i < n; ++i) {
      if (!(curve.keys.Frame(i - 1) < curve.keys.Frame(i)) || !std::isfinite(curve.keys.Frame(i))) {
        Fail(p / "step", "keys must be in increasing frame order");
      }
    }
  }
  for (size_t i = 0; i < codes.size(); ++i) {
    if (codes[i] != '0' + code) curve.keys[i].interpolation = codes[i] - '0';
  }

  if (const Json* v = Find(j, "tangents")) {
    Path tp = p / "tangents";
    const Json& list = ExpectArray(*v, tp);
    for (size_t t = 0; t < list.size(); ++t) {
      Path at = tp[t];
      const Json& entry = ExpectArray(list[t], at);
      if (entry.size() != 5) {
        Fail(at, "tangents are [key, leftX, leftY, rightX, rightY]; found " +
                     std::to_string(entry.size()) + " items");
      }
      const long last = static_cast<long>(std::min<size_t>(n, 2147483647u)) - 1;
      size_t index = static_cast<size_t>(ReadInt(entry[0], at[0], 0, last));
      if (t > 0 && list[t - 1][0].get<int64_t>() >= static_cast<int64_t>(index)) {
        Fail(at[0], "tangents must be in increasing key order");
      }
      FCurveKey key = curve.keys.Get(index);
      key.hasTangents = true;
      key.leftTanX = ReadNumber(entry[1], at[1]);
      key.leftTanY = ReadNumber(entry[2], at[2]);
      key.rightTanX = ReadNumber(entry[3], at[3]);
      key.rightTanY = ReadNumber(entry[4], at[4]);
      curve.keys.Set(index, key);
    }
  }
}

}  // namespace

std::shared_ptr<FCurveObject> ReadFCurveJson(const Json& j, const Path& p) {
  Columns none;
  return ReadFCurveJson(j, p, none);
}

std::shared_ptr<FCurveObject> ReadFCurveJson(const Json& j, const Path& p, Columns& columns) {
  ExpectObject(j, p);
  auto curve = std::make_shared<FCurveObject>();
  curve->interpolation =
      static_cast<int>(ReadInt(Member(j, "interpolation", p), p / "interpolation", 1, 3));
  if (const Json* keys = Find(j, "keys")) {
    ReadKeyByKey(*keys, p / "keys", *curve);
  } else {
    ReadColumns(j, p, columns, *curve);
  }
  return curve;
}

}  // namespace scene_reading

}  // namespace Zyra::rt
