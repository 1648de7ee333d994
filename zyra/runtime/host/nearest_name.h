// Suggesting a name for a misspelt one: unknown commands in scripts, unknown parameters in page
// answers ("did you mean ...?").
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Zyra::rt {

// The candidate closest to `name` when it is a likely slip of the keyboard (a few letters
// wrong, missing or swapped, case ignored); empty when none is that close.
std::wstring NearestName(std::wstring_view name, const std::vector<std::wstring>& candidates);

}  // namespace Zyra::rt
