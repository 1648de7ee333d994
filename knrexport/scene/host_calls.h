// The plug-in's calls into the host's user interface and commands: message boxes, the file
// browser, property pages, deletion, animation removal, display colour and command logging.
#pragma once

#include "zyra/core.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The caption of every message box the plug-in shows.
inline constexpr const wchar_t* kMessageCaption = L"Kinra Export";

// A refusal or warning: OK-only message box captioned "Kinra Export".
// Runs a host command by name; what it returns, or an empty value when it failed (the host has
// logged why).
Zyra::CValue RunCommand(const wchar_t* command, const Zyra::CValueArray& args);
void ShowMessage(const Zyra::CString& text);
// A question with OK and Cancel; true when the user chose OK.
bool AskOkCancel(const Zyra::CString& text);
// A question with Yes and No; true for Yes.
bool AskYesNo(const Zyra::CString& text);

// The host's progress bar, shown: cancel disabled, step 1, the given maximum and caption.
Zyra::ProgressBar ShowProgressBar(long maximum, const Zyra::CString& caption);
// Fills the bar to its maximum and hides it: the end of a long operation.
void FinishProgressBar(Zyra::ProgressBar& bar);

// The host's file dialog: the chosen path, or empty when the user cancelled.
Zyra::CString FileBrowser(const Zyra::CString& filter, const Zyra::CString& title,
                          const Zyra::CString& initialDir, bool open);
// Runs "DeleteObj" on an object name or list.
void DeleteObj(const Zyra::CString& name);
// Removes every fcurve of the model's branch and its mixer's animation tracks.
void ClearAnim(Zyra::Model& model);
// Opens a property page modally ("InspectObj"); true when the user confirmed it.
bool InspectObj(const Zyra::CString& objects, const Zyra::CString& keywords, const Zyra::CString& title,
                const Zyra::CValue& mode, bool throwOnCancel);
// Gives the object a "Display Property" with the wireframe colour `color`.
void SetWireframeDisplayColor(Zyra::X3DObject& obj, int color);
// Switches the host's command logging; returns the previous setting.
bool SetLogCommand(bool on);

// Switches command logging off for a scope and restores the previous setting on every exit.
class ScopedLogOff {
 public:
  ScopedLogOff() : previous_(SetLogCommand(false)) {}
  ~ScopedLogOff() { SetLogCommand(previous_); }
  ScopedLogOff(const ScopedLogOff&) = delete;
  ScopedLogOff& operator=(const ScopedLogOff&) = delete;

 private:
  bool previous_;
};
