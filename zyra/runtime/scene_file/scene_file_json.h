// Scene-file reading, the JSON side: where an element sits in the document (for messages), the
// error a malformed element raises, and the checked readers of names, numbers and values every
// part of the reader uses. Private to the scene-file reader.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "scene_file/scene_file.h"
#include "scene_file/scene_file_columns.h"
#include "zyra/core.h"

namespace Zyra::rt::scene_reading {

using Json = nlohmann::json;

// The place of an element in the document, kept on the stack and turned into text
// ("scene.root.children[2].name") only for a message.
struct Path {
  const Path* parent = nullptr;
  const char* key = nullptr;  // null: an array index
  size_t index = 0;

  // A child path points at its parent: only a named path (not a temporary) can have one.
  Path operator/(const char* k) const& { return Path{this, k, 0}; }
  Path operator[](size_t i) const& { return Path{this, nullptr, i}; }
  Path operator/(const char* k) const&& = delete;
  Path operator[](size_t i) const&& = delete;
  std::string Text() const {
    if (!parent && !key) return std::string();  // the document itself
    std::string head = parent ? parent->Text() : std::string();
    if (key) return head.empty() ? key : head + "." + key;
    return head + "[" + std::to_string(index) + "]";
  }
};

struct FormatError {
  std::string where;
  std::string what;
};

// Parses a whole document into `doc`, long number columns parsed apart into `columns`
// (scene_file_columns.h). A syntax error returns false with the parser's message ("parse error at
// line L, column C: ..."); a number that no double or integer holds (1e999, an integer literal
// past 64 bits) throws the FormatError at that number's path.
bool ParseJson(const std::string& text, Json& doc, std::string& syntaxError, Columns& columns);

// The column `j` stands for, when it is a column reference of the given kind not taken yet
// (a curve takes a column once); null for any other value.
Column* ColumnRef(const Json& j, Columns& columns, bool single);

// Reads a document that `read` supplies in pieces (it fills at most `capacity` bytes at `into`
// and returns how many, 0 at the end) through a buffer of `bufferSize` bytes; `advance` is told
// of every byte taken. False when the text is no valid JSON: the caller then reads the text whole
// with ParseJson for the message, which must give the line and column of the file as it is.
// Throws the FormatError of a number out of range, and whatever `read` throws.
bool ParseJsonStream(const std::function<size_t(char* into, size_t capacity)>& read,
                     size_t bufferSize, Json& doc, Columns& columns,
                     const std::function<void(size_t bytes)>& advance);

// Throws the FormatError for the element at `p`.
[[noreturn]] void Fail(const Path& p, const std::string& what);

// The kind of a JSON value as a message names it ("a string", "an array", ...).
std::string Describe(const Json& j);

// `j` itself when it is an object (an array), else a failure at `p`.
const Json& ExpectObject(const Json& j, const Path& p);
const Json& ExpectArray(const Json& j, const Path& p);

// The member `key` of an object (checked by the caller); null when absent.
const Json* Find(const Json& object, const char* key);
// The member `key` of an object; a failure at `p` when absent.
const Json& Member(const Json& object, const char* key, const Path& p);

std::wstring ReadString(const Json& j, const Path& p);
// An object, property or parameter name: not empty, no '.' (it separates path segments).
std::wstring ReadName(const Json& j, const Path& p);
// A number, or one of the strings "inf", "-inf" and "nan".
double ReadNumber(const Json& j, const Path& p);
// An integer within lo..hi.
long ReadInt(const Json& j, const Path& p, long lo = -2147483647L - 1, long hi = 2147483647L);
bool ReadBool(const Json& j, const Path& p);

// The "class" of the 3D object `j` (checked to be an object): one of the 3D object classes.
siClassID X3DClass(const Json& j, const Path& p);
bool IsValueType(long t);
bool IsPropertyClass(long c);
// Standard base64 with '=' padding; false on anything else.
bool DecodeBase64(const std::string& text, std::vector<uint8_t>& out);
// The file's name without folder and extension, made a valid object name ("Model" if empty).
std::wstring FileStem(const std::string& fileName);

}  // namespace Zyra::rt::scene_reading
