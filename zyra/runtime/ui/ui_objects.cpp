// Scripting objects: the "Zyra.UIToolkit" object and its file browser, answered headlessly
// from the queued file answers.
#include "ui/ui_objects.h"

#include <string>

#include "host/host.h"
#include "zyra/ui.h"

namespace Zyra {

namespace rt {
namespace {

// An object whose properties and methods are reached by name.
class AutomationTarget : public Object {
 public:
  using Object::Object;
  virtual bool GetProperty(std::wstring_view name, CValue& out) const = 0;
  virtual CStatus PutProperty(std::wstring_view name, const CValue& value) = 0;
  virtual CStatus Call(std::wstring_view method, const CValueArray& args, CValue& result) = 0;
};

CStatus NoMember(const Object& object, std::wstring_view what, std::wstring_view name) {
  return CStatus(CStatus::MemberNotFound, object.name + L" has no " + std::wstring(what) + L" \"" +
                                              std::wstring(name) + L"\".");
}

class FileBrowserObject : public AutomationTarget {
 public:
  FileBrowserObject() : AutomationTarget(siFileBrowserID, L"FileBrowser") {}
  std::wstring filter, title, initialDirectory, fileName, filePathName;

  bool GetProperty(std::wstring_view name, CValue& out) const override {
    if (name == L"Filter")
      out = CValue(CString(filter));
    else if (name == L"DialogTitle")
      out = CValue(CString(title));
    else if (name == L"InitialDirectory")
      out = CValue(CString(initialDirectory));
    else if (name == L"FileName")
      out = CValue(CString(fileName));
    else if (name == L"FilePathName")
      out = CValue(CString(filePathName));
    else
      return false;
    return true;
  }
  CStatus PutProperty(std::wstring_view name, const CValue& value) override {
    std::wstring text = value.GetAsText().Wide();
    if (name == L"Filter")
      filter = text;
    else if (name == L"DialogTitle")
      title = text;
    else if (name == L"InitialDirectory")
      initialDirectory = text;
    else if (name == L"FileName")
      fileName = text;
    else if (name == L"FilePathName")
      filePathName = text;
    else
      return NoMember(*this, L"property", name);
    return CStatus::OK;
  }
  CStatus Call(std::wstring_view method, const CValueArray&, CValue& result) override {
    if (method != L"ShowOpen" && method != L"ShowSave") return NoMember(*this, L"method", method);
    Show(method == L"ShowOpen");
    result = CValue();
    return CStatus::OK;
  }

 private:
  // Takes the first queued answer for this dialog's title (or for any title); none: cancelled.
  void Show(bool open) {
    auto& answers = Host::Get().ui().fileAnswers;
    fileName.clear();
    filePathName.clear();
    for (auto it = answers.begin(); it != answers.end(); ++it) {
      if (it->first.empty() || it->first == title) {
        filePathName = it->second;
        answers.erase(it);
        break;
      }
    }
    size_t slash = filePathName.find_last_of(L"/\\");
    fileName = slash == std::wstring::npos ? filePathName : filePathName.substr(slash + 1);
    std::wstring line = std::wstring(L"[File] ") + (open ? L"Open" : L"Save") + L" \"" + title +
                        L"\" (" + filter + L")" +
                        (initialDirectory.empty() ? L"" : L" in " + initialDirectory) + L"\n  -> " +
                        (filePathName.empty() ? L"cancelled" : filePathName);
    Host::Get().Log(kSevInfo, line);
  }
};

class ToolkitObject : public AutomationTarget {
 public:
  ToolkitObject() : AutomationTarget(siUIToolkitID, L"Zyra.UIToolkit") {
    browser_ = std::make_shared<FileBrowserObject>();
  }
  bool GetProperty(std::wstring_view name, CValue& out) const override {
    if (name != L"FileBrowser") return false;
    out = CValue(CRef(browser_));
    return true;
  }
  CStatus PutProperty(std::wstring_view name, const CValue&) override {
    return name == L"FileBrowser"
               ? CStatus(CStatus::AccessDenied, L"Zyra.UIToolkit: \"FileBrowser\" is read-only.")
               : NoMember(*this, L"property", name);
  }
  CStatus Call(std::wstring_view method, const CValueArray&, CValue&) override {
    return NoMember(*this, L"method", method);
  }

 private:
  std::shared_ptr<FileBrowserObject> browser_;
};

AutomationTarget* TargetOf(const CRef& ref) {
  auto object = ref.Get();
  if (!object || (object->classId != siUIToolkitID && object->classId != siFileBrowserID)) {
    return nullptr;
  }
  return static_cast<AutomationTarget*>(object.get());
}

bool IsAutomationClass(siClassID id) { return id == siUIToolkitID || id == siFileBrowserID; }

}  // namespace

CValue CreateAutomationObject(const CString& progId) {
  if (progId != L"Zyra.UIToolkit") return CValue();
  static const std::shared_ptr<ToolkitObject> toolkit = std::make_shared<ToolkitObject>();
  return CValue(CRef(toolkit));
}

}  // namespace rt

AutomationObject::AutomationObject(const CRef& ref) : ZrObject(ref, rt::IsAutomationClass) {}

AutomationObject::AutomationObject(const CValue& value)
    : ZrObject(value.GetType() == siRef ? value.AsRef() : CRef(), rt::IsAutomationClass) {}

CStatus AutomationObject::CreateInstance(const CString& progId) {
  CValue made = rt::CreateAutomationObject(progId);
  if (made.IsEmpty()) {
    ref_ = CRef();
    return CStatus(CStatus::MemberNotFound,
                   L"No scripting object is named \"" + progId.Wide() + L"\".");
  }
  ref_ = made.AsRef();
  return CStatus::OK;
}

CValue AutomationObject::GetProperty(const CString& name) const {
  CValue out;
  if (auto* target = rt::TargetOf(ref_)) target->GetProperty(name.Wide(), out);
  return out;
}

CStatus AutomationObject::PutProperty(const CString& name, const CValue& value) {
  auto* target = rt::TargetOf(ref_);
  if (!target) return CStatus(CStatus::InvalidArgument, L"The scripting object is not valid.");
  return target->PutProperty(name.Wide(), value);
}

CStatus AutomationObject::Call(const CString& method, CValue& result, const CValueArray& args) {
  result = CValue();
  auto* target = rt::TargetOf(ref_);
  if (!target) return CStatus(CStatus::InvalidArgument, L"The scripting object is not valid.");
  return target->Call(method.Wide(), args, result);
}

}  // namespace Zyra
