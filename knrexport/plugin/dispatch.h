// The common Init and Execute of every command: argument declarations, the selection check,
// the Shift switch and the command-log switch around the operation.
#pragma once

#include "knrexport/plugin/command_table.h"
#include "zyra/core.h"

// Declares the command's arguments and sets the host's no-logging flag.
Zyra::CStatus InitCommand(const wchar_t* displayName, Zyra::CRef& context);
// Runs the command: checks its input, then calls its operation. Returns OK also after a refusal
// told to the user, except that Generate fails when the selection is not one object.
Zyra::CStatus ExecuteCommand(const wchar_t* displayName, Zyra::CRef& context);
// Runs one table entry with the command's argument values (the context's "Arguments").
Zyra::CStatus ExecuteEntry(const CommandEntry& entry, const Zyra::CValueArray& arguments);
// "The <display name> action is not available in this build." in a message box.
void ShowNotAvailable(const CommandEntry& entry);
// The index of the first source named `name`; the number of sources when none is.
int SourceIndexByName(const Zyra::CRefArray& sources, const Zyra::CString& name);
