// The plug-in's calls into the host's user interface and commands.
#include "knrexport/scene/host_calls.h"

#include "zyra/application.h"
#include "zyra/ui.h"

using namespace Zyra;

namespace {

int Ask(const CString& text, int style) {
  int answer = 0;
  Application().GetUIToolkit().MsgBox(text, style, kMessageCaption, answer);
  return answer;
}

}  // namespace

CValue RunCommand(const wchar_t* command, const CValueArray& args) {
  CValue result;
  if (!Application().ExecuteCommand(command, args, result).Succeeded()) return CValue();
  return result;
}

void ShowMessage(const CString& text) { Ask(text, siMsgOkOnly); }
bool AskOkCancel(const CString& text) { return Ask(text, siMsgOkCancel) != siMsgCancel; }
bool AskYesNo(const CString& text) { return Ask(text, siMsgYesNo) == siMsgYes; }

ProgressBar ShowProgressBar(long maximum, const CString& caption) {
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutCancelEnabled(false);
  bar.PutVisible(true);
  bar.PutMaximum(maximum);
  bar.PutCaption(caption);
  bar.PutStep(1);
  return bar;
}

void FinishProgressBar(ProgressBar& bar) {
  bar.PutValue(bar.GetMaximum());
  bar.PutVisible(false);
}

CString FileBrowser(const CString& filter, const CString& title, const CString& initialDir, bool open) {
  AutomationObject toolkit;
  if (!toolkit.CreateInstance(L"Zyra.UIToolkit").Succeeded()) return CString();
  AutomationObject browser(toolkit.GetProperty(L"FileBrowser"));
  browser.PutProperty(L"Filter", filter);
  browser.PutProperty(L"DialogTitle", title);
  browser.PutProperty(L"InitialDirectory", initialDir);
  CValue ignored;
  browser.Call(open ? L"ShowOpen" : L"ShowSave", ignored);
  return browser.GetProperty(L"FilePathName").GetAsText();
}

void DeleteObj(const CString& name) { RunCommand(L"DeleteObj", {name}); }

void ClearAnim(Model& model) {
  RunCommand(L"RemoveAllAnimation", {CValue(model.GetRef()), CValue(), 1, 9});
  if (!model.HasMixer()) return;
  CValueArray tracks = RunCommand(L"EnumElements", {model.GetFullName() + L".Mixer.AnimTracks"}).AsArray();
  for (const CValue& track : tracks) RunCommand(L"DeleteObj", {track});
}

bool InspectObj(const CString& objects, const CString& keywords, const CString& title, const CValue& mode,
                bool throwOnCancel) {
  CValue cancelled = RunCommand(L"InspectObj", {objects, keywords, title, mode, throwOnCancel});
  return !cancelled.AsBool();
}

void SetWireframeDisplayColor(X3DObject& obj, int color) {
  Property display = obj.AddProperty(L"DispProp", false, L"Display Property");
  display.PutParameterValue(L"wirecol", color);
}

bool SetLogCommand(bool on) {
  bool previous = RunCommand(L"GetValue", {L"preferences.scripting.cmdlog"}).AsBool();
  RunCommand(L"SetValue", {L"preferences.scripting.cmdlog", on});
  return previous;
}
