// The SDK's PPGLayout and PPGItem handles over page layouts (model/page_layout.h).
#include "model/page_layout.h"

#include "host/host.h"
#include "plugins/plugin_objects.h"
#include "zyra/plugin.h"

namespace Zyra {

namespace rt {

namespace {

PPGLayoutObject* LayoutObject(const CRef& ref) {
  auto object = ref.Get();
  return object && object->classId == siPPGLayoutID ? static_cast<PPGLayoutObject*>(object.get())
                                                    : nullptr;
}

PPGItemObject* ItemObject(const CRef& ref) {
  auto object = ref.Get();
  return object && object->classId == siPPGItemID ? static_cast<PPGItemObject*>(object.get())
                                                  : nullptr;
}

const CStatus kInvalidItem(CStatus::InvalidArgument, L"The page item is not valid.");

}  // namespace
}  // namespace rt

// ---- PPGItem -----------------------------------------------------------------------------------

PPGItem::PPGItem(const CRef& ref) : ZrObject(ref, [](siClassID id) { return id == siPPGItemID; }) {}

CString PPGItem::GetType() const {
  auto* item = rt::ItemObject(ref_);
  return item ? CString(item->type) : CString();
}
CString PPGItem::GetName() const {
  auto* item = rt::ItemObject(ref_);
  return item ? CString(item->name) : CString();
}
CString PPGItem::GetLabel() const {
  auto* item = rt::ItemObject(ref_);
  return item ? CString(item->label) : CString();
}
CStatus PPGItem::PutLabel(const CString& label) {
  auto* item = rt::ItemObject(ref_);
  if (!item) return rt::kInvalidItem;
  item->label = label.Wide();
  return CStatus::OK;
}
CValue PPGItem::GetAttribute(const CString& name) const {
  auto* item = rt::ItemObject(ref_);
  return item ? item->attributes.Get(name.Wide()) : CValue();
}
CStatus PPGItem::PutAttribute(const CString& name, const CValue& value) {
  auto* item = rt::ItemObject(ref_);
  if (!item) return rt::kInvalidItem;
  item->attributes.Put(name.Wide(), value);
  return CStatus::OK;
}
CValueArray PPGItem::GetUIItems() const {
  auto* item = rt::ItemObject(ref_);
  return item ? item->uiItems : CValueArray();
}
CStatus PPGItem::PutUIItems(const CValueArray& items) {
  auto* item = rt::ItemObject(ref_);
  if (!item) return rt::kInvalidItem;
  if (items.GetCount() % 2 != 0) {
    return CStatus(CStatus::InvalidArgument,
                   L"The choices of \"" + item->name + L"\" must come in label, value pairs.");
  }
  item->uiItems = items;
  return CStatus::OK;
}

// ---- PPGLayout ---------------------------------------------------------------------------------

PPGLayout::PPGLayout(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siPPGLayoutID; }) {}

PPGLayout PPGLayout::Of(const CRef& property) {
  auto object = property.Get();
  if (!object || !property.IsA(siPropertyID)) return PPGLayout();
  return PPGLayout(CRef(rt::LayoutOf(std::static_pointer_cast<rt::Property>(object))));
}

CStatus PPGLayout::Clear() {
  auto* layout = rt::LayoutObject(ref_);
  if (!layout) return CStatus(CStatus::InvalidArgument, L"The layout is not valid.");
  layout->Clear();
  return CStatus::OK;
}

namespace {
PPGItem AddTo(const CRef& ref, std::wstring kind, std::wstring name, std::wstring label,
              bool isParameter = false) {
  auto* layout = rt::LayoutObject(ref);
  if (!layout) return PPGItem();
  auto item = layout->Add(std::move(kind), std::move(name), std::move(label));
  item->isParameter = isParameter;
  return PPGItem(CRef(item));
}
}  // namespace

PPGItem PPGLayout::AddGroup(const CString& label, bool border) {
  PPGItem item = AddTo(ref_, L"Group", L"", label.Wide());
  if (auto* object = rt::ItemObject(item.GetRef())) object->border = border;
  return item;
}
PPGItem PPGLayout::EndGroup() { return AddTo(ref_, L"EndGroup", L"", L""); }
PPGItem PPGLayout::AddRow() { return AddTo(ref_, L"Row", L"", L""); }
PPGItem PPGLayout::EndRow() { return AddTo(ref_, L"EndRow", L"", L""); }

PPGItem PPGLayout::AddItem(const CString& parameter, const CString& label,
                           const CString& controlType) {
  if (parameter.IsEmpty()) return PPGItem();
  return AddTo(ref_, controlType.Wide(), parameter.Wide(), label.Wide(), true);
}

PPGItem PPGLayout::AddEnumControl(const CString& parameter, const CValueArray& items,
                                  const CString& label, const CString& controlType) {
  if (parameter.IsEmpty() || items.GetCount() % 2 != 0) return PPGItem();
  PPGItem item =
      AddTo(ref_, controlType.IsEmpty() ? std::wstring(siControlCombo) : controlType.Wide(),
            parameter.Wide(), label.Wide(), true);
  item.PutUIItems(items);
  return item;
}

PPGItem PPGLayout::AddButton(const CString& name, const CString& label) {
  if (name.IsEmpty()) return PPGItem();
  return AddTo(ref_, siControlButton, name.Wide(), label.Wide());
}

CValue PPGLayout::GetAttribute(const CString& name) const {
  auto* layout = rt::LayoutObject(ref_);
  return layout ? layout->attributes.Get(name.Wide()) : CValue();
}
CStatus PPGLayout::PutAttribute(const CString& name, const CValue& value) {
  auto* layout = rt::LayoutObject(ref_);
  if (!layout) return CStatus(CStatus::InvalidArgument, L"The layout is not valid.");
  layout->attributes.Put(name.Wide(), value);
  return CStatus::OK;
}
long PPGLayout::GetCount() const {
  auto* layout = rt::LayoutObject(ref_);
  return layout ? static_cast<long>(layout->items.size()) : 0;
}
PPGItem PPGLayout::GetItem(long i) const {
  auto* layout = rt::LayoutObject(ref_);
  if (!layout || i < 0 || i >= static_cast<long>(layout->items.size())) return PPGItem();
  return PPGItem(CRef(layout->items[static_cast<size_t>(i)]));
}
PPGItem PPGLayout::GetItem(const CString& name) const {
  auto* layout = rt::LayoutObject(ref_);
  if (!layout) return PPGItem();
  auto item = layout->Find(name.Wide());
  return item ? PPGItem(CRef(item)) : PPGItem();
}

}  // namespace Zyra
