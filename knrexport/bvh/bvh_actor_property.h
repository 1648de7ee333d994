// BVHActor: the options of the BVH actor and action imports, kept on the scene root.
#pragma once

#include "zyra/object.h"

void DefineBVHActor(Zyra::CustomProperty& property);
