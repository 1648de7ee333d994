// The common Init and Execute of every command.
#include "knrexport/plugin/dispatch.h"

#include <cwchar>

#include "knrexport/scene/host_calls.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

// The host's flag that keeps a command out of the command log.
constexpr int kNoLoggingFlag = 0x800000;
constexpr int kShiftKey = 16;

bool ShiftDown() { return (GetKeyState(kShiftKey) & 0x8000) != 0; }

bool FlagFor(ShiftUse use) {
  switch (use) {
    case ShiftUse::kFlagIsShift:
      return ShiftDown();
    case ShiftUse::kFlagIsNotShift:
      return !ShiftDown();
    case ShiftUse::kNone:
      break;
  }
  return false;
}

bool Is(const wchar_t* a, const wchar_t* b) { return std::wcscmp(a, b) == 0; }

CStatus RunNode(const CommandEntry& entry) {
  Selection selection = Application().GetSelection();
  X3DObject node = selection.GetCount() == 1 ? X3DObject(selection[0]) : X3DObject();
  if (!node.IsValid()) {
    ShowMessage(entry.selectionMessage);
    // Generate tells the host it failed; every other command has said enough in its message.
    return Is(entry.displayName, L"Generate") ? CStatus(CStatus::Fail) : CStatus(CStatus::OK);
  }
  if (!entry.nodeOperation) {
    ShowNotAvailable(entry);
    return CStatus::OK;
  }
  bool flag = FlagFor(entry.shift);
  if (entry.logOff) {
    ScopedLogOff logOff;
    entry.nodeOperation(node, flag);
  } else {
    entry.nodeOperation(node, flag);
  }
  return CStatus::OK;
}

// Make Skill and Make Loop: a node runs with source 0; an action source runs on its model with
// the index of the first source of the same name (the source count when none matches).
CStatus RunNodeOrSource(const CommandEntry& entry) {
  Selection selection = Application().GetSelection();
  if (selection.GetCount() != 1) {
    ShowMessage(entry.selectionMessage);
    return CStatus::OK;
  }
  X3DObject target(selection[0]);
  int index = 0;
  if (!target.IsValid()) {
    ActionSource source(selection[0]);
    if (!source.IsValid()) {
      ShowMessage(entry.selectionMessage);
      return CStatus::OK;
    }
    Model model(source.GetModel());
    index = SourceIndexByName(model.GetSources(), source.GetName());
    target = model;
  }
  if (!entry.sourceOperation) {
    ShowNotAvailable(entry);
    return CStatus::OK;
  }
  entry.sourceOperation(target, index);
  return CStatus::OK;
}

CStatus RunPlain(const CommandEntry& entry) {
  if (!entry.plainOperation) {
    ShowNotAvailable(entry);
    return CStatus::OK;
  }
  entry.plainOperation();
  return CStatus::OK;
}

CValue ArgumentAt(const CValueArray& args, long i) { return i < args.GetCount() ? args[i] : CValue(); }

// KnrAddBVHAction(model, file, action name, scale, optimize[, filter, subtree, keep root]): the
// first five must have their types; the last three are used when they do.
CStatus RunAddBVHAction(const CommandEntry& entry, const CValueArray& args) {
  Model model(ArgumentAt(args, 0).AsRef());
  bool typed = ArgumentAt(args, 0).GetType() == siRef && model.IsValid() &&
               ArgumentAt(args, 1).GetType() == siString && ArgumentAt(args, 2).GetType() == siString &&
               ArgumentAt(args, 3).GetType() == siDouble && ArgumentAt(args, 4).GetType() == siBool;
  if (!typed) return CStatus::OK;
  if (!gAddBVHAction) {
    ShowNotAvailable(entry);
    return CStatus::OK;
  }
  CString filter = ArgumentAt(args, 5).GetType() == siString ? ArgumentAt(args, 5).GetAsText() : CString();
  CString subtree = ArgumentAt(args, 6).GetType() == siString ? ArgumentAt(args, 6).GetAsText() : CString();
  bool keepRoot = ArgumentAt(args, 7).GetType() == siBool ? ArgumentAt(args, 7).AsBool() : true;
  ScopedLogOff logOff;
  gAddBVHAction(model, ArgumentAt(args, 1).GetAsText(), ArgumentAt(args, 2).GetAsText(),
                ArgumentAt(args, 3).AsFloat(), ArgumentAt(args, 4).AsBool(), filter, subtree, keepRoot);
  return CStatus::OK;
}

// KnrGenerateRenderSetup(filename, target, start, end, domap[, classname, doui]).
CStatus RunGenerateRenderSetup(const CommandEntry& entry, const CValueArray& args) {
  static const wchar_t* const kMissing[] = {
      L"RenderSetupGenerate command missing filename parameter (0).",
      L"RenderSetupGenerate command missing target group parameter (1).",
      L"RenderSetupGenerate command missing start parameter (2).",
      L"RenderSetupGenerate command missing end parameter (3).",
      L"RenderSetupGenerate command missing domap parameter (4).",
  };
  bool doui = ArgumentAt(args, 6).AsBool();
  bool complete = true;
  for (long i = 0; i < 5; ++i) {
    if (!ArgumentAt(args, i).IsEmpty()) continue;
    complete = false;
    if (doui) {
      ShowMessage(kMissing[i]);
    } else {
      Application().LogMessage(kMissing[i], siCommentMsg);
    }
  }
  if (!complete) return CStatus::OK;
  if (!gGenerateRenderSetup) {
    ShowNotAvailable(entry);
    return CStatus::OK;
  }
  gGenerateRenderSetup(ArgumentAt(args, 0).GetAsText(), ArgumentAt(args, 1).AsRef(), ArgumentAt(args, 2).AsInt(),
                       ArgumentAt(args, 3).AsInt(), ArgumentAt(args, 4).AsBool(),
                       ArgumentAt(args, 5).GetAsText(), doui);
  return CStatus::OK;
}

}  // namespace

void ShowNotAvailable(const CommandEntry& entry) {
  ShowMessage(CString(L"The ") + entry.displayName + L" action is not available in this build.");
}

CStatus InitCommand(const wchar_t* displayName, CRef& context) {
  Command command(Context(context).GetSource());
  command.PutFlag(kNoLoggingFlag, true);
  ArgumentArray args = command.GetArguments();
  if (Is(displayName, L"AddBVHAction")) {
    for (const wchar_t* name : {L"arg0", L"arg1", L"arg2", L"arg3", L"arg4", L"arg5", L"arg6", L"arg7"}) {
      args.Add(name, CValue());
    }
  } else if (Is(displayName, L"GenerateRenderSetup")) {
    for (const wchar_t* name : {L"filename", L"target", L"start", L"end", L"domap", L"classname", L"doui"}) {
      args.Add(name, CValue());
    }
  }
  return CStatus::OK;
}

int SourceIndexByName(const CRefArray& sources, const CString& name) {
  int index = 0;
  while (index < sources.GetCount() && ActionSource(sources[index]).GetName() != name) ++index;
  return index;
}

CStatus ExecuteEntry(const CommandEntry& entry, const CValueArray& arguments) {
  switch (entry.input) {
    case CommandInput::kNode:
      return RunNode(entry);
    case CommandInput::kNodeOrSource:
      return RunNodeOrSource(entry);
    case CommandInput::kNone:
      return RunPlain(entry);
    case CommandInput::kArguments:
      return Is(entry.displayName, L"AddBVHAction") ? RunAddBVHAction(entry, arguments)
                                                    : RunGenerateRenderSetup(entry, arguments);
  }
  return CStatus::OK;
}

CStatus ExecuteCommand(const wchar_t* displayName, CRef& context) {
  const CommandEntry* entry = FindCommandEntry(displayName);
  if (!entry) return CStatus(CStatus::Unexpected, CString(L"Unknown command ") + displayName);
  return ExecuteEntry(*entry, Context(context).GetAttribute(L"Arguments").AsArray());
}
