// The user-interface toolkit: message boxes, the progress bar and scripting ("automation")
// objects such as the file browser. The host has no window: every call is answered from the
// answers a script or test queued, or from defaults, and is printed so that a batch run shows
// what was asked and answered.
#pragma once

#include <memory>

#include "zyra/object.h"

namespace Zyra {

// Message-box styles: the buttons in the low bits, an icon in 0x10..0x40 (ignored here).
enum siMsgBoxFlags : int {
  siMsgOkOnly = 0,
  siMsgOkCancel = 1,
  siMsgYesNoCancel = 3,
  siMsgYesNo = 4,
  siMsgCritical = 0x10,
  siMsgQuestion = 0x20,
  siMsgExclamation = 0x40,
  siMsgInformation = 0x30,
};

// Message-box answers.
enum siMsgButton : int {
  siMsgOk = 1,
  siMsgCancel = 2,
  siMsgYes = 6,
  siMsgNo = 7,
};

// A progress bar. GetProgressBar() makes a new one; it lives while a handle refers to it. A
// default-constructed handle is invalid and all its calls do nothing (operations accept such an
// "empty" bar when the caller wants no progress shown). Making the bar visible starts a new run
// in the host's progress record; captions, the maximum and the value are recorded while visible.
class ZYRA_API ProgressBar : public ZrObject {
 public:
  ProgressBar() = default;
  ProgressBar(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ProgressBar)

  CStatus PutMaximum(long value);
  long GetMaximum() const;
  CStatus PutMinimum(long value);
  long GetMinimum() const;
  // The value is clamped to minimum..maximum.
  CStatus PutValue(long value);
  long GetValue() const;
  CStatus PutStep(long value);
  long GetStep() const;
  // Adds `step` (the bar's step when omitted) to the value; returns the new value.
  long Increment(long step = kUseStep);
  CStatus PutCaption(const CString& caption);
  CString GetCaption() const;
  CStatus PutStatusText(const CString& text);
  CString GetStatusText() const;
  CStatus PutCancelEnabled(bool enabled);
  bool GetCancelEnabled() const;
  CStatus PutVisible(bool visible);
  bool GetVisible() const;
  // Nobody can press Cancel without a window: always false.
  bool IsCancelPressed() const;

  static constexpr long kUseStep = -2147483647 - 1;

 private:
  std::shared_ptr<rt::Object> keep_;  // a bar lives as long as a handle refers to it
};

class ZYRA_API UIToolkit {
 public:
  // Shows a message box. `style` is one of siMsgBoxFlags (icon bits ignored); `result` gets
  // the answer (siMsgButton). Headless: the text is printed to standard error with its caption
  // and the answer; the answer is the next queued one, else the default (OK, or Yes, unless
  // the command line gave --yes / --no). A queued answer that the box does not offer is mapped
  // to the nearest one it does: Yes counts as OK and No as Cancel on an OK/Cancel box, OK as
  // Yes and Cancel as No on a Yes/No box, OK as Yes on a Yes/No/Cancel box, and an OK-only box
  // always answers OK. Styles other than those four fail with InvalidArgument.
  CStatus MsgBox(const CString& text, int style, const CString& caption, int& result) const;
  // A new, hidden progress bar (minimum 0, maximum 100, value 0, step 1, cancel enabled).
  ProgressBar GetProgressBar() const;
};

// A scripting object reached by names: the toolkit ("Zyra.UIToolkit") and what it hands out
// (its "FileBrowser" property). Properties and methods are looked up by name at run time.
//
// The file browser has the properties "Filter", "DialogTitle", "InitialDirectory", "FileName"
// (name only) and "FilePathName" (full path), and the methods "ShowOpen" and "ShowSave". Headless,
// a dialog is answered by the first queued file answer whose title equals DialogTitle (or is
// empty); without one the dialog counts as cancelled and both file properties are empty.
class ZYRA_API AutomationObject : public ZrObject {
 public:
  AutomationObject() = default;
  AutomationObject(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(AutomationObject)
  AutomationObject(const CValue& value);  // NOLINT: what CreateObject and GetProperty return

  // Makes this handle refer to the object of `progId`; fails with MemberNotFound when the host
  // knows no such object.
  CStatus CreateInstance(const CString& progId);
  // The property's value; empty when the object has no such property.
  CValue GetProperty(const CString& name) const;
  // Fails with MemberNotFound for an unknown or read-only property.
  CStatus PutProperty(const CString& name, const CValue& value);
  // Runs a method; fails with MemberNotFound for an unknown one.
  CStatus Call(const CString& method, CValue& result, const CValueArray& args = CValueArray());
};

}  // namespace Zyra
