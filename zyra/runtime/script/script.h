// The script runner: scripts from a file, a string or a stream, one command or directive a line;
// and below it, the tokenizer and the text that `Print` writes (the host's tests use them
// directly).
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "zyra/core.h"

namespace Zyra::rt {

struct ScriptOptions {
  bool keepGoing = false;
};
// Runs a script file; errors name the file and line. Returns the first failure.
CStatus RunScriptFile(const std::string& path, const ScriptOptions& options = {});
// Runs script text; `origin` names it in messages ("-c", a file name).
CStatus RunScriptText(const std::wstring& text, const std::string& origin,
                      const ScriptOptions& options = {});
// Runs a script read from `in` (standard input), as RunScriptFile does a file.
CStatus RunScriptStream(std::istream& in, const std::string& origin,
                        const ScriptOptions& options = {});
// The longest script line, in bytes: a longer one is refused before it is held in memory.
inline constexpr size_t kMaxScriptLine = size_t{64} << 20;

}  // namespace Zyra::rt

namespace Zyra::rt::script {

// What a token of a script line is. Words are command names, directive keywords, object names
// and `Name=value` pairs; they are resolved (or not) by whoever reads them.
enum class TokenKind {
  kWord,     // bare text; a quoted part right after '=' is unquoted into it (Param="a b")
  kString,   // "quoted text"; \" and \\ are escapes, any other backslash is kept (paths)
  kInteger,  // digits with an optional sign
  kDouble,   // a number with a decimal point or an exponent
  kBool,     // true / false
};

struct Token {
  TokenKind kind = TokenKind::kWord;
  std::wstring text;  // the word or the string's contents; numbers as written
  CValue value;       // numbers, bools and strings as values; empty for words
};

// Splits one line (without its line break) into tokens; a '#' outside quotes ends the line.
// Fails with a message that quotes the bad token (an unterminated string, a malformed or
// out-of-range number, a quote inside a word); the message carries no file or line.
CStatus Tokenize(std::wstring_view line, std::vector<Token>& tokens);

// A command's return value as `Print` shows it: numbers in the shortest text that reads back to
// the same value, bools as true/false, strings as they are, objects by full name, arrays with
// their items separated by commas, nothing for an empty value.
std::wstring FormatValue(const CValue& value);

}  // namespace Zyra::rt::script
