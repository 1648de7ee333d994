// Small text helpers shared by the commands: option lists, file paths and typed numbers.
#pragma once

#include "zyra/core.h"

// Splits a writable ';'-separated list in place, one item per call. `cursor` starts at the text
// and moves past each ';' (null after the last item); `token` gets the item with every white-space
// character squeezed out. False when the cursor is null or the item is empty (before or after
// squeezing), which ends the list. The first argument is not read.
bool GetTag(char* ignored, char*& cursor, char*& token);
// The directory of `fullPath` without its trailing separator; `dir` is left unchanged when the
// path has no separator.
void ExtractFilePath(const Zyra::CString& fullPath, Zyra::CString& dir);
// The directory of `fullPath` with its trailing separator ('/' or '\\'); the whole string when it
// ends in one; empty when it has none.
Zyra::CString ExtractPath(const Zyra::CString& fullPath);
// A number typed into a text field: optional sign, digits, decimal point, exponent. Reads the
// longest such prefix after leading blanks; 0 when there is none.
float mywcstof(const wchar_t* text);
