// Reading host commands' arguments. Arguments are positional and optional from the end: a missing
// one reads as an empty value. Objects are named by reference, by name, full name or path, or by a
// comma-separated list of names; numbers may come as numbers, bools or numeric text.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/model.h"
#include "zyra/core.h"

namespace Zyra::rt {

// The argument at `i`; an empty value past the end (arguments are optional from the end).
const CValue& Arg(const CValueArray& args, long i);
// An argument as messages quote it: its text between double quotes.
std::wstring Quoted(const CValue& arg);
// A finite number from a numeric, bool or numeric-text argument; empty, references and arrays
// are not numbers.
bool ArgNumber(const CValue& arg, double& out);
// A whole number of at most 1e9 in size (kept well inside int) read as ArgNumber does.
bool ArgInteger(const CValue& arg, int& out);

// The object an argument names: a reference, or a name / full name / path string.
std::shared_ptr<Object> ArgObject(const CValue& arg);
// Objects an argument names: a reference, an array of them, or a comma-separated list of names.
// Fails naming the first name that resolves to nothing.
CStatus ArgObjects(const CValue& arg, std::vector<std::shared_ptr<Object>>& out);
// The model argument `i` names, in `out`; else a failure of `command`: "<command>: "<arg>" is not a
// model."
CStatus ArgModel(std::wstring_view command, const CValueArray& args, long i,
                 std::shared_ptr<ModelObject>& out);
// A failure that names the command and what is wrong with its arguments.
CStatus ArgError(std::wstring_view command, const std::wstring& what);

}  // namespace Zyra::rt
