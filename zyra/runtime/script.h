// The script language's pieces below RunScriptFile / RunScriptText: the tokenizer and the text
// that `Print` writes. Private to the runtime; the host's tests use it directly.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zyra/core.h"

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
