// The plug-in's commands: names, selection rules, refusal messages and the operation each one
// runs. This is the only place that knows the whole command table.
#pragma once

#include "zyra/core.h"
#include "zyra/x3dobject.h"

// How a command's Execute reads its input.
enum class CommandInput {
  kNode,             // exactly one selected 3D object
  kNodeOrSource,     // one selected 3D object or action source (Make Skill, Make Loop)
  kNone,             // no selection needed
  kArguments,        // the command's own arguments (AddBVHAction, GenerateRenderSetup)
};

// How the Shift key changes a node operation's flag.
enum class ShiftUse { kNone, kFlagIsShift, kFlagIsNotShift };

// Operations the commands call. A null operation has not been built yet: the command then says
// so and changes nothing.
using NodeOperation = bool (*)(Zyra::X3DObject& node, bool flag);
using SourceOperation = bool (*)(Zyra::X3DObject& node, int sourceIndex);
using PlainOperation = bool (*)();
// The scriptable BVH action import: model, file, action name, scale, optimize, filter text,
// subtree text, keep-subtree-root.
using BVHActionOperation = bool (*)(Zyra::Model& model, const Zyra::CString& file,
                                    const Zyra::CString& actionName, float scale, bool optimize,
                                    const Zyra::CString& filter, const Zyra::CString& subtree,
                                    bool keepRoot);
// Render-setup generation: setup file, target group, start and end frames, map flag, class name,
// whether to report in message boxes.
using RenderSetupOperation = bool (*)(const Zyra::CString& file, const Zyra::CRef& targetGroup,
                                      int start, int end, bool domap,
                                      const Zyra::CString& className, bool doui);

struct CommandEntry {
  const wchar_t* displayName;
  const wchar_t* scriptName;
  CommandInput input;
  bool logOff;      // the operation runs with host command logging switched off
  ShiftUse shift;
  const wchar_t* selectionMessage;  // shown when the selection does not fit; may be null
  NodeOperation nodeOperation;
  SourceOperation sourceOperation;
  PlainOperation plainOperation;
};

// The operations behind the two commands that take arguments; null until built.
extern BVHActionOperation gAddBVHAction;
extern RenderSetupOperation gGenerateRenderSetup;

// The 25 commands in registration order.
const CommandEntry* CommandTable(int& count);
// The entry whose display name is `displayName`; null when none.
const CommandEntry* FindCommandEntry(const wchar_t* displayName);

// The custom property types in registration order.
inline constexpr const wchar_t* kPropertyTypes[] = {L"KinraJL",   L"Skill",     L"KinraGen",
                                                     L"BVHActor", L"LoopSkill", L"RenderSetup"};
