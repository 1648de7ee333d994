// A module with callbacks but without the ZyraLoadPlugin entry point.
#include "zyra/plugin.h"

ZYRA_PLUGIN_CALLBACK Zyra::CStatus Orphan_Init(Zyra::CRef&) { return Zyra::CStatus::OK; }
ZYRA_PLUGIN_CALLBACK Zyra::CStatus Orphan_Execute(Zyra::CRef&) { return Zyra::CStatus::OK; }
