// The actor's option properties: generation options and joint limits.
#pragma once

#include "zyra/object.h"

// KinraGen: the options of Generate, kept on the source actor's root.
void DefineKinraGen(Zyra::CustomProperty& property);
// KinraJL: per-axis rotation limits in degrees with an enable flag per axis. The defaults allow
// every rotation (limits off, -180 to 180).
void DefineKinraJL(Zyra::CustomProperty& property);
