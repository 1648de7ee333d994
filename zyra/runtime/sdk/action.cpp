// The SDK's action handles: sources, their items, mixers and tracks.
#include "zyra/action.h"

#include "model/model.h"

namespace Zyra {

namespace {

bool IsSourceClass(siClassID id) { return id == siActionSourceID; }
bool IsItemClass(siClassID id) { return id == siAnimationSourceItemID; }
bool IsMixerClass(siClassID id) { return id == siMixerID; }
bool IsTrackClass(siClassID id) { return id == siTrackID; }

template <class T>
std::shared_ptr<T> ObjectOf(const CRef& ref, siClassID id) {
  auto object = ref.Get();
  if (!object || object->classId != id) return nullptr;
  return std::static_pointer_cast<T>(object);
}

std::shared_ptr<rt::ActionSourceObject> SourceOf(const CRef& ref) {
  return ObjectOf<rt::ActionSourceObject>(ref, siActionSourceID);
}

std::shared_ptr<rt::SourceItem> ItemOf(const CRef& ref) {
  return ObjectOf<rt::SourceItem>(ref, siAnimationSourceItemID);
}

// Appends a new item to `source`; the caller fills its fcurve or static value first.
CStatus AddItem(const std::shared_ptr<rt::ActionSourceObject>& source,
                const std::shared_ptr<rt::SourceItem>& item, AnimationSourceItem* out) {
  item->owner = source;
  source->items.push_back(item);
  if (out) *out = AnimationSourceItem(CRef(item));
  return CStatus::OK;
}

CStatus CheckTarget(const std::shared_ptr<rt::ActionSourceObject>& source, const CString& target) {
  if (!source)
    return CStatus(CStatus::InvalidArgument, L"The action source was deleted or is invalid.");
  if (target.IsEmpty()) {
    return CStatus(CStatus::InvalidArgument,
                   L"Cannot add an item to " + source->FullName() + L": the target is empty.");
  }
  return CStatus::OK;
}

}  // namespace

// ---- ActionSource -----------------------------------------------------------------------------

ActionSource::ActionSource(const CRef& ref) : SceneItem(ref, IsSourceClass) {}

CRefArray ActionSource::GetItems() const {
  CRefArray out;
  if (auto source = SourceOf(ref_)) {
    for (const auto& item : source->items) out.Add(CRef(item));
  }
  return out;
}

Model ActionSource::GetModel() const {
  auto source = SourceOf(ref_);
  if (!source) return Model();
  auto container = source->Owner();  // the model's "Sources"
  return Model(CRef(container ? container->Owner() : nullptr));
}

CStatus ActionSource::AddSourceItem(const CString& target, const FCurve& fcurve,
                                    AnimationSourceItem* out) {
  auto source = SourceOf(ref_);
  CStatus status = CheckTarget(source, target);
  if (!status.Succeeded()) return status;
  auto curve = ObjectOf<rt::FCurveObject>(fcurve.GetRef(), siFCurveID);
  if (!curve) {
    return CStatus(CStatus::InvalidArgument, L"Cannot add " + target.Wide() + L" to " +
                                                 source->FullName() + L": the fcurve is invalid.");
  }
  auto item = std::make_shared<rt::SourceItem>(target.Wide());
  item->fcurve = curve->Clone();
  item->fcurve->owner = item;
  return AddItem(source, item, out);
}

CStatus ActionSource::AddSourceItem(const CString& target, const CValue& staticValue,
                                    AnimationSourceItem* out) {
  auto source = SourceOf(ref_);
  CStatus status = CheckTarget(source, target);
  if (!status.Succeeded()) return status;
  if (staticValue.IsEmpty()) {
    return CStatus(CStatus::InvalidArgument, L"Cannot add " + target.Wide() + L" to " +
                                                 source->FullName() + L": the value is empty.");
  }
  auto item = std::make_shared<rt::SourceItem>(target.Wide());
  item->staticValue = staticValue;
  return AddItem(source, item, out);
}

// ---- AnimationSourceItem ----------------------------------------------------------------------

AnimationSourceItem::AnimationSourceItem(const CRef& ref) : ZrObject(ref, IsItemClass) {}

CString AnimationSourceItem::GetTarget() const {
  auto item = ItemOf(ref_);
  return item ? CString(item->target) : CString();
}

CRef AnimationSourceItem::GetSource() const {
  auto item = ItemOf(ref_);
  return item && item->fcurve ? CRef(item->fcurve) : CRef();
}

CValue AnimationSourceItem::GetStaticValue() const {
  auto item = ItemOf(ref_);
  return item && !item->fcurve ? item->staticValue : CValue();
}

bool AnimationSourceItem::IsStatic() const {
  auto item = ItemOf(ref_);
  return item && !item->fcurve;
}

// ---- Mixer and Track --------------------------------------------------------------------------

Mixer::Mixer(const CRef& ref) : ZrObject(ref, IsMixerClass) {}

CRefArray Mixer::GetTracks() const {
  CRefArray out;
  auto mixer = ObjectOf<rt::Container>(ref_, siMixerID);
  if (!mixer) return out;
  if (auto tracks = std::dynamic_pointer_cast<rt::Container>(mixer->Lookup(L"AnimTracks"))) {
    for (const auto& track : tracks->items) out.Add(CRef(track));
  }
  return out;
}

Track::Track(const CRef& ref) : ZrObject(ref, IsTrackClass) {}

}  // namespace Zyra
