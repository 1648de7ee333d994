// Adding typed parameters to the plug-in's custom properties.
#pragma once

#include "zyra/object.h"

// Capability flags as the plug-in's property tables give them.
inline constexpr int kCapPersistable = 4;
inline constexpr int kCapReadOnlyPersistable = 6;
inline constexpr int kCapAnimatablePersistable = 5;
inline constexpr float kFltMax = 3.4028235e38f;

// Adds a parameter with empty label and description; empty bounds mean none.
Zyra::Parameter AddParam(Zyra::CustomProperty& property, const wchar_t* name, Zyra::siValueType type,
                         int capabilities, const Zyra::CValue& def, const Zyra::CValue& min = {},
                         const Zyra::CValue& max = {}, const Zyra::CValue& suggestedMin = {},
                         const Zyra::CValue& suggestedMax = {}, const wchar_t* label = L"");
