// Named attributes: a short list searched in order (a context or a page holds a few).
#include "model/attributes.h"

#include <algorithm>

namespace Zyra::rt {

CValue Attributes::Get(std::wstring_view name) const {
  for (const auto& [key, value] : items_) {
    if (key == name) return value;
  }
  return CValue();
}

bool Attributes::Has(std::wstring_view name) const {
  return std::any_of(items_.begin(), items_.end(),
                     [&](const auto& item) { return item.first == name; });
}

void Attributes::Put(std::wstring_view name, const CValue& value) {
  for (auto& [key, stored] : items_) {
    if (key == name) {
      stored = value;
      return;
    }
  }
  items_.emplace_back(std::wstring(name), value);
}

}  // namespace Zyra::rt
