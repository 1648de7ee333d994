// Scripting ("automation") objects of the headless user interface.
#pragma once

#include "zyra/core.h"

namespace Zyra::rt {

// The object a program id names ("Zyra.UIToolkit"), as a value holding its reference; empty for
// an unknown id. The toolkit is one object per host; its "FileBrowser" property is one browser
// that keeps its settings between dialogs, like a dialog that remembers its last folder.
CValue CreateAutomationObject(const CString& progId);

}  // namespace Zyra::rt
