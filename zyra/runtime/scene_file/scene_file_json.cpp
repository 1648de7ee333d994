// Scene-file reading, the JSON side: typed, checked access to the elements of the document.
#include "scene_file/scene_file_json.h"

#include <cmath>
#include <cstring>
#include <memory>

namespace Zyra::rt::scene_reading {

namespace {

// Builds the document like the library's own parser and keeps track of where it is, so that a
// number out of range is reported at its path like any other bad element.
class TrackingParser {
 public:
  explicit TrackingParser(Json& doc) : dom_(doc, false) {}

  bool null() { return Scalar(dom_.null()); }
  bool boolean(bool v) { return Scalar(dom_.boolean(v)); }
  bool number_integer(Json::number_integer_t v) { return Scalar(dom_.number_integer(v)); }
  bool number_unsigned(Json::number_unsigned_t v) { return Scalar(dom_.number_unsigned(v)); }
  bool number_float(Json::number_float_t v, const std::string& text) {
    // Integers past 64 bits arrive here as doubles; the file meant an integer.
    if (text.find_first_of(".eE") == std::string::npos) OutOfRange("integer", text);
    return Scalar(dom_.number_float(v, text));
  }
  bool string(std::string& v) { return Scalar(dom_.string(v)); }
  bool binary(Json::binary_t& v) { return Scalar(dom_.binary(v)); }
  bool start_object(size_t n) {
    stack_.push_back({false, 0, {}});
    return dom_.start_object(n);
  }
  bool key(std::string& k) {
    stack_.back().key = k;
    return dom_.key(k);
  }
  bool end_object() {
    stack_.pop_back();
    return Scalar(dom_.end_object());
  }
  bool start_array(size_t n) {
    stack_.push_back({true, 0, {}});
    return dom_.start_array(n);
  }
  bool end_array() {
    stack_.pop_back();
    return Scalar(dom_.end_array());
  }
  bool parse_error(size_t position, const std::string& token,
                   const nlohmann::detail::exception& e) {
    if (e.id == 406) OutOfRange("number", token);  // overflow of a double
    syntax_ = e.what();
    size_t bracket = syntax_.find("] ");
    if (syntax_.rfind("[json.exception", 0) == 0 && bracket != std::string::npos) {
      syntax_.erase(0, bracket + 2);
    }
    return dom_.parse_error(position, token, e);
  }

  const std::string& Syntax() const { return syntax_; }

 private:
  struct Level {
    bool array;
    size_t index;  // of the element being read, in an array
    std::string key;
  };

  // After a whole value: the next one in an array has the next index.
  bool Scalar(bool ok) {
    if (!stack_.empty() && stack_.back().array) ++stack_.back().index;
    return ok;
  }

  [[noreturn]] void OutOfRange(const char* what, const std::string& text) const {
    std::string where;
    for (const Level& l : stack_) {
      if (l.array) {
        where += "[" + std::to_string(l.index) + "]";
      } else {
        where += (where.empty() ? "" : ".") + l.key;
      }
    }
    throw FormatError{where, std::string(what) + " " + text + " out of range"};
  }

  nlohmann::detail::json_sax_dom_parser<Json> dom_;
  std::vector<Level> stack_;
  std::string syntax_;
};

bool Parse(const std::string& text, Json& doc, std::string& syntaxError) {
  TrackingParser parser(doc);
  if (Json::sax_parse(text, &parser)) return true;
  syntaxError = parser.Syntax();
  return false;
}

}  // namespace

Column* ColumnRef(const Json& j, Columns& columns, bool single) {
  if (!j.is_string()) return nullptr;
  const std::string& s = j.get_ref<const std::string&>();
  if (s.size() < 2 || s[0] != '\0') return nullptr;
  size_t index = 0;
  for (size_t i = 1; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9' || index > columns.items.size()) return nullptr;
    index = index * 10 + static_cast<size_t>(s[i] - '0');
  }
  if (index >= columns.items.size()) return nullptr;
  Column& column = columns.items[index];
  return column.taken || column.single != single ? nullptr : &column;
}

bool ParseJson(const std::string& text, Json& doc, std::string& syntaxError, Columns& columns) {
  columns.items.clear();
  {
    ColumnCutter cutter(columns);
    cutter.Feed(text.data(), text.size(), true);
    std::string ignored;
    if (!cutter.GaveUp() && Parse(cutter.Text(), doc, ignored)) return true;
  }
  // The line and column of a syntax error are those of the file as it is.
  columns.items.clear();
  doc = Json();
  return Parse(text, doc, syntaxError);
}

bool ParseJsonStream(const std::function<size_t(char* into, size_t capacity)>& read,
                     size_t bufferSize, Json& doc, Columns& columns,
                     const std::function<void(size_t bytes)>& advance) {
  columns.items.clear();
  ColumnCutter cutter(columns);
  std::unique_ptr<char[]> buffer(new char[bufferSize]);
  size_t kept = 0;  // bytes of a column the cutter gave back, at the front of the buffer
  for (;;) {
    const size_t got = read(buffer.get() + kept, bufferSize - kept);
    const size_t have = kept + got;
    const size_t used = cutter.Feed(buffer.get(), have, got == 0);
    if (advance) advance(used);
    if (got == 0) break;
    kept = have - used;
    std::memmove(buffer.get(), buffer.get() + used, kept);
  }
  std::string syntax;
  if (!cutter.GaveUp() && Parse(cutter.Text(), doc, syntax)) return true;
  columns.items.clear();
  doc = Json();
  return false;
}

[[noreturn]] void Fail(const Path& p, const std::string& what) {
  throw FormatError{p.Text(), what};
}

std::string Describe(const Json& j) {
  switch (j.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "true/false";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::array:
      return "an array";
    default:
      return "a number";
  }
}

const Json& ExpectObject(const Json& j, const Path& p) {
  if (!j.is_object()) Fail(p, "expected an object, found " + Describe(j));
  return j;
}

const Json& ExpectArray(const Json& j, const Path& p) {
  if (!j.is_array()) Fail(p, "expected an array, found " + Describe(j));
  return j;
}

// The member `key` of an object (checked by the caller); null when absent.
const Json* Find(const Json& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

const Json& Member(const Json& object, const char* key, const Path& p) {
  const Json* found = Find(object, key);
  if (!found) Fail(p, std::string("missing \"") + key + "\"");
  return *found;
}

std::wstring ReadString(const Json& j, const Path& p) {
  if (!j.is_string()) Fail(p, "expected a string, found " + Describe(j));
  return FromUtf8(j.get_ref<const std::string&>());
}

// An object, property or parameter name: not empty, no '.' (it separates path segments).
std::wstring ReadName(const Json& j, const Path& p) {
  std::wstring name = ReadString(j, p);
  if (name.empty()) Fail(p, "a name cannot be empty");
  if (name.find_first_of(L".,") != std::wstring::npos) {
    Fail(p, "\"" + ToUtf8(name) + "\" is not a name (it holds '.' or ',')");
  }
  return name;
}

double ReadNumber(const Json& j, const Path& p) {
  if (j.is_number()) return j.get<double>();
  if (j.is_string()) {
    const auto& s = j.get_ref<const std::string&>();
    if (s == "inf") return HUGE_VAL;
    if (s == "-inf") return -HUGE_VAL;
    if (s == "nan") return std::nan("");
  }
  Fail(p, "expected a number, found " + Describe(j));
}

long ReadInt(const Json& j, const Path& p, long lo, long hi) {
  if (!j.is_number_integer()) Fail(p, "expected an integer, found " + Describe(j));
  if (j.is_number_unsigned() ? j.get<uint64_t>() > static_cast<uint64_t>(hi)
                             : (j.get<int64_t>() < lo || j.get<int64_t>() > hi)) {
    Fail(p,
         "integer " + j.dump() + " out of range " + std::to_string(lo) + ".." + std::to_string(hi));
  }
  return static_cast<long>(j.get<int64_t>());
}

bool ReadBool(const Json& j, const Path& p) {
  if (!j.is_boolean()) Fail(p, "expected true or false, found " + Describe(j));
  return j.get<bool>();
}

siClassID X3DClass(const Json& j, const Path& p) {
  ExpectObject(j, p);
  long cls = ReadInt(Member(j, "class", p), p / "class");
  if (!IsX3DObjectClass(static_cast<siClassID>(cls))) {
    Fail(p / "class", "class " + std::to_string(cls) + " is not a 3D object class");
  }
  return static_cast<siClassID>(cls);
}

bool IsValueType(long t) {
  switch (t) {
    case siEmpty:
    case siInt4:
    case siFloat:
    case siDouble:
    case siString:
    case siBool:
    case siArray:
    case siRef:
      return true;
    default:
      return false;
  }
}

bool IsPropertyClass(long c) {
  switch (c) {
    case siPropertyID:
    case siCustomPropertyID:
    case siUserDataBlobID:
    case siKinematicsID:
    case siKinematicStateID:
    case siPreferencesID:
      return true;
    default:
      return false;
  }
}

bool DecodeBase64(const std::string& text, std::vector<uint8_t>& out) {
  auto digit = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
  };
  if (text.size() % 4 != 0) return false;
  out.clear();
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    bool last = i + 4 == text.size();
    int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
    if (pad == 1 && text[i + 2] == '=') return false;
    uint32_t n = 0;
    for (size_t k = 0; k < 4; ++k) {
      int d = k >= 4 - static_cast<size_t>(pad) ? 0 : digit(text[i + k]);
      if (d < 0) return false;
      n = (n << 6) | static_cast<uint32_t>(d);
    }
    out.push_back(static_cast<uint8_t>(n >> 16));
    if (pad < 2) out.push_back(static_cast<uint8_t>(n >> 8));
    if (pad < 1) out.push_back(static_cast<uint8_t>(n));
  }
  return true;
}

std::wstring FileStem(const std::string& fileName) {
  std::string stem = fileName.substr(fileName.find_last_of('/') + 1);
  size_t dot = stem.rfind('.');
  if (dot != std::string::npos && dot > 0) stem.erase(dot);
  for (char& c : stem) {
    if (c == '.' || c == ',') c = '_';
  }
  return stem.empty() ? L"Model" : FromUtf8(stem);
}

}  // namespace Zyra::rt::scene_reading
