// Number columns of scene files on read: the text of a long curve's "frames", "values" and
// "floatValues" (docs/scene-file.md, FCurve) is parsed with from_chars as the file streams past,
// straight into the numbers a curve keeps, and cut out of the JSON text, which is parsed apart.
// So opening a take never holds the file's text, nor a column's, beside its keys.
//
// Rules:
//   1. A column is the string value of a member named "frames", "values" or "floatValues"
//      holding at least kLongColumn bytes and no backslash; any other string stays in the JSON
//      text as it is. In the text left for the JSON parser a column stands as the string
//      "\u0000<index>" (ColumnRef in scene_file_json.h reads it back).
//   2. Items are separated by single spaces; "" has no item, and every other text has one item
//      more than spaces (an empty item is an error). "floatValues" items are floats, the others
//      doubles. The first item that does not read is kept with its index and message; the rest
//      of that column is skipped, and the error is raised when a curve takes the column (so
//      errors come in the order the reader meets the elements).
//   3. A column may arrive in pieces cut anywhere, also inside a number; the items are the same.
//      A column longer than one piece that holds a backslash after its first kLongColumn bytes
//      cannot be put back into the JSON text (its start is gone): the cutter gives up, and the
//      caller reads the whole text at once instead. No writer escapes a number column.
//   4. Long columns that arrive whole are read by two threads (halves split at a space) when
//      the machine has two; the items and the first error are those one thread finds.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Zyra::rt::scene_reading {

// Shorter strings are left to the JSON parser: cutting them out would save nothing.
inline constexpr size_t kLongColumn = 4096;

// One column read: its items (in `floats` for a float column, else in `doubles`), or the first
// item that failed.
struct Column {
  bool single = false;
  std::vector<double> doubles;
  std::vector<float> floats;
  size_t errorAt = 0;
  std::string error;   // empty: every item read
  bool taken = false;  // handed to a curve already

  size_t size() const { return single ? floats.size() : doubles.size(); }
};

struct Columns {
  std::vector<Column> items;
};

// Reads a column's items from text given in pieces (rule 2 and 3).
class ColumnParser {
 public:
  explicit ColumnParser(bool single) { column_.single = single; }
  void Reserve(size_t items);
  void Feed(const char* at, const char* end);
  // Ends the column and hands it over. `whole`: the text began at the column's start, so no
  // byte at all means no item (a half after a split always holds one item more).
  Column Finish(bool whole = true);

 private:
  void Item(const char* at, const char* stop);

  Column column_;
  std::string carry_;  // the start of an item cut by the end of a piece
  size_t fed_ = 0;
  bool failed_ = false;
};

// Parses a whole column held in memory (rule 4 for long ones).
Column ParseColumn(const char* at, const char* end, bool single);

// Separates the columns from the JSON text (rule 1) as the text arrives in pieces.
class ColumnCutter {
 public:
  explicit ColumnCutter(Columns& columns) : columns_(columns) {}

  // Takes data[0..n) and returns how many bytes it used: all of them, unless a column begins in
  // them but does not end and more may follow (`last` false): it then stops at the column's
  // quote, so that the caller gives the column again from the start of a refilled buffer.
  size_t Feed(const char* data, size_t n, bool last);
  // The JSON text without the columns (valid only when the input was).
  std::string& Text() { return text_; }
  // True when the text must be read whole instead (rule 3).
  bool GaveUp() const { return gaveUp_; }

 private:
  enum class State { kOutside, kString, kEscape, kAfterString, kAfterColon, kColumn };
  void ColumnBytes(const char* at, const char* end);
  void EndColumn();
  void AppendRef(Column column);

  Columns& columns_;
  std::string text_;
  State state_ = State::kOutside;
  std::string key_;         // the last string's content, while short
  bool keyLong_ = false;    // it was longer, or held an escape
  bool columnKey_ = false;  // the member whose value comes next names a column
  bool single_ = false;     // ... a float column
  std::string pending_;     // a streamed column's first bytes, until it is known to be long
  bool committed_ = false;
  bool gaveUp_ = false;
  ColumnParser parser_{false};
};

}  // namespace Zyra::rt::scene_reading
