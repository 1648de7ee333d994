// Actions: stored animation that a model keeps in its sources, and the model's mixer tracks.
#pragma once

#include "zyra/fcurve.h"
#include "zyra/x3dobject.h"

namespace Zyra {

class AnimationSourceItem;

// An action source of a model ("Model.Sources.Name"). Its parameters "FrameStart", "FrameEnd"
// (double) and "type" (int) are read and written like any other parameters.
class ZYRA_API ActionSource : public SceneItem {
 public:
  ActionSource() = default;
  ActionSource(const CRef& ref);  // NOLINT: handles convert freely
  ZYRA_HANDLE_FROM_OBJECT(ActionSource)

  // The items (AnimationSourceItem) in the order they were stored.
  CRefArray GetItems() const;
  // The model that owns the source; invalid for an invalid handle.
  Model GetModel() const;
  // Adds an item targeting `target` (a path relative to the model) that holds a copy of
  // `fcurve`, or a static value. Fails with InvalidArgument on an empty target, an invalid
  // curve or an empty value; `out` receives the new item.
  CStatus AddSourceItem(const CString& target, const FCurve& fcurve,
                        AnimationSourceItem* out = nullptr);
  CStatus AddSourceItem(const CString& target, const CValue& staticValue,
                        AnimationSourceItem* out = nullptr);
};

// One channel of an action: a target path relative to the model and either an fcurve or a
// static value.
class ZYRA_API AnimationSourceItem : public ZrObject {
 public:
  AnimationSourceItem() = default;
  AnimationSourceItem(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(AnimationSourceItem)

  // The target ("Hips.kine.local.posx"); empty for an invalid handle.
  CString GetTarget() const;
  // The item's fcurve (owned by the item); invalid for a static item.
  CRef GetSource() const;
  // The static value; empty for an fcurve item.
  CValue GetStaticValue() const;
  bool IsStatic() const;
};

// A model's animation mixer ("Model.Mixer"), made with its first track.
class ZYRA_API Mixer : public ZrObject {
 public:
  Mixer() = default;
  Mixer(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Mixer)
  // The tracks of "Model.Mixer.AnimTracks", in creation order.
  CRefArray GetTracks() const;
};

// A track of a mixer.
class ZYRA_API Track : public ZrObject {
 public:
  Track() = default;
  Track(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Track)
};

}  // namespace Zyra
