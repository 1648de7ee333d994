// A plug-in that needs a function nothing provides: loading it must fail.
#include "zyra/plugin.h"

extern "C" int ZyraTestFunctionThatDoesNotExist(int);

ZYRA_PLUGIN_CALLBACK Zyra::CStatus ZyraLoadPlugin(Zyra::PluginRegistrar& registrar) {
  registrar.RegisterCommand(L"Never", L"TstNever");
  return ZyraTestFunctionThatDoesNotExist(1) ? Zyra::CStatus::OK : Zyra::CStatus::Fail;
}

ZYRA_PLUGIN_CALLBACK Zyra::CStatus Never_Init(Zyra::CRef&) { return Zyra::CStatus::OK; }
ZYRA_PLUGIN_CALLBACK Zyra::CStatus Never_Execute(Zyra::CRef&) { return Zyra::CStatus::OK; }
