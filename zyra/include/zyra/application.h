// The application: selection, host commands run by name, the log, the scene root, the UI
// toolkit, and the key state.
#pragma once

#include "zyra/core.h"
#include "zyra/x3dobject.h"

namespace Zyra {

class UIToolkit;

// Log severities for Application::LogMessage.
enum siSeverity : int {
  siErrorMsg = 2,
  siWarningMsg = 4,
  siFatalMsg = 1,
  siInfoMsg = 16,
  siVerboseMsg = 32,
  siCommentMsg = 8,  // what a command without a window would have shown in a message box
};

// The current selection, in selection order.
class ZYRA_API Selection {
 public:
  long GetCount() const;
  CRef GetItem(long i) const;
  CRef operator[](long i) const { return GetItem(i); }
  CRefArray GetArray() const;
  CStatus Add(const CRef& item);
  CStatus Clear();
};

// Installation folders for GetInstallationPath.
enum siInstallationPath : int { siFactoryPath = 0, siUserPath = 1, siWorkgroupPath = 2 };

class ZYRA_API Application {
 public:
  Selection GetSelection() const { return Selection(); }
  // Runs a host command by name (script name, or a plug-in command's display name). Fails with
  // a message naming the command when it does not exist or cannot use its arguments.
  CStatus ExecuteCommand(const CString& name, const CValueArray& args, CValue& result) const;
  CStatus LogMessage(const CString& text, siSeverity severity = siInfoMsg) const;
  Model GetActiveSceneRoot() const;
  UIToolkit GetUIToolkit() const;
  // A scripting object by program id ("Zyra.UIToolkit"); empty when unknown.
  CValue CreateObject(const CString& progId) const;
  CString GetInstallationPath(siInstallationPath kind) const;
  // The object a full name or path names; invalid when none.
  CRef GetObjectFromPath(const CString& path) const;
};

// Key codes for GetKeyState.
enum : int { kVirtualKeyShift = 16 };

// The key's state: the high bit (0x8000) is set while the key is down. The headless host has
// Shift down while a script says "Shift on" or the command line got --shift.
ZYRA_API short GetKeyState(int key);

}  // namespace Zyra
