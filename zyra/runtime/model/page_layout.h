// Property pages as objects: a property's layout and the items in it, which the host, the
// headless page runner and tests read back.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/attributes.h"
#include "model/model.h"

namespace Zyra::rt {

class PPGItemObject : public Object {
 public:
  PPGItemObject(std::wstring kind, std::wstring name, std::wstring label)
      : Object(siPPGItemID, std::move(name), std::move(kind)), label(std::move(label)) {}
  // `type` (of Object) holds the item kind: "Group", "EndGroup", "Row", "EndRow", "Button" or a
  // parameter item's control type; `name` the parameter or button name.
  std::wstring label;
  bool border = true;  // groups
  bool isParameter = false;
  CValueArray uiItems;  // combo and radio choices: label, value, ...
  Attributes attributes;
};

class PPGLayoutObject : public Object {
 public:
  PPGLayoutObject() : Object(siPPGLayoutID, L"PPGLayout") {}
  std::vector<std::shared_ptr<PPGItemObject>> items;
  Attributes attributes;

  std::shared_ptr<PPGItemObject> Add(std::wstring kind, std::wstring name, std::wstring label);
  // Marks every item dead and removes it.
  void Clear();
  // The first parameter item or button named `name`; null when none.
  std::shared_ptr<PPGItemObject> Find(std::wstring_view name) const;
  void ForEachOwned(
      const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  // One line: groups as Title{...}, rows as (...), items by label, combos with their choice
  // count, buttons in brackets.
  std::wstring Describe() const;
};

}  // namespace Zyra::rt
