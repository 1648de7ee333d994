// Property page layouts: items added in order, looked up by name, and described in one line.
#include "model/page_layout.h"

#include "zyra/plugin.h"

namespace Zyra::rt {

std::shared_ptr<PPGItemObject> PPGLayoutObject::Add(std::wstring kind, std::wstring name,
                                                    std::wstring label) {
  auto item = std::make_shared<PPGItemObject>(std::move(kind), std::move(name), std::move(label));
  item->owner = weak_from_this();
  items.push_back(item);
  return item;
}

void PPGLayoutObject::Clear() {
  for (const auto& item : items) item->alive = false;
  items.clear();
}

std::shared_ptr<PPGItemObject> PPGLayoutObject::Find(std::wstring_view wanted) const {
  for (const auto& item : items) {
    if ((item->isParameter || item->type == siControlButton) && item->name == wanted) return item;
  }
  return nullptr;
}

void PPGLayoutObject::ForEachOwned(
    const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  for (const auto& item : items) visit(item);
}

std::wstring PPGLayoutObject::Describe() const {
  std::wstring out;
  bool needSeparator = false;
  auto separate = [&] {
    if (needSeparator) out += L", ";
    needSeparator = true;
  };
  for (const auto& item : items) {
    const std::wstring& kind = item->type;
    if (kind == L"Group") {
      separate();
      out += (item->label.empty() ? L"" : item->label) + L"{";
      needSeparator = false;
    } else if (kind == L"Row") {
      separate();
      out += L"(";
      needSeparator = false;
    } else if (kind == L"EndGroup") {
      out += L"}";
      needSeparator = true;
    } else if (kind == L"EndRow") {
      out += L")";
      needSeparator = true;
    } else if (kind == siControlButton) {
      separate();
      out += L"[" + (item->label.empty() ? item->name : item->label) + L"]";
    } else {
      separate();
      out += item->label.empty() ? item->name : item->label;
      if (!kind.empty()) {
        out += L"<" + kind;
        if (item->uiItems.GetCount() > 0)
          out += L":" + std::to_wstring(item->uiItems.GetCount() / 2);
        out += L">";
      }
    }
  }
  return out;
}

}  // namespace Zyra::rt
