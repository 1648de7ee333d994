// Loading plug-ins: a module is opened, registers its commands and property types through its
// entry point, and is closed again on unload. What the loaded plug-ins' objects are at run time is
// in plugin_objects.h.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "model/model.h"
#include "zyra/core.h"

namespace Zyra::rt {

// Loads a plug-in module; loading the same module again does nothing. Fails with a message that
// names the module and what is missing (entry point, callback, unresolved symbol).
CStatus LoadPlugin(const std::string& path);
// Loads every module (*.so) of a folder, in name order; the first failure is returned after
// the others were tried.
CStatus LoadPluginsIn(const std::string& directory);
// Calls each module's ZyraUnloadPlugin, removes its commands and property types and closes it.
// Properties of its types stay in the scene as plain custom properties without page events.
void UnloadPlugins();
// The registrars of the loaded plug-ins, in load order (PluginRegistrar handles).
CRefArray LoadedPlugins();
// Where plug-ins are installed: the "plugins" folder beside the executable's "bin" folder.
std::string DefaultPluginDirectory();
bool IsPluginPropertyType(std::wstring_view type);
// A property of a plug-in's type on `owner`: made, its Define and DefineLayout callbacks run.
std::shared_ptr<Property> CreatePluginProperty(const std::shared_ptr<Object>& owner,
                                               std::wstring type, std::wstring name);

}  // namespace Zyra::rt
