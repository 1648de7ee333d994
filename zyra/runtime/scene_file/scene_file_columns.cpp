// Number columns of scene files on read; the rules are in scene_file_columns.h.
#include "scene_file/scene_file_columns.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <future>
#include <thread>
#include <type_traits>

namespace Zyra::rt::scene_reading {

namespace {

// Columns at least this long are split between two threads when they arrive whole.
constexpr size_t kSplitFrom = 64 * 1024;
// Longest key the cutter needs to recognise ("floatValues").
constexpr size_t kKeyChars = 16;

// Short plain decimals ("-12.75", "3": at most 15 digits, 22 after the point, a digit first and
// last) are read with one correctly rounded division: the integer of the digits and the power of
// ten are exact doubles, so the quotient is the double nearest the decimal, the value from_chars
// gives. A float is that double rounded once more, which is the float nearest the decimal unless
// the double fell exactly halfway between two floats (then, and for tiny results, the item goes
// to from_chars, as does anything else: an exponent, "inf", ".5", a bad item).
constexpr int kShortDigits = 15;
constexpr int kShortFraction = 22;

bool IsDigit(char c) { return static_cast<unsigned>(c - '0') <= 9; }

// The value of the decimal `digits` / 10^`fraction` (negated); false when it is not exact.
template <class T>
bool ShortValue(uint64_t digits, int fraction, bool negative, T& value) {
  static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  const double v = static_cast<double>(digits) / kPow10[fraction < 0 ? 0 : fraction];
  if constexpr (std::is_same_v<T, float>) {
    if (v != 0 && !(v > 1e-37)) return false;
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    if ((bits & ((uint64_t{1} << 29) - 1)) == uint64_t{1} << 28) return false;  // a float midpoint
  }
  value = static_cast<T>(negative ? -v : v);
  return true;
}

// Scans a short decimal from `at`: returns where it stopped (the first byte that is no digit
// or first point), or null when what was scanned is no short decimal.
const char* ScanShort(const char* at, const char* end, uint64_t& digits, int& fraction,
                      bool& negative) {
  negative = at < end && *at == '-';
  const char* p = at + (negative ? 1 : 0);
  digits = 0;
  fraction = -1;
  int count = 0;
  const char* q = p;
  for (; q < end; ++q) {
    const unsigned d = static_cast<unsigned>(*q - '0');
    if (d <= 9) {
      digits = digits * 10 + d;  // wraps past 19 digits, which the count refuses anyway
      ++count;
      if (fraction >= 0) ++fraction;
    } else if (*q == '.' && fraction < 0) {
      fraction = 0;
    } else {
      break;
    }
  }
  if (count == 0 || count > kShortDigits || fraction > kShortFraction || !IsDigit(*p) ||
      !IsDigit(q[-1])) {
    return nullptr;
  }
  return q;
}

template <class T>
bool ShortDecimal(const char* at, const char* stop, T& value) {
  uint64_t digits;
  int fraction;
  bool negative;
  return ScanShort(at, stop, digits, fraction, negative) == stop &&
         ShortValue(digits, fraction, negative, value);
}

// Reads the short decimals each followed by a space from `at` on, as long as they come, into
// `out`; returns where the first other item starts (or `end`).
template <class T>
const char* ReadShortItems(const char* at, const char* end, std::vector<T>& out) {
  while (at < end) {
    uint64_t digits;
    int fraction;
    bool negative;
    const char* stop = ScanShort(at, end, digits, fraction, negative);
    T value;
    if (!stop || stop == end || *stop != ' ' || !ShortValue(digits, fraction, negative, value)) {
      return at;
    }
    out.push_back(value);
    at = stop + 1;
  }
  return at;
}

// Success, a number past the type's range, or anything else that is no whole number token.
template <class T>
std::errc FromChars(const char* first, const char* last, T& value) {
  if (ShortDecimal(first, last, value)) return std::errc();
  auto result = std::from_chars(first, last, value);
  if (result.ptr != last || first == last) return std::errc::invalid_argument;
  return result.ec;
}

bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

size_t Spaces(const char* at, const char* end) {
  return static_cast<size_t>(std::count(at, end, ' '));
}

// `tail` (read from the text after `head`'s) appended to `head`.
void Join(Column& head, Column&& tail) {
  if (!head.error.empty()) return;
  if (!tail.error.empty()) {
    head.errorAt = head.size() + tail.errorAt;
    head.error = std::move(tail.error);
  }
  if (head.single) {
    head.floats.insert(head.floats.end(), tail.floats.begin(), tail.floats.end());
  } else {
    head.doubles.insert(head.doubles.end(), tail.doubles.begin(), tail.doubles.end());
  }
}

}  // namespace

// ---- ColumnParser ---------------------------------------------------------------------------

void ColumnParser::Reserve(size_t items) {
  if (column_.single) {
    column_.floats.reserve(items);
  } else {
    column_.doubles.reserve(items);
  }
}

void ColumnParser::Item(const char* at, const char* stop) {
  std::errc error;
  if (column_.single) {
    float v = 0;
    error = FromChars(at, stop, v);
    if (error == std::errc()) {
      column_.floats.push_back(v);
      return;
    }
  } else {
    double v = 0;
    error = FromChars(at, stop, v);
    if (error == std::errc()) {
      column_.doubles.push_back(v);
      return;
    }
  }
  failed_ = true;
  column_.errorAt = column_.size();
  const std::string text(at, stop);
  column_.error = error == std::errc::result_out_of_range
                      ? "number " + text + " out of range"
                      : "expected a number, found \"" + text + "\"";
}

void ColumnParser::Feed(const char* at, const char* end) {
  fed_ += static_cast<size_t>(end - at);
  while (!failed_ && at < end) {
    if (carry_.empty()) {
      at = column_.single ? ReadShortItems(at, end, column_.floats)
                          : ReadShortItems(at, end, column_.doubles);
      if (at == end) return;
    }
    const auto* space =
        static_cast<const char*>(std::memchr(at, ' ', static_cast<size_t>(end - at)));
    if (!space) {
      carry_.append(at, end);
      return;
    }
    if (carry_.empty()) {
      Item(at, space);
    } else {
      carry_.append(at, space);
      Item(carry_.data(), carry_.data() + carry_.size());
      carry_.clear();
    }
    at = space + 1;
  }
}

Column ColumnParser::Finish(bool whole) {
  if (!failed_ && (fed_ > 0 || !whole)) Item(carry_.data(), carry_.data() + carry_.size());
  carry_.clear();
  Column out = std::move(column_);
  column_ = Column();
  column_.single = out.single;
  fed_ = 0;
  failed_ = false;
  return out;
}

Column ParseColumn(const char* at, const char* end, bool single) {
  const size_t size = static_cast<size_t>(end - at);
  const char* split = nullptr;
  if (size >= kSplitFrom && std::thread::hardware_concurrency() >= 2) {
    const char* middle = at + size / 2;
    // A space before the last byte, so that the second half holds an item.
    split =
        static_cast<const char*>(std::memchr(middle, ' ', static_cast<size_t>(end - 1 - middle)));
  }
  if (!split) {
    ColumnParser parser(single);
    parser.Reserve(Spaces(at, end) + 1);
    parser.Feed(at, end);
    return parser.Finish();
  }
  std::future<Column> second = std::async(std::launch::async, [split, end, single] {
    ColumnParser parser(single);
    parser.Reserve(Spaces(split + 1, end) + 1);
    parser.Feed(split + 1, end);
    return parser.Finish(false);
  });
  ColumnParser parser(single);
  parser.Reserve(Spaces(at, end) + 1);  // room for both halves: the join copies only
  parser.Feed(at, split);
  Column head = parser.Finish(false);
  Join(head, second.get());
  return head;
}

// ---- ColumnCutter ---------------------------------------------------------------------------

void ColumnCutter::AppendRef(Column column) {
  text_ += "\"\\u0000" + std::to_string(columns_.items.size()) + "\"";
  columns_.items.push_back(std::move(column));
  keyLong_ = true;  // a column's text is no key
  state_ = State::kAfterString;
}

void ColumnCutter::ColumnBytes(const char* at, const char* end) {
  if (committed_) {
    parser_.Feed(at, end);
    return;
  }
  pending_.append(at, end);
  if (pending_.size() >= kLongColumn) {
    committed_ = true;
    parser_ = ColumnParser(single_);
    parser_.Feed(pending_.data(), pending_.data() + pending_.size());
    pending_.clear();
  }
}

void ColumnCutter::EndColumn() {
  if (committed_) {
    Column column = parser_.Finish();
    // It grew by doubling: keys live long, so they get exactly their room.
    column.floats.shrink_to_fit();
    column.doubles.shrink_to_fit();
    AppendRef(std::move(column));
    return;
  }
  // Short after all: an ordinary string.
  text_ += '"';
  text_ += pending_;
  text_ += '"';
  keyLong_ = true;
  state_ = State::kAfterString;
}

size_t ColumnCutter::Feed(const char* data, size_t n, bool last) {
  if (gaveUp_) return n;
  size_t i = 0;
  while (i < n) {
    switch (state_) {
      case State::kOutside: {
        const auto* quote = static_cast<const char*>(std::memchr(data + i, '"', n - i));
        const size_t stop = quote ? static_cast<size_t>(quote - data) : n;
        text_.append(data + i, stop - i);
        i = stop;
        if (quote) {
          text_ += '"';
          ++i;
          key_.clear();
          keyLong_ = false;
          state_ = State::kString;
        }
        break;
      }
      case State::kString: {
        const auto* quote = static_cast<const char*>(std::memchr(data + i, '"', n - i));
        size_t stop = quote ? static_cast<size_t>(quote - data) : n;
        if (const auto* slash = static_cast<const char*>(std::memchr(data + i, '\\', stop - i))) {
          stop = static_cast<size_t>(slash - data);
        }
        text_.append(data + i, stop - i);
        if (!keyLong_ && key_.size() + (stop - i) <= kKeyChars) {
          key_.append(data + i, stop - i);
        } else {
          keyLong_ = true;
        }
        i = stop;
        if (i == n) break;
        text_ += data[i];
        if (data[i] == '\\') {
          keyLong_ = true;
          state_ = State::kEscape;
        } else {
          state_ = State::kAfterString;
        }
        ++i;
        break;
      }
      case State::kEscape:
        text_ += data[i++];
        state_ = State::kString;
        break;
      case State::kAfterString:
        if (IsBlank(data[i])) {
          text_ += data[i++];
        } else if (data[i] == ':') {
          text_ += data[i++];
          columnKey_ = !keyLong_ && (key_ == "values" || key_ == "floatValues" || key_ == "frames");
          single_ = key_ == "floatValues";
          state_ = State::kAfterColon;
        } else {
          state_ = State::kOutside;
        }
        break;
      case State::kAfterColon: {
        if (IsBlank(data[i])) {
          text_ += data[i++];
          break;
        }
        if (data[i] != '"' || !columnKey_) {
          state_ = State::kOutside;
          break;
        }
        const char* body = data + i + 1;
        const auto* close = static_cast<const char*>(std::memchr(body, '"', n - i - 1));
        if (!close && !last && i > 0) return i;
        columnKey_ = false;
        if (close) {
          const size_t size = static_cast<size_t>(close - body);
          if (size < kLongColumn || std::memchr(body, '\\', size)) {
            state_ = State::kOutside;  // an ordinary string
            break;
          }
          AppendRef(ParseColumn(body, close, single_));
          i = static_cast<size_t>(close - data) + 1;
          break;
        }
        // Longer than what the buffer holds: read as it streams past.
        pending_.clear();
        committed_ = false;
        state_ = State::kColumn;
        ++i;
        break;
      }
      case State::kColumn: {
        const char* at = data + i;
        const auto* quote = static_cast<const char*>(std::memchr(at, '"', n - i));
        const char* stop = quote ? quote : data + n;
        if (const auto* slash = static_cast<const char*>(std::memchr(at, '\\', stop - at))) {
          stop = slash;
        }
        ColumnBytes(at, stop);
        i = static_cast<size_t>(stop - data);
        if (i == n) break;
        if (data[i] == '"') {
          ++i;
          EndColumn();
        } else if (!committed_) {
          // An escape: no column, an ordinary string from its start.
          text_ += '"';
          text_ += pending_;
          text_ += data[i++];
          keyLong_ = true;
          state_ = State::kEscape;
        } else {
          gaveUp_ = true;  // its first bytes are gone: the caller reads the text whole
          return n;
        }
        break;
      }
    }
  }
  if (last && state_ == State::kColumn && !committed_) {
    // The text ends inside the string: left unterminated so that the JSON parse fails.
    text_ += '"';
    text_ += pending_;
  }
  return n;
}

}  // namespace Zyra::rt::scene_reading
