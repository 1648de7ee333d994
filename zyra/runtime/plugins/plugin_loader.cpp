// The plug-in loader: opens a module, lets it register, finds its callbacks by name, runs each
// command's Init and puts its commands into the host's command table and its property types
// into the type table. A module that lacks anything it needs is refused whole.
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cwctype>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "files/regular_file.h"
#include "host/args.h"
#include "host/host.h"
#include "model/page_layout.h"
#include "plugins/plugin_objects.h"
#include "zyra/plugin.h"

namespace Zyra::rt {

namespace {

using LoadFn = CStatus (*)(PluginRegistrar&);
using UnloadFn = CStatus (*)(const PluginRegistrar&);

struct LoadedModule {
  std::string realPath;
  void* handle = nullptr;
  std::shared_ptr<RegistrarObject> registrar;
  std::vector<std::shared_ptr<CommandObject>> commands;
};

struct PropertyType {
  PluginCallback define = nullptr;
  PluginCallback defineLayout = nullptr;
  PluginCallback ppgEvent = nullptr;
};

struct PluginTable {
  std::vector<std::unique_ptr<LoadedModule>> modules;
  std::map<std::wstring, PropertyType, std::less<>> types;
};

PluginTable& Table() {
  static PluginTable table;
  return table;
}

// Property presets the host makes itself; a plug-in cannot take their names.
bool IsBuiltInPreset(std::wstring_view name) {
  return name == L"Custom_parameter_list" || name == L"UserDataBlob" || name == L"DispProp";
}

std::wstring CallbackPrefix(const std::wstring& displayName) {
  std::wstring out;
  for (wchar_t c : displayName) {
    if (!std::iswspace(static_cast<wint_t>(c))) out += c;
  }
  return out;
}

PluginCallback FindCallback(void* handle, const std::wstring& name) {
  return reinterpret_cast<PluginCallback>(dlsym(handle, ToUtf8(name).c_str()));
}

CStatus Refuse(const std::string& module, const std::wstring& why) {
  return CStatus(CStatus::Fail, FromUtf8(module) + L": " + why);
}

// A registered command with its callbacks, checked but not yet in the host's table.
struct PendingCommand {
  std::shared_ptr<CommandObject> command;
  PluginCallback init = nullptr;
  PluginCallback execute = nullptr;
};

CommandFn MakeRunner(std::shared_ptr<CommandObject> command, PluginCallback execute) {
  return [command, execute](const CValueArray& args, CValue& result) -> CStatus {
    auto& arguments = command->arguments;
    if (static_cast<size_t>(args.GetCount()) > arguments.size()) {
      return ArgError(command->scriptName, L"takes " + std::to_wstring(arguments.size()) +
                                               L" argument(s), got " +
                                               std::to_wstring(args.GetCount()) + L".");
    }
    // Arguments are filled by position; missing ones keep their defaults. The previous values
    // come back afterwards, so that a command that runs itself sees its own arguments.
    std::vector<CValue> previous;
    CValueArray values;
    for (size_t i = 0; i < arguments.size(); ++i) {
      previous.push_back(arguments[i]->value);
      long at = static_cast<long>(i);
      arguments[i]->value = at < args.GetCount() ? args[at] : arguments[i]->defaultValue;
      values.Add(arguments[i]->value);
    }
    auto context = std::make_shared<ContextObject>(command);
    context->attributes.Put(L"Arguments", CValue(values));
    CStatus status = CallPlugin(execute, context, command->name + L"_Execute");
    for (size_t i = 0; i < arguments.size(); ++i) arguments[i]->value = previous[i];
    if (context->attributes.Has(L"ReturnValue")) result = context->attributes.Get(L"ReturnValue");
    return status;
  };
}

const PropertyType* FindType(std::wstring_view name) {
  auto& types = Table().types;
  auto it = types.find(name);
  return it == types.end() ? nullptr : &it->second;
}

}  // namespace

CStatus CallPlugin(PluginCallback callback, const std::shared_ptr<ContextObject>& context,
                   const std::wstring& what) {
  CRef ref(context);
  try {
    CStatus status = callback(ref);
    if (!status.Succeeded() && status.GetMessage().IsEmpty()) {
      return CStatus(status.GetCode(), what + L" failed.");
    }
    return status;
  } catch (const std::exception& e) {
    return CStatus(CStatus::Unexpected, what + L" threw: " + FromUtf8(e.what()));
  } catch (...) {
    return CStatus(CStatus::Unexpected, what + L" threw an exception.");
  }
}

CStatus LoadPlugin(const std::string& path) {
  char resolved[PATH_MAX];
  if (!realpath(path.c_str(), resolved)) {
    return Refuse(path, L"no such plug-in module.");
  }
  std::string real = resolved;
  // The module loader would wait on a FIFO or read a device without end.
  if (std::string why = WhyNotRegularFile(real); !why.empty()) {
    return Refuse(path, L"cannot be loaded: " + FromUtf8(why) + L".");
  }
  PluginTable& table = Table();
  for (const auto& module : table.modules) {
    if (module->realPath == real) return CStatus::OK;
  }

  dlerror();
  void* handle = dlopen(real.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* error = dlerror();
    return Refuse(path, L"cannot be loaded: " + FromUtf8(error ? error : "unknown error"));
  }
  auto fail = [&](const std::wstring& why) {
    dlclose(handle);
    return Refuse(path, why);
  };
  auto load = reinterpret_cast<LoadFn>(dlsym(handle, "ZyraLoadPlugin"));
  if (!load) return fail(L"not a Zyra plug-in (no ZyraLoadPlugin entry point).");

  auto registrar = std::make_shared<RegistrarObject>(FromUtf8(real));
  PluginRegistrar handleForPlugin{CRef(registrar)};
  CStatus loaded;
  try {
    loaded = load(handleForPlugin);
  } catch (...) {
    loaded = CStatus(CStatus::Unexpected, L"it threw an exception");
  }
  if (!loaded.Succeeded()) {
    return fail(L"ZyraLoadPlugin failed: " + loaded.GetMessage().Wide());
  }

  // Check everything before anything goes into the host's tables, so that a refused module
  // leaves no trace.
  std::vector<PendingCommand> commands;
  std::map<std::wstring, PropertyType, std::less<>> types;
  Host& host = Host::Get();
  for (const auto& item : registrar->items) {
    if (item->command) {
      std::wstring prefix = CallbackPrefix(item->name);
      if (host.FindCommand(item->scriptName) || host.FindCommand(item->name)) {
        return fail(L"the command \"" + item->name + L"\" (" + item->scriptName +
                    L") is already registered.");
      }
      for (const auto& other : commands) {
        if (other.command->scriptName == item->scriptName || other.command->name == item->name) {
          return fail(L"the command \"" + item->name + L"\" is registered twice.");
        }
      }
      PendingCommand pending;
      pending.command = std::make_shared<CommandObject>(item->name, item->scriptName);
      pending.init = FindCallback(handle, prefix + L"_Init");
      pending.execute = FindCallback(handle, prefix + L"_Execute");
      if (!pending.init)
        return fail(L"the command \"" + item->name + L"\" has no " + prefix + L"_Init callback.");
      if (!pending.execute) {
        return fail(L"the command \"" + item->name + L"\" has no " + prefix +
                    L"_Execute callback.");
      }
      commands.push_back(pending);
    } else {
      if (IsBuiltInPreset(item->name) || FindType(item->name) || types.count(item->name)) {
        return fail(L"the property type \"" + item->name + L"\" is already registered.");
      }
      PropertyType type;
      type.define = FindCallback(handle, item->name + L"_Define");
      type.defineLayout = FindCallback(handle, item->name + L"_DefineLayout");
      type.ppgEvent = FindCallback(handle, item->name + L"_PPGEvent");
      if (!type.define) {
        return fail(L"the property type \"" + item->name + L"\" has no " + item->name +
                    L"_Define callback.");
      }
      types[item->name] = type;
    }
  }

  for (auto& pending : commands) {
    auto context = std::make_shared<ContextObject>(pending.command);
    CStatus status =
        CallPlugin(pending.init, context, CallbackPrefix(pending.command->name) + L"_Init");
    if (!status.Succeeded()) return fail(status.GetMessage().Wide());
  }

  auto module = std::make_unique<LoadedModule>();
  module->realPath = real;
  module->handle = handle;
  module->registrar = registrar;
  for (auto& pending : commands) {
    HostCommand command;
    command.name = pending.command->scriptName;
    command.displayName = pending.command->name;
    command.run = MakeRunner(pending.command, pending.execute);
    command.plugin = true;
    command.noLogging = (pending.command->flags & siNoLogging) != 0;
    host.RegisterCommand(std::move(command));
    module->commands.push_back(pending.command);
  }
  for (auto& [name, type] : types) table.types[name] = type;
  host.Log(kSevVerbose,
           L"Loaded plug-in \"" + registrar->pluginName + L"\" from " + FromUtf8(real));
  table.modules.push_back(std::move(module));
  return CStatus::OK;
}

CStatus LoadPluginsIn(const std::string& directory) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (!fs::is_directory(directory, error)) {
    return CStatus(CStatus::MemberNotFound, FromUtf8(directory) + L": no such plug-in folder.");
  }
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (entry.path().extension() == ".so" && entry.is_regular_file(error)) {
      files.push_back(entry.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  CStatus first = CStatus::OK;
  for (const auto& file : files) {
    CStatus status = LoadPlugin(file);
    if (!status.Succeeded()) {
      Host::Get().Log(kSevError, status.GetMessage().Wide());
      if (first.Succeeded()) first = status;
    }
  }
  return first;
}

void UnloadPlugins() {
  PluginTable& table = Table();
  Host& host = Host::Get();
  host.UnregisterPluginCommands();
  table.types.clear();
  for (auto it = table.modules.rbegin(); it != table.modules.rend(); ++it) {
    LoadedModule& module = **it;
    if (auto unload = reinterpret_cast<UnloadFn>(dlsym(module.handle, "ZyraUnloadPlugin"))) {
      PluginRegistrar registrar{CRef(module.registrar)};
      try {
        CStatus status = unload(registrar);
        if (!status.Succeeded()) {
          host.Log(kSevWarning, FromUtf8(module.realPath) + L": ZyraUnloadPlugin failed: " +
                                    status.GetMessage().Wide());
        }
      } catch (...) {
        host.Log(kSevWarning,
                 FromUtf8(module.realPath) + L": ZyraUnloadPlugin threw an exception.");
      }
    }
    for (const auto& command : module.commands) Destroy(command);
    Destroy(module.registrar);
    dlclose(module.handle);
  }
  table.modules.clear();
}

CRefArray LoadedPlugins() {
  CRefArray out;
  for (const auto& module : Table().modules) out.Add(CRef(module->registrar));
  return out;
}

std::string DefaultPluginDirectory() {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::path exe = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    fs::path beside = exe.parent_path().parent_path() / "plugins";
    if (fs::is_directory(beside, error)) return beside.string();
  }
#ifdef ZYRA_PLUGIN_DIR_DEFAULT
  return ZYRA_PLUGIN_DIR_DEFAULT;
#else
  return "plugins";
#endif
}

bool IsPluginPropertyType(std::wstring_view type) { return FindType(type) != nullptr; }

std::shared_ptr<Property> CreatePluginProperty(const std::shared_ptr<Object>& owner,
                                               std::wstring type, std::wstring name) {
  const PropertyType* found = FindType(type);
  Host& host = Host::Get();
  if (!owner || !found) {
    host.Log(kSevError, L"No plug-in registered the property type \"" + type + L"\".");
    return nullptr;
  }
  PluginCallback define = found->define;
  auto property = CreateProperty(owner, siCustomPropertyID, type, std::move(name));
  auto context = std::make_shared<ContextObject>(property);
  CStatus status = CallPlugin(define, context, type + L"_Define");
  if (!status.Succeeded()) {
    host.Log(kSevError, status.GetMessage().Wide() + L" The property \"" + type +
                            L"\" was not added to " + owner->FullName() + L".");
    Destroy(property);
    return nullptr;
  }
  LayoutOf(property);
  return property;
}

std::shared_ptr<PPGLayoutObject> LayoutOf(const std::shared_ptr<Property>& property) {
  if (!property) return nullptr;
  if (!property->layout) {
    property->layout = std::make_shared<PPGLayoutObject>();
    property->layout->owner = property;
    RunDefineLayout(property);
  }
  return property->layout;
}

void RunDefineLayout(const std::shared_ptr<Property>& property) {
  const PropertyType* type = FindType(property->type);
  if (!type || !type->defineLayout || !property->layout) return;
  auto context = std::make_shared<ContextObject>(property->layout);
  CStatus status = CallPlugin(type->defineLayout, context, property->type + L"_DefineLayout");
  if (!status.Succeeded()) Host::Get().Log(kSevWarning, status.GetMessage().Wide());
}

std::shared_ptr<ContextObject> RunPageEvent(const std::shared_ptr<Property>& property, int eventId,
                                            const std::shared_ptr<Object>& source,
                                            const std::wstring& button) {
  const PropertyType* type = property ? FindType(property->type) : nullptr;
  if (!type || !type->ppgEvent) return nullptr;
  auto context = std::make_shared<ContextObject>(source, siPPGEventContextID);
  context->eventId = eventId;
  if (!button.empty()) context->attributes.Put(L"Button", CValue(CString(button)));
  CStatus status = CallPlugin(type->ppgEvent, context, property->type + L"_PPGEvent");
  if (!status.Succeeded()) Host::Get().Log(kSevWarning, status.GetMessage().Wide());
  return context;
}

}  // namespace Zyra::rt
