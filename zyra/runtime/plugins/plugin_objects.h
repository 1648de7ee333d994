// Runtime objects behind the plug-in interface: callback contexts, commands and their
// arguments, the registrar, and the loader's internal entry points for property types.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/attributes.h"
#include "model/model.h"
#include "model/page_layout.h"

namespace Zyra::rt {

// What a callback receives: a source object and attributes. Page events also carry an event id.
class ContextObject : public Object {
 public:
  explicit ContextObject(std::shared_ptr<Object> source, siClassID id = siContextID)
      : Object(id, L"Context"), source(std::move(source)) {}
  std::shared_ptr<Object> source;  // kept alive while the callback runs
  Attributes attributes;
  int eventId = -1;
};

class ArgumentObject : public Object {
 public:
  ArgumentObject(std::wstring name, CValue def)
      : Object(siArgumentID, std::move(name)), defaultValue(def), value(std::move(def)) {}
  CValue defaultValue;
  CValue value;
};

class CommandObject : public Object {
 public:
  CommandObject(std::wstring displayName, std::wstring scriptName)
      : Object(siCommandID, std::move(displayName), L"Command"),
        scriptName(std::move(scriptName)) {}
  std::wstring scriptName;
  std::vector<std::shared_ptr<ArgumentObject>> arguments;
  int flags = 0;
  bool returnValue = false;
  void ForEachOwned(
      const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
};

// A command or property type a plug-in registered.
class PluginItemObject : public Object {
 public:
  PluginItemObject(std::wstring name, std::wstring scriptName, bool command)
      : Object(siPluginItemID, std::move(name)),
        scriptName(std::move(scriptName)),
        command(command) {}
  std::wstring scriptName;
  bool command;
};

class RegistrarObject : public Object {
 public:
  explicit RegistrarObject(std::wstring originPath)
      : Object(siPluginRegistrarID, L"PluginRegistrar"), originPath(std::move(originPath)) {}
  std::wstring originPath;
  std::wstring author;
  std::wstring pluginName;
  long major = 0, minor = 0;
  std::vector<std::shared_ptr<PluginItemObject>> items;
  void ForEachOwned(
      const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
};

// ---- Property types (plugin_loader.cpp) -----------------------------------------------------

// Runs the property type's PPGEvent callback with a fresh page-event context. `source` is the
// property, or the changed parameter; `button` names the clicked button. Returns the context
// so that the caller can read "Refresh" and "Close"; null when the type has no PPGEvent
// callback. A failing callback is logged as a warning naming the type and event.
std::shared_ptr<ContextObject> RunPageEvent(const std::shared_ptr<Property>& property, int eventId,
                                            const std::shared_ptr<Object>& source,
                                            const std::wstring& button = {});
// The layout of `property`, made (and, for a plug-in type, built by its DefineLayout callback)
// the first time it is asked for.
std::shared_ptr<PPGLayoutObject> LayoutOf(const std::shared_ptr<Property>& property);
// Runs the type's DefineLayout callback on the property's layout (no-op for other types).
void RunDefineLayout(const std::shared_ptr<Property>& property);

// Calls a plug-in callback with a context; turns anything thrown into a failing status.
using PluginCallback = CStatus (*)(CRef&);
CStatus CallPlugin(PluginCallback callback, const std::shared_ptr<ContextObject>& context,
                   const std::wstring& what);

}  // namespace Zyra::rt
