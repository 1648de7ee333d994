// The KinraGen options page: its layout and how it greys options that cannot apply.
#pragma once

#include "zyra/object.h"
#include "zyra/plugin.h"

// Two bordered groups: "Generate Options" (Envelope, Optimize, Remove Polygons, Skills) and
// "Box Options" (Box, Cog, Factor).
void BuildKinraGenLayout(Zyra::PPGLayout& layout);
// On opening: without an enveloped object Envelope and Box are cleared and Envelope greyed;
// without action sources Skill is cleared and greyed, with them it is editable (its value kept);
// Cog and Factor are greyed while Box is off.
// A change of Box greys or frees Cog and Factor. Other events do nothing.
void KinraGenPPGEvent(Zyra::PPGEventContext& event);
