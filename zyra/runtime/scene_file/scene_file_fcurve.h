// Function curves in scene files, both ways.
//
// A curve is written in one of two forms (docs/scene-file.md):
//   - key by key, `"keys": [[frame, value, interpolation(, 4 tangents)], ...]`, for curves of at
//     most kKeysPerKeyForm keys: hand-keyed curves stay readable and editable line by line;
//   - by columns for longer ones: frames as `"start"` and `"step"` when evenly spaced, else
//     `"frames"`; values as `"floatValues"` when every value is a single-precision number, else
//     `"values"`; `"keyInterpolation"` when every key shares one code, else
//     `"keyInterpolations"`; `"tangents"` for the keys that have them. Number columns are JSON
//     strings of numbers separated by one space, written with to_chars and read with
//     from_chars, so a long take costs one JSON value per column instead of one per key.
// The form and every column's kind follow from the keys alone, never from how they happen to be
// stored, so save, open, save gives the same bytes.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "model/model.h"
#include "scene_file/scene_file_json.h"

namespace Zyra::rt {

// Longest curve written key by key.
inline constexpr size_t kKeysPerKeyForm = 8;

// An empty JSON object with room for every member the writer gives one. Members live in a
// vector, and a member type that cannot move without throwing makes a growing object copy what
// it holds: without the room a model's object would copy its whole animation at every new key.
nlohmann::ordered_json NewObject();

// A finite double as a JSON number, the others as the strings "inf", "-inf" and "nan".
nlohmann::ordered_json NumberJson(double v);

// A long curve's number column as the writer leaves it in the document: a placeholder that the
// printer replaces by the column's text, formatted straight into the output (PrintColumn), so
// that a take's text is never held whole.
struct ColumnJob {
  std::shared_ptr<const FCurveObject> settled;  // keeps `keys` alive when they were settled
  const FCurveKeys* keys = nullptr;
  enum Kind { kFrames, kValues, kFloatValues } kind = kValues;
  size_t doneKeys = 0;  // keys to report done once the column is written
};
using ColumnJobs = std::vector<ColumnJob>;

// The curve's JSON object, its columns added to `jobs`; a curve in the middle of an edit is
// written the way EndEdit will leave it.
nlohmann::ordered_json FCurveToJson(const FCurveObject& curve, ColumnJobs& jobs);

// The index in the writer's jobs of a column placeholder.
inline size_t ColumnJobIndex(const nlohmann::ordered_json& placeholder) {
  return static_cast<size_t>(placeholder.get_binary().subtype());
}

// Appends the column's text (numbers separated by single spaces, without quotes) to `out`,
// calling `handOn` every few thousand items so that the caller can pass the text on. Long
// columns are formatted by two threads; the bytes are the same.
void PrintColumn(const ColumnJob& job, std::string& out, const std::function<void()>& handOn);

namespace scene_reading {

// Reads either form; every error names the element at fault (a column's item as
// "values[12]").
// `columns`: the document's columns read apart (a curve takes the ones it refers to).
std::shared_ptr<FCurveObject> ReadFCurveJson(const Json& j, const Path& p, Columns& columns);
std::shared_ptr<FCurveObject> ReadFCurveJson(const Json& j, const Path& p);

}  // namespace scene_reading

}  // namespace Zyra::rt
