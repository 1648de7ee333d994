// Small text helpers shared by the commands.
#include "knrexport/scene/text_utils.h"

#include <cctype>
#include <charconv>
#include <cstring>
#include <cwctype>
#include <string>

bool GetTag(char* /*ignored*/, char*& cursor, char*& token) {
  if (!cursor) return false;
  token = cursor;
  char* separator = std::strchr(cursor, ';');
  if (separator) {
    *separator = '\0';
    cursor = separator + 1;
  } else {
    cursor = nullptr;
  }
  if (*token == '\0') return false;
  char* write = token;
  for (char* read = token; *read; ++read) {
    if (!std::isspace(static_cast<unsigned char>(*read))) *write++ = *read;
  }
  *write = '\0';
  return *token != '\0';
}

namespace {

bool IsSeparator(wchar_t c) { return c == L'/' || c == L'\\'; }

}  // namespace

void ExtractFilePath(const Zyra::CString& fullPath, Zyra::CString& dir) {
  const std::wstring& path = fullPath.Wide();
  for (size_t i = path.size(); i-- > 0;) {
    if (IsSeparator(path[i])) {
      dir = Zyra::CString(path.substr(0, i));
      return;
    }
  }
}

Zyra::CString ExtractPath(const Zyra::CString& fullPath) {
  const std::wstring& path = fullPath.Wide();
  for (size_t i = path.size(); i-- > 0;) {
    if (IsSeparator(path[i])) return Zyra::CString(path.substr(0, i + 1));
  }
  return Zyra::CString();
}

float mywcstof(const wchar_t* text) {
  if (!text) return 0.0f;
  while (std::iswspace(static_cast<wint_t>(*text))) ++text;
  // Copy the longest number-shaped prefix: sign, digits, point, digits, exponent.
  std::string number;
  const wchar_t* p = text;
  if (*p == L'+' || *p == L'-') number += static_cast<char>(*p++);
  bool digits = false;
  while (std::iswdigit(static_cast<wint_t>(*p))) number += static_cast<char>(*p++), digits = true;
  if (*p == L'.') {
    number += static_cast<char>(*p++);
    while (std::iswdigit(static_cast<wint_t>(*p))) number += static_cast<char>(*p++), digits = true;
  }
  if (!digits) return 0.0f;
  if (*p == L'e' || *p == L'E') {
    const wchar_t* e = p + 1;
    std::string exponent = "e";
    if (*e == L'+' || *e == L'-') exponent += static_cast<char>(*e++);
    if (std::iswdigit(static_cast<wint_t>(*e))) {
      while (std::iswdigit(static_cast<wint_t>(*e))) exponent += static_cast<char>(*e++);
      number += exponent;
    }
  }
  const char* begin = number.c_str();
  if (*begin == '+') ++begin;
  float value = 0.0f;
  std::from_chars(begin, number.c_str() + number.size(), value);
  return value;
}
