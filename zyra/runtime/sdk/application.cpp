// The application object: selection, commands by name, the log and object lookup.
#include "zyra/application.h"

#include <cstdlib>

#include "host/host.h"
#include "model/model.h"
#include "plugins/plugin_loader.h"
#include "ui/ui_objects.h"
#include "zyra/ui.h"

namespace Zyra {

// ---- Selection --------------------------------------------------------------------------------

namespace {

// The live selected objects; deleted ones drop out.
std::vector<std::shared_ptr<rt::Object>> LiveSelection() {
  auto& selection = rt::Host::Get().scene().selection;
  std::vector<std::shared_ptr<rt::Object>> live;
  std::vector<std::weak_ptr<rt::Object>> kept;
  for (const auto& weak : selection) {
    auto o = weak.lock();
    if (o && o->alive) {
      live.push_back(o);
      kept.push_back(o);
    }
  }
  selection = kept;
  return live;
}

}  // namespace

long Selection::GetCount() const { return static_cast<long>(LiveSelection().size()); }

CRef Selection::GetItem(long i) const {
  auto live = LiveSelection();
  if (i < 0 || i >= static_cast<long>(live.size())) return CRef();
  return CRef(live[static_cast<size_t>(i)]);
}

CRefArray Selection::GetArray() const {
  CRefArray out;
  for (const auto& o : LiveSelection()) out.Add(CRef(o));
  return out;
}

CStatus Selection::Add(const CRef& item) {
  auto o = item.Get();
  if (!o) return CStatus(CStatus::InvalidArgument, L"Cannot select a deleted object.");
  for (const auto& s : LiveSelection()) {
    if (s == o) return CStatus::OK;
  }
  rt::Host::Get().scene().selection.push_back(o);
  return CStatus::OK;
}

CStatus Selection::Clear() {
  rt::Host::Get().scene().selection.clear();
  return CStatus::OK;
}

// ---- Application ------------------------------------------------------------------------------

CStatus Application::ExecuteCommand(const CString& name, const CValueArray& args, CValue& result) const {
  return rt::Host::Get().Execute(name.Wide(), args, result);
}

CStatus Application::LogMessage(const CString& text, siSeverity severity) const {
  const int level = severity == siFatalMsg ? rt::kSevError : static_cast<int>(severity);
  rt::Host::Get().Log(level, text.Wide());
  // An error, or a message that a command without a window logs in place of a refusal box, fails
  // the script line as the box would have.
  if (level == rt::kSevError || level == siCommentMsg) rt::Host::Get().ui().lineFailures.push_back(text.Wide());
  return CStatus::OK;
}

Model Application::GetActiveSceneRoot() const { return Model(CRef(rt::Host::Get().scene().root)); }

UIToolkit Application::GetUIToolkit() const { return UIToolkit(); }

CValue Application::CreateObject(const CString& progId) const { return rt::CreateAutomationObject(progId); }

CString Application::GetInstallationPath(siInstallationPath kind) const {
  if (kind == siUserPath) {
    const char* home = std::getenv("HOME");
    return CString(home ? home : "/tmp");
  }
  return CString(rt::DefaultPluginDirectory());
}

CRef Application::GetObjectFromPath(const CString& path) const {
  CRef ref;
  ref.Set(path);
  return ref;
}

short GetKeyState(int key) {
  if (key == kVirtualKeyShift && rt::Host::Get().ui().shift) return static_cast<short>(0x8000);
  return 0;
}

}  // namespace Zyra
