// The plug-in interface: registration, commands with their arguments, callback contexts and
// property pages.
//
// A plug-in module exports, with ZYRA_PLUGIN_CALLBACK:
//   Zyra::CStatus ZyraLoadPlugin(Zyra::PluginRegistrar&)           registers commands and
//   properties Zyra::CStatus ZyraUnloadPlugin(const Zyra::PluginRegistrar&)   optional
//   Zyra::CStatus <Command>_Init(Zyra::CRef& context)              <Command>: display name without
//   blanks Zyra::CStatus <Command>_Execute(Zyra::CRef& context) Zyra::CStatus
//   <Property>_Define(Zyra::CRef& context)           required for a property type Zyra::CStatus
//   <Property>_DefineLayout(Zyra::CRef& context)     optional Zyra::CStatus
//   <Property>_PPGEvent(Zyra::CRef& context)         optional
// The host finds them by name; a module that lacks one it needs is refused whole.
#pragma once

#include "zyra/object.h"

// Exports a callback with C linkage so that the host finds it by its plain name.
#define ZYRA_PLUGIN_CALLBACK extern "C" ZYRA_API

namespace Zyra {

class Argument;
class ArgumentArray;
class PPGItem;

// Command capability flags (Command::PutFlag).
enum siCommandCapabilities : int {
  siNoLogging = 0x800000,  // the host does not log the command when it runs
};

// What a plug-in registered: a command or a property type.
class ZYRA_API PluginItem : public ZrObject {
 public:
  PluginItem() = default;
  PluginItem(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PluginItem)
  // The command's display name or the property type's name.
  CString GetName() const;
  // The command's script name; empty for a property type.
  CString GetScriptName() const;
  bool IsCommand() const;
};

// Handed to ZyraLoadPlugin: the plug-in says who it is and what it offers.
class ZYRA_API PluginRegistrar : public ZrObject {
 public:
  PluginRegistrar() = default;
  PluginRegistrar(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PluginRegistrar)

  CStatus PutAuthor(const CString& author);
  CString GetAuthor() const;
  CStatus PutName(const CString& name);
  CString GetName() const;
  CStatus PutVersion(long major, long minor);
  long GetMajor() const;
  long GetMinor() const;
  // The module's file, as the host loaded it.
  CString GetOriginPath() const;
  // Registers a command. Scripts run it by `scriptName` (or by the display name); its callbacks
  // are "<displayName without blanks>_Init" and "_Execute". An empty script name takes the
  // display name without blanks. Invalid when either name is unusable.
  PluginItem RegisterCommand(const CString& displayName, const CString& scriptName = CString());
  // Registers a property type: SceneItem::AddProperty(name) makes one.
  PluginItem RegisterProperty(const CString& name);
  // What was registered, in order.
  CRefArray GetItems() const;
};

// The context a callback receives: its source object and named attributes.
class ZYRA_API Context : public ZrObject {
 public:
  Context() = default;
  Context(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Context)

  // The Command (for _Init and _Execute), the CustomProperty (for _Define), the PPGLayout (for
  // _DefineLayout); for page events see PPGEventContext.
  CRef GetSource() const;
  // The attribute's value; empty when it was never put.
  CValue GetAttribute(const CString& name) const;
  CStatus PutAttribute(const CString& name, const CValue& value);

 protected:
  Context(const CRef& ref, bool (*accept)(siClassID)) : ZrObject(ref, accept) {}
};

// One argument of a command: its name, its default and, while the command runs, its value.
class ZYRA_API Argument : public ZrObject {
 public:
  Argument() = default;
  Argument(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Argument)
  CString GetName() const;
  CValue GetValue() const;
  CStatus PutValue(const CValue& value);
  CValue GetDefault() const;
};

// The argument list of a command, in the order the arguments are filled.
class ZYRA_API ArgumentArray {
 public:
  ArgumentArray() = default;
  explicit ArgumentArray(const CRef& command) : command_(command) {}
  // Adds an argument; fails with InvalidArgument for an empty or taken name.
  CStatus Add(const CString& name, const CValue& defaultValue = CValue());
  long GetCount() const;
  // Invalid when out of range.
  Argument GetItem(long i) const;
  Argument GetItem(const CString& name) const;
  Argument operator[](long i) const { return GetItem(i); }

 private:
  CRef command_;
};

class ZYRA_API Command : public ZrObject {
 public:
  Command() = default;
  Command(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Command)

  // The display name.
  CString GetName() const;
  CString GetScriptName() const;
  ArgumentArray GetArguments() const;
  CStatus PutFlag(int flag, bool on);
  bool GetFlag(int flag) const;
  CStatus EnableReturnValue(bool on);
  bool IsReturnValueEnabled() const;
};

// ---- Property pages ---------------------------------------------------------------------------

// Control types of page items. An item added without a type shows the parameter's own control;
// its type reads back empty.
inline constexpr const wchar_t* siControlCombo = L"Combo";
inline constexpr const wchar_t* siControlRadio = L"Radio";
inline constexpr const wchar_t* siControlListBox = L"ListBox";
inline constexpr const wchar_t* siControlFilePath = L"FilePath";
inline constexpr const wchar_t* siControlFolder = L"Folder";
inline constexpr const wchar_t* siControlStatic = L"Static";
inline constexpr const wchar_t* siControlButton = L"Button";

// Attribute names of layouts and items.
inline constexpr const wchar_t* siUIHelpFile = L"HelpFile";  // layout: the page's help link
inline constexpr const wchar_t* siUIFileFilter = L"Filter";  // file item: "Label|*.ext|"
inline constexpr const wchar_t* siUIInitialDir = L"InitialDir";
inline constexpr const wchar_t* siUINoLabel = L"NoLabel";

// One entry of a page layout: a group or row boundary, a parameter's control or a button.
class ZYRA_API PPGItem : public ZrObject {
 public:
  PPGItem() = default;
  PPGItem(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PPGItem)

  // "Group", "EndGroup", "Row", "EndRow", "Button", or a parameter item's control type ("" for
  // the parameter's own control, "Combo", "FilePath", ...).
  CString GetType() const;
  // The parameter's name for items, the button's name for buttons; empty otherwise.
  CString GetName() const;
  // The label shown (groups: the group's title). Empty: the parameter's name.
  CString GetLabel() const;
  CStatus PutLabel(const CString& label);
  CValue GetAttribute(const CString& name) const;
  CStatus PutAttribute(const CString& name, const CValue& value);
  // A combo's or radio's choices: label, value, label, value, ...
  CValueArray GetUIItems() const;
  CStatus PutUIItems(const CValueArray& items);
};

// The layout of a property's page: an ordered list of items that tests can read back.
class ZYRA_API PPGLayout : public ZrObject {
 public:
  PPGLayout() = default;
  PPGLayout(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PPGLayout)

  // The page layout of a property (made empty the first time; for a plug-in property type its
  // DefineLayout callback builds it). Invalid when `property` is not a property.
  static PPGLayout Of(const CRef& property);

  // Removes every item; handles to them become invalid. Attributes stay.
  CStatus Clear();
  PPGItem AddGroup(const CString& label = CString(), bool border = true);
  PPGItem EndGroup();
  PPGItem AddRow();
  PPGItem EndRow();
  PPGItem AddItem(const CString& parameter, const CString& label = CString(),
                  const CString& controlType = CString());
  // `items`: label, value, label, value, ... (an odd count fails and adds nothing).
  PPGItem AddEnumControl(const CString& parameter, const CValueArray& items,
                         const CString& label = CString(),
                         const CString& controlType = siControlCombo);
  PPGItem AddButton(const CString& name, const CString& label = CString());
  CValue GetAttribute(const CString& name) const;
  CStatus PutAttribute(const CString& name, const CValue& value);
  long GetCount() const;
  // Invalid when out of range.
  PPGItem GetItem(long i) const;
  // The first item for `name` (a parameter or button); invalid when none.
  PPGItem GetItem(const CString& name) const;
};

// Page events, told to <Property>_PPGEvent.
enum siPPGEventID : int {
  siOnInit = 0,           // the page opens
  siOnClosed = 1,         // the page closes
  siButtonClicked = 2,    // attribute "Button": the button's name
  siParameterChange = 3,  // the source is the changed Parameter
};

// The context of a page event. Attributes the handler may put: "Refresh" (true: the page is
// redrawn from its layout) and "Close" (true: the page closes after this event).
class ZYRA_API PPGEventContext : public Context {
 public:
  PPGEventContext() = default;
  PPGEventContext(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PPGEventContext)

  siPPGEventID GetEventID() const;
  // The property for OnInit, OnClosed and button clicks; the Parameter for parameter changes.
  CRef GetSource() const;
};

}  // namespace Zyra
