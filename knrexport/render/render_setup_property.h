// RenderSetup: what the render-setup command collects before it generates the setup.
#pragma once

#include "zyra/object.h"

// The setup file, the name of the group of target models, the frame range, the map flag and
// the runtime class name.
void DefineRenderSetup(Zyra::CustomProperty& property);
