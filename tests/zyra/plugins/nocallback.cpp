// Registers two commands and a property type, but one command lacks its Execute callback.
#include "zyra/plugin.h"

ZYRA_PLUGIN_CALLBACK Zyra::CStatus ZyraLoadPlugin(Zyra::PluginRegistrar& registrar) {
  registrar.PutName(L"Incomplete");
  registrar.RegisterCommand(L"Fine Command", L"TstFineCommand");
  registrar.RegisterCommand(L"Half Done", L"TstHalfDone");
  registrar.RegisterProperty(L"TstIncompleteProp");
  return Zyra::CStatus::OK;
}

ZYRA_PLUGIN_CALLBACK Zyra::CStatus FineCommand_Init(Zyra::CRef&) { return Zyra::CStatus::OK; }
ZYRA_PLUGIN_CALLBACK Zyra::CStatus FineCommand_Execute(Zyra::CRef&) { return Zyra::CStatus::OK; }
ZYRA_PLUGIN_CALLBACK Zyra::CStatus HalfDone_Init(Zyra::CRef&) { return Zyra::CStatus::OK; }
ZYRA_PLUGIN_CALLBACK Zyra::CStatus TstIncompleteProp_Define(Zyra::CRef&) {
  return Zyra::CStatus::OK;
}
