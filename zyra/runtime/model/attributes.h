// Named attributes in insertion order, as plug-in callback contexts and property pages carry them.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zyra/core.h"

namespace Zyra::rt {

// Named attributes in insertion order (contexts, layouts, page items).
class Attributes {
 public:
  // Empty when absent.
  CValue Get(std::wstring_view name) const;
  bool Has(std::wstring_view name) const;
  void Put(std::wstring_view name, const CValue& value);

 private:
  std::vector<std::pair<std::wstring, CValue>> items_;
};

}  // namespace Zyra::rt
