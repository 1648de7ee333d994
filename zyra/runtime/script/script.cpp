// The script runner: one command or directive a line, run through the host's command table.
// Every failure is logged as "<origin>:<line>: <message>" and returned with the same text.
#include "script/script.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <system_error>

#include "files/regular_file.h"
#include "host/host.h"
#include "host/nearest_name.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "scene_file/scene_file.h"

namespace Zyra::rt {

namespace script {

namespace {

bool IsSpace(wchar_t c) {
  return c == L' ' || c == L'\t' || c == L'\r' || c == L'\v' || c == L'\f';
}
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
bool EndsToken(std::wstring_view line, size_t i) {
  return i >= line.size() || IsSpace(line[i]) || line[i] == L'#';
}

CStatus Malformed(const std::wstring& message) {
  return CStatus(CStatus::InvalidArgument, message);
}

// Reads a quoted string that starts at line[i] == '"'; leaves i after the closing quote.
bool ReadQuoted(std::wstring_view line, size_t& i, std::wstring& out) {
  ++i;
  while (i < line.size()) {
    wchar_t c = line[i++];
    if (c == L'"') return true;
    if (c == L'\\' && i < line.size() && (line[i] == L'"' || line[i] == L'\\')) c = line[i++];
    out += c;
  }
  return false;
}

// A word that starts like a number is one: a digit, or a sign or point followed by a digit.
bool StartsNumber(std::wstring_view w) {
  size_t i = 0;
  if (i < w.size() && (w[i] == L'+' || w[i] == L'-')) ++i;
  if (i < w.size() && w[i] == L'.') ++i;
  return i < w.size() && IsDigit(w[i]);
}

// [+-] (digits [. digits] | . digits) [(e|E) [+-] digits]; a point or an exponent makes a double.
CStatus ParseNumber(Token& token) {
  const std::wstring& w = token.text;
  size_t i = 0;
  auto digits = [&] {
    size_t start = i;
    while (i < w.size() && IsDigit(w[i])) ++i;
    return i - start;
  };
  if (i < w.size() && (w[i] == L'+' || w[i] == L'-')) ++i;
  size_t mantissa = digits();
  bool isDouble = false;
  if (i < w.size() && w[i] == L'.') {
    isDouble = true;
    ++i;
    mantissa += digits();
  }
  bool good = mantissa > 0;
  if (good && i < w.size() && (w[i] == L'e' || w[i] == L'E')) {
    isDouble = true;
    ++i;
    if (i < w.size() && (w[i] == L'+' || w[i] == L'-')) ++i;
    good = digits() > 0;
  }
  if (!good || i != w.size()) return Malformed(L"bad number \"" + w + L"\"");

  std::string s = ToUtf8(w);
  const char* begin = s.data() + (s[0] == '+' ? 1 : 0);
  const char* end = s.data() + s.size();
  if (isDouble) {
    double d = 0;
    auto [ptr, ec] = std::from_chars(begin, end, d);
    if (ec == std::errc::result_out_of_range) {
      return Malformed(L"number \"" + w + L"\" is out of range");
    }
    if (ec != std::errc() || ptr != end) return Malformed(L"bad number \"" + w + L"\"");
    token.kind = TokenKind::kDouble;
    token.value = CValue(d);
    return CStatus::OK;
  }
  long long n = 0;
  auto [ptr, ec] = std::from_chars(begin, end, n);
  if (ec == std::errc::result_out_of_range || n > 2147483647LL || n < -2147483648LL) {
    return Malformed(L"number \"" + w + L"\" is out of range for an integer (write " + w +
                     L".0 for a double)");
  }
  if (ec != std::errc() || ptr != end) return Malformed(L"bad number \"" + w + L"\"");
  token.kind = TokenKind::kInteger;
  token.value = CValue(static_cast<int>(n));
  return CStatus::OK;
}

}  // namespace

CStatus Tokenize(std::wstring_view line, std::vector<Token>& tokens) {
  tokens.clear();
  size_t i = 0;
  while (i < line.size()) {
    if (IsSpace(line[i])) {
      ++i;
      continue;
    }
    if (line[i] == L'#') break;
    Token token;
    if (line[i] == L'"') {
      std::wstring text;
      if (!ReadQuoted(line, i, text)) return Malformed(L"unterminated string");
      if (!EndsToken(line, i))
        return Malformed(L"expected a space after the string \"" + text + L"\"");
      token.kind = TokenKind::kString;
      token.value = CValue(CString(text));
      token.text = std::move(text);
      tokens.push_back(std::move(token));
      continue;
    }
    bool quotedTail = false;
    while (!EndsToken(line, i)) {
      if (line[i] != L'"') {
        token.text += line[i++];
        continue;
      }
      // Only `Name="a value"` may quote inside a word.
      if (quotedTail || token.text.empty() || token.text.back() != L'=') {
        return Malformed(L"unexpected quote after \"" + token.text + L"\"");
      }
      if (!ReadQuoted(line, i, token.text)) return Malformed(L"unterminated string");
      if (!EndsToken(line, i)) return Malformed(L"expected a space after \"" + token.text + L"\"");
      quotedTail = true;
    }
    if (!quotedTail && StartsNumber(token.text)) {
      CStatus status = ParseNumber(token);
      if (!status.Succeeded()) return status;
    } else if (!quotedTail && (token.text == L"true" || token.text == L"false")) {
      token.kind = TokenKind::kBool;
      token.value = CValue(token.text == L"true");
    }
    tokens.push_back(std::move(token));
  }
  return CStatus::OK;
}

std::wstring FormatValue(const CValue& value) {
  char buffer[64];
  switch (value.GetType()) {
    case siFloat: {
      // Shortest text of the float itself, not of its widening to double.
      auto [ptr, ec] = std::to_chars(buffer, buffer + sizeof buffer, value.AsFloat());
      (void)ec;
      return FromUtf8(std::string_view(buffer, static_cast<size_t>(ptr - buffer)));
    }
    case siDouble: {
      auto [ptr, ec] = std::to_chars(buffer, buffer + sizeof buffer, value.AsDouble());
      (void)ec;
      return FromUtf8(std::string_view(buffer, static_cast<size_t>(ptr - buffer)));
    }
    case siArray: {
      std::wstring out;
      bool first = true;
      for (const CValue& item : value.AsArray()) {
        if (!first) out += L",";
        first = false;
        out += FormatValue(item);
      }
      return out;
    }
    default:
      return value.GetAsText().Wide();
  }
}

}  // namespace script

namespace {

using script::Token;
using script::TokenKind;

// Index just past the first byte of `bytes` that does not belong to well-formed UTF-8
// (overlong forms, surrogates and values above U+10FFFF included); 0 when all is well.
size_t FindBadUtf8(std::string_view bytes) {
  size_t i = 0;
  while (i < bytes.size()) {
    auto b = static_cast<unsigned char>(bytes[i]);
    size_t extra = b < 0x80             ? 0
                   : (b & 0xE0) == 0xC0 ? 1
                   : (b & 0xF0) == 0xE0 ? 2
                   : (b & 0xF8) == 0xF0 ? 3
                                        : 4;
    if (extra == 4 || i + extra >= bytes.size()) return i + 1;
    uint32_t c = extra == 0 ? b : b & (0x3F >> extra);
    for (size_t k = 1; k <= extra; ++k) {
      auto n = static_cast<unsigned char>(bytes[i + k]);
      if ((n & 0xC0) != 0x80) return i + 1;
      c = (c << 6) | (n & 0x3F);
    }
    static const uint32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
    if (c < kMinimum[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return i + 1;
    i += extra + 1;
  }
  return 0;
}

class Runner {
 public:
  Runner(std::string origin, const ScriptOptions& options)
      : origin_(std::move(origin)), options_(options) {}

  CStatus Run(std::wstring_view text) {
    if (!text.empty() && text[0] == L'\uFEFF') text.remove_prefix(1);
    size_t start = 0;
    int lineNumber = 0;
    while (start <= text.size()) {
      size_t end = text.find(L'\n', start);
      std::wstring_view line =
          text.substr(start, end == std::wstring_view::npos ? end : end - start);
      if (!line.empty() && line.back() == L'\r') line.remove_suffix(1);
      ++lineNumber;
      lineNumber_ = lineNumber;
      CStatus status = RunLineCaught(line);
      if (!status.Succeeded()) {
        CStatus located = Report(lineNumber, status);
        if (first_.Succeeded()) first_ = located;
        if (!options_.keepGoing) break;
      }
      if (end == std::wstring_view::npos) break;
      start = end + 1;
    }
    if (expectedRefusal_ && (first_.Succeeded() || options_.keepGoing)) {
      CStatus located = Report(expectLine_, Error(L"Expect Refusal: no command follows it"));
      if (first_.Succeeded()) first_ = located;
    }
    return first_;
  }

  // Logs and returns a failure of line `lineNumber` with the file and line in front.
  CStatus Report(int lineNumber, const CStatus& status) {
    std::wstring message =
        FromUtf8(origin_) + L":" + std::to_wstring(lineNumber) + L": " + status.GetMessage().Wide();
    Host::Get().Log(kSevError, message);
    return CStatus(status.GetCode(), message);
  }

 private:
  using Tokens = std::vector<Token>;
  using Directive = CStatus (Runner::*)(const Tokens&);

  CStatus RunLineCaught(std::wstring_view line) {
    try {
      Tokens tokens;
      CStatus status = script::Tokenize(line, tokens);
      if (!status.Succeeded() || tokens.empty()) return status;
      if (tokens[0].kind != TokenKind::kWord && tokens[0].kind != TokenKind::kString) {
        return Error(L"expected a command name, got \"" + tokens[0].text + L"\"");
      }
      // A quoted name is always a command: plug-in display names may hold blanks.
      auto directive = Directives().find(tokens[0].text);
      if (tokens[0].kind == TokenKind::kWord && directive != Directives().end()) {
        return (this->*directive->second)(tokens);
      }
      CValue result;
      return RunCommand(tokens, 0, result);
    } catch (const std::exception& e) {
      return CStatus(CStatus::Unexpected, L"internal error: " + FromUtf8(e.what()));
    } catch (...) {
      return CStatus(CStatus::Unexpected, L"internal error");
    }
  }

  static CStatus Error(const std::wstring& message, CStatus::Code code = CStatus::InvalidArgument) {
    return CStatus(code, message);
  }

  static const std::map<std::wstring, Directive, std::less<>>& Directives() {
    static const std::map<std::wstring, Directive, std::less<>> table = {
        {L"LoadPlugin", &Runner::LoadPluginLine}, {L"OpenScene", &Runner::OpenSceneLine},
        {L"SaveScene", &Runner::SaveSceneLine},   {L"Shift", &Runner::ShiftLine},
        {L"Print", &Runner::PrintLine},           {L"Echo", &Runner::EchoLine},
        {L"Answer", &Runner::AnswerLine},         {L"Expect", &Runner::ExpectLine},
    };
    return table;
  }

  // Runs the host command named by tokens[first] with the tokens after it as arguments. A
  // command that returned OK but showed a refusal (an OK-only box) or met a page answer it could
  // not use fails the line, unless an `Expect Refusal` line asked for exactly that.
  CStatus RunCommand(const Tokens& tokens, size_t first, CValue& result) {
    const std::wstring& name = tokens[first].text;
    Host& host = Host::Get();
    std::optional<std::wstring> expected = std::move(expectedRefusal_);
    expectedRefusal_.reset();
    if (!host.FindCommand(name)) {
      std::vector<std::wstring> names;
      for (const HostCommand* command : host.Commands()) names.push_back(command->name);
      std::wstring nearest = NearestName(name, names);
      return Error(L"unknown command \"" + name + L"\"" +
                       (nearest.empty() ? L"" : L" (did you mean \"" + nearest + L"\"?)"),
                   CStatus::MemberNotFound);
    }
    CValueArray args;
    for (size_t i = first + 1; i < tokens.size(); ++i) {
      const Token& token = tokens[i];
      if (token.kind != TokenKind::kWord) {
        args.Add(token.value);
        continue;
      }
      auto object = Resolve(token.text);
      if (!object) return Error(L"unknown object \"" + token.text + L"\"", CStatus::MemberNotFound);
      args.Add(CValue(CRef(object)));
    }
    std::vector<std::wstring>& failures = host.ui().lineFailures;
    failures.clear();
    CStatus status = host.Execute(name, args, result);
    std::vector<std::wstring> refused;
    refused.swap(failures);
    if (!status.Succeeded() && status.GetMessage().IsEmpty()) {
      return CStatus(status.GetCode(), name + L" failed");
    }
    if (!status.Succeeded()) return status;
    if (expected) {
      if (refused.empty()) return Error(name + L": expected a refusal, but none was shown");
      if (!expected->empty() &&
          std::find(refused.begin(), refused.end(), *expected) == refused.end()) {
        return Error(name + L": expected the refusal \"" + *expected + L"\", got \"" +
                     refused.front() + L"\"");
      }
      return status;
    }
    if (!refused.empty()) return Error(name + L": " + refused.front(), CStatus::Abort);
    return status;
  }

  // The text of a path or title argument: a string, or a word taken as it is.
  static bool TextArg(const Token& token, std::wstring& out) {
    if (token.kind != TokenKind::kString && token.kind != TokenKind::kWord) return false;
    out = token.text;
    return true;
  }

  static CStatus OnePath(const Tokens& tokens, std::wstring& path) {
    if (tokens.size() != 2 || !TextArg(tokens[1], path) || path.empty()) {
      return Error(tokens[0].text + L": expected one file, as in " + tokens[0].text + L" \"file\"");
    }
    return CStatus::OK;
  }

  CStatus LoadPluginLine(const Tokens& tokens) {
    std::wstring path;
    CStatus status = OnePath(tokens, path);
    if (!status.Succeeded()) return status;
    // A bare file name would send the module loader searching the library path, not the
    // working directory that every other file argument is relative to.
    if (path.find(L'/') == std::wstring::npos) path = L"./" + path;
    return LoadPlugin(ToUtf8(path));
  }

  CStatus OpenSceneLine(const Tokens& tokens) {
    std::wstring path;
    CStatus status = OnePath(tokens, path);
    return status.Succeeded() ? OpenSceneFile(ToUtf8(path)) : status;
  }

  CStatus SaveSceneLine(const Tokens& tokens) {
    std::wstring path;
    CStatus status = OnePath(tokens, path);
    return status.Succeeded() ? SaveSceneFile(ToUtf8(path)) : status;
  }

  CStatus ShiftLine(const Tokens& tokens) {
    const std::wstring state = tokens.size() == 2 ? tokens[1].text : L"";
    bool word = tokens.size() == 2 && tokens[1].kind != TokenKind::kString;
    if (word && (state == L"on" || state == L"true")) {
      Host::Get().ui().shift = true;
    } else if (word && (state == L"off" || state == L"false")) {
      Host::Get().ui().shift = false;
    } else {
      return Error(L"Shift: expected on or off");
    }
    return CStatus::OK;
  }

  CStatus PrintLine(const Tokens& tokens) {
    if (tokens.size() < 2 ||
        (tokens[1].kind != TokenKind::kWord && tokens[1].kind != TokenKind::kString)) {
      return Error(L"Print: expected a command, as in Print GetValue \"Obj.posx\"");
    }
    if (tokens[1].kind == TokenKind::kWord && Directives().count(tokens[1].text)) {
      return Error(L"Print: \"" + tokens[1].text + L"\" is a directive, not a command");
    }
    CValue result;
    CStatus status = RunCommand(tokens, 1, result);
    if (status.Succeeded()) std::cout << ToUtf8(script::FormatValue(result)) << '\n' << std::flush;
    return status;
  }

  CStatus EchoLine(const Tokens& tokens) {
    std::wstring text;
    for (size_t i = 1; i < tokens.size(); ++i) text += (i > 1 ? L" " : L"") + tokens[i].text;
    std::cout << ToUtf8(text) << '\n' << std::flush;
    return CStatus::OK;
  }

  // Expect Refusal ["text"]: the next command may (and must) show a refusal, with exactly this
  // text when one is given; it then counts as succeeded. For scripts that test refusals.
  CStatus ExpectLine(const Tokens& tokens) {
    const bool refusal =
        tokens.size() >= 2 && tokens[1].kind == TokenKind::kWord && tokens[1].text == L"Refusal";
    if (!refusal || tokens.size() > 3 ||
        (tokens.size() == 3 && tokens[2].kind != TokenKind::kString)) {
      return Error(L"Expect: expected Refusal, as in Expect Refusal \"message\"");
    }
    expectedRefusal_ = tokens.size() == 3 ? tokens[2].text : std::wstring();
    expectLine_ = lineNumber_;
    return CStatus::OK;
  }

  CStatus AnswerLine(const Tokens& tokens) {
    const std::wstring kind =
        tokens.size() > 1 && tokens[1].kind == TokenKind::kWord ? tokens[1].text : L"";
    if (kind == L"MsgBox") return AnswerMsgBox(tokens);
    if (kind == L"Page") return AnswerPage(tokens);
    if (kind == L"File") return AnswerFile(tokens);
    if (kind == L"Pick") return AnswerPick(tokens);
    return Error(L"Answer: expected MsgBox, Page, File or Pick");
  }

  // Answer MsgBox OK|Cancel|Yes|No ...: one queued answer per word, in order.
  static CStatus AnswerMsgBox(const Tokens& tokens) {
    static const std::map<std::wstring, int, std::less<>> kButtons = {
        {L"OK", 1}, {L"Cancel", 2}, {L"Yes", 6}, {L"No", 7}};
    std::vector<int> answers;
    for (size_t i = 2; i < tokens.size(); ++i) {
      auto it = kButtons.find(tokens[i].text);
      if (tokens[i].kind != TokenKind::kWord || it == kButtons.end()) {
        return Error(L"Answer MsgBox: expected OK, Cancel, Yes or No, got \"" + tokens[i].text +
                     L"\"");
      }
      answers.push_back(it->second);
    }
    if (answers.empty()) return Error(L"Answer MsgBox: expected OK, Cancel, Yes or No");
    auto& queue = Host::Get().ui().msgBoxAnswers;
    queue.insert(queue.end(), answers.begin(), answers.end());
    return CStatus::OK;
  }

  // Answer Page "Title" Param=value ... [press=Button ...] [cancel]
  static CStatus AnswerPage(const Tokens& tokens) {
    PageAnswer answer;
    if (tokens.size() < 3 || !TextArg(tokens[2], answer.title) ||
        (tokens[2].kind == TokenKind::kWord && answer.title.find(L'=') != std::wstring::npos)) {
      return Error(
          L"Answer Page: expected the page title first, as in Answer Page \"Title\" Param=value");
    }
    for (size_t i = 3; i < tokens.size(); ++i) {
      const Token& token = tokens[i];
      size_t eq = token.kind == TokenKind::kWord ? token.text.find(L'=') : std::wstring::npos;
      if (token.kind == TokenKind::kWord && token.text == L"cancel") {
        answer.cancel = true;
      } else if (eq != std::wstring::npos && eq > 0) {
        std::wstring name = token.text.substr(0, eq);
        std::wstring value = token.text.substr(eq + 1);
        if (name == L"press") {
          answer.presses.push_back(value);
        } else {
          answer.values.emplace_back(name, value);
        }
      } else {
        return Error(L"Answer Page: expected Param=value, press=Button or cancel, got \"" +
                     token.text + L"\"");
      }
    }
    Host::Get().ui().pageAnswers.push_back(std::move(answer));
    return CStatus::OK;
  }

  // Answer File "Title" "path"
  static CStatus AnswerFile(const Tokens& tokens) {
    std::wstring title, path;
    if (tokens.size() != 4 || !TextArg(tokens[2], title) || !TextArg(tokens[3], path)) {
      return Error(
          L"Answer File: expected a dialog title and a path, as in Answer File \"Title\" \"path\"");
    }
    Host::Get().ui().fileAnswers.emplace_back(title, path);
    return CStatus::OK;
  }

  // Answer Pick Name | none. The name is kept as text: the object may be made later.
  static CStatus AnswerPick(const Tokens& tokens) {
    std::wstring name;
    if (tokens.size() != 3 || !TextArg(tokens[2], name) || name.empty()) {
      return Error(L"Answer Pick: expected an object name or none");
    }
    if (tokens[2].kind == TokenKind::kWord && name == L"none") name.clear();
    Host::Get().ui().pickAnswers.push_back(name);
    return CStatus::OK;
  }

  std::string origin_;
  ScriptOptions options_;
  CStatus first_;
  std::optional<std::wstring> expectedRefusal_;  // set by Expect Refusal for the next command
  int expectLine_ = 0;                           // and the line that set it
  int lineNumber_ = 0;                           // the line running
};

}  // namespace

CStatus RunScriptText(const std::wstring& text, const std::string& origin,
                      const ScriptOptions& options) {
  return Runner(origin, options).Run(text);
}

namespace {

// Reads a script whole, refusing it as soon as one line grows past kMaxScriptLine (so an endless
// source such as /dev/zero ends with a message instead of filling memory). `tooLong` is then the
// 1-based number of that line.
bool ReadBounded(std::istream& in, std::string& bytes, int& tooLong) {
  std::vector<char> block(1 << 16);
  size_t lineLength = 0;
  int line = 1;
  while (in) {
    in.read(block.data(), static_cast<std::streamsize>(block.size()));
    const auto got = static_cast<size_t>(in.gcount());
    for (size_t i = 0; i < got; ++i) {
      if (block[i] == '\n') {
        lineLength = 0;
        ++line;
      } else if (++lineLength > kMaxScriptLine) {
        tooLong = line;
        return false;
      }
    }
    bytes.append(block.data(), got);
  }
  return !in.bad();
}

CStatus RunScriptBytes(std::istream& in, const std::string& origin, const ScriptOptions& options) {
  std::string bytes;
  int tooLong = 0;
  if (!ReadBounded(in, bytes, tooLong)) {
    const std::wstring why =
        tooLong > 0 ? L"line longer than " + std::to_wstring(kMaxScriptLine >> 20) + L" MiB"
                    : L"read error";
    return Runner(origin, options).Report(tooLong, CStatus(CStatus::InvalidArgument, why));
  }
  if (size_t bad = FindBadUtf8(bytes)) {
    int line = 1 + static_cast<int>(
                       std::count(bytes.begin(), bytes.begin() + static_cast<long>(bad - 1), '\n'));
    return Runner(origin, options)
        .Report(line, CStatus(CStatus::InvalidArgument, L"invalid UTF-8"));
  }
  return RunScriptText(FromUtf8(bytes), origin, options);
}

}  // namespace

CStatus RunScriptStream(std::istream& in, const std::string& origin, const ScriptOptions& options) {
  return RunScriptBytes(in, origin, options);
}

CStatus RunScriptFile(const std::string& path, const ScriptOptions& options) {
  // Only a regular file: a FIFO would wait for a writer, a device would never end.
  std::string why = WhyNotRegularFile(path);
  std::ifstream file;
  if (why.empty()) file.open(path, std::ios::binary);
  if (!file.is_open()) {
    if (why.empty()) why = std::strerror(errno);
    std::wstring message = L"cannot open script \"" + FromUtf8(path) + L"\": " + FromUtf8(why);
    Host::Get().Log(kSevError, message);
    return CStatus(CStatus::Fail, message);
  }
  return RunScriptBytes(file, path, options);
}

}  // namespace Zyra::rt
