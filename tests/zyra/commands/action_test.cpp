// Actions and key commands: storing a rig's animation and applying it to a fresh copy of the rig
// reproduces every value over the stored range; failures name what is wrong and change nothing.
#include "zyra/action.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace {

using Zyra::CRef;
using Zyra::CStatus;
using Zyra::CValue;
using Zyra::CValueArray;
namespace rt = Zyra::rt;

CStatus Exec(const wchar_t* command, const CValueArray& args, CValue* result = nullptr) {
  CValue ignored;
  return rt::Host::Get().Execute(command, args, result ? *result : ignored);
}

std::shared_ptr<rt::Parameter> Param(const std::wstring& path) {
  return std::dynamic_pointer_cast<rt::Parameter>(rt::Resolve(path));
}

double ValueAt(const std::wstring& path, double frame) {
  auto p = Param(path);
  EXPECT_TRUE(p) << Zyra::ToUtf8(path);
  return p ? p->Evaluate(frame).AsDouble() : 0.0;
}

// A small rig: Hips with Spine and Foot below it, Foot carrying a custom "Contact" property.
std::shared_ptr<rt::ModelObject> BuildRig(const std::wstring& name, bool withFoot = true) {
  auto model = rt::CreateModel(rt::Host::Get().scene().root, name);
  auto hips = rt::CreateX3D(model, Zyra::siX3DObjectID, L"null", L"Hips");
  rt::CreateX3D(hips, Zyra::siX3DObjectID, L"null", L"Spine");
  if (withFoot) {
    auto foot = rt::CreateX3D(hips, Zyra::siX3DObjectID, L"null", L"Foot");
    auto contact =
        rt::CreateProperty(foot, Zyra::siCustomPropertyID, L"Custom_parameter_list", L"Contact");
    contact->AddParam(rt::MakeParam(L"weight", Zyra::siDouble, CValue(0.0)));
  }
  return model;
}

void Key(const std::wstring& path, double frame, double value, int interpolation = 0) {
  ASSERT_TRUE(
      Exec(L"SetKey", {CValue(path.c_str()), CValue(frame), CValue(value), CValue(interpolation)})
          .Succeeded())
      << Zyra::ToUtf8(path);
}

// The channels the tests store, relative to the rig model.
const std::vector<std::wstring> kChannels = {L"Hips.kine.local.posx", L"Hips.kine.local.roty",
                                             L"Spine.kine.local.rotz", L"Foot.Contact.weight",
                                             L"Foot.kine.local.posy"};

std::wstring ChannelList(const std::wstring& model) {
  std::wstring list;
  for (const auto& c : kChannels) list += (list.empty() ? L"" : L",") + model + L"." + c;
  return list;
}

// Keys of every interpolation, some outside the range 3..25 that the tests store; Foot.posy keeps
// a static value only.
void AnimateRig(const std::wstring& m) {
  for (auto [f, v] : {std::pair{0.0, 0.0}, {5.0, 4.0}, {12.0, -1.5}, {20.0, 2.0}, {30.0, 8.0}}) {
    Key(m + L".Hips.posx", f, v);
  }
  for (auto [f, v] : {std::pair{1.0, 10.0}, {10.0, 40.0}, {40.0, -20.0}})
    Key(m + L".Hips.roty", f, v, 2);
  for (auto [f, v] : {std::pair{-10.0, 5.0}, {4.0, 9.0}, {9.0, 1.0}, {50.0, 3.0}}) {
    Key(m + L".Spine.rotz", f, v, 1);
  }
  Key(m + L".Foot.Contact.weight", 2, 0);
  Key(m + L".Foot.Contact.weight", 8, 1);
  ASSERT_TRUE(Param(m + L".Foot.kine.local.posy")->Put(CValue(3.5), 1).Succeeded());
}

CStatus Store(const std::wstring& model, const std::wstring& list, int type, const wchar_t* name,
              int remove, double start, double end, CValue* result = nullptr) {
  return Exec(L"StoreAction",
              {CValue(model.c_str()), CValue(list.c_str()), CValue(type), CValue(name),
               CValue(remove), CValue(start), CValue(end), CValue(0), CValue(0)},
              result);
}

bool LogHas(int severity, const std::wstring& text) {
  for (const auto& line : rt::Host::Get().LogLines()) {
    if (line.severity == severity && line.text.find(text) != std::wstring::npos) return true;
  }
  return false;
}

TEST(Actions, StoredFCurvesReproduceTheRigOnAFreshCopy) {
  rt::Host::Get().NewScene();
  auto rigA = BuildRig(L"RigA");
  auto rigB = BuildRig(L"RigB");
  AnimateRig(L"RigA");
  Key(L"RigB.Hips.posx", 0, 100);  // animation the action must replace
  Key(L"RigB.Hips.posx", 50, -100);

  CValue result;
  ASSERT_TRUE(Store(L"RigA", ChannelList(L"RigA"), 6, L"Walk", 0, 3, 25, &result).Succeeded());
  Zyra::ActionSource source(result.AsRef());
  ASSERT_TRUE(source.IsValid());
  EXPECT_EQ(source.GetFullName(), Zyra::CString(L"RigA.Sources.Walk"));
  EXPECT_EQ(source.GetModel().GetRef(), CRef(rigA));
  EXPECT_EQ(source.GetParameterValue(L"FrameStart").AsDouble(), 3);
  EXPECT_EQ(source.GetParameterValue(L"FrameEnd").AsDouble(), 25);
  Zyra::CRefArray items = source.GetItems();
  ASSERT_EQ(items.GetCount(), static_cast<long>(kChannels.size()));
  for (long i = 0; i < items.GetCount(); ++i) {
    Zyra::AnimationSourceItem item(items[i]);
    EXPECT_EQ(item.GetTarget(), Zyra::CString(kChannels[static_cast<size_t>(i)]));
    EXPECT_FALSE(item.IsStatic());
    Zyra::FCurve curve(item.GetSource());
    ASSERT_TRUE(curve.IsValid());
    for (long k = 0; k < curve.GetKeyCount(); ++k) {
      EXPECT_GE(curve.GetKeyTime(k).GetTime(), 3);
      EXPECT_LE(curve.GetKeyTime(k).GetTime(), 25);
    }
  }
  // The parameter without an fcurve became a one-key curve of its value.
  Zyra::FCurve still(Zyra::AnimationSourceItem(items[4]).GetSource());
  ASSERT_EQ(still.GetKeyCount(), 1);
  EXPECT_EQ(still.GetKeyValue(0).AsDouble(), 3.5);

  CValue applied;
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(result), CValue(L"RigB")}, &applied).Succeeded());
  EXPECT_EQ(applied.AsInt(), static_cast<int>(kChannels.size()));
  for (const auto& channel : kChannels) {
    for (int f = 3; f <= 25; ++f) {
      EXPECT_NEAR(ValueAt(L"RigB." + channel, f), ValueAt(L"RigA." + channel, f), 1e-9)
          << Zyra::ToUtf8(channel) << " at frame " << f;
    }
  }
  // The source's curves are copies: keying RigB leaves the source and RigA alone.
  Key(L"RigB.Hips.posx", 10, 1000);
  EXPECT_NE(ValueAt(L"RigA.Hips.posx", 10), 1000);
  EXPECT_EQ(Zyra::FCurve(Zyra::AnimationSourceItem(items[0]).GetSource()).GetKeyIndex(10), -1);

  {  // Without a model argument the action goes back onto its own model.
    std::vector<double> before;
    for (int f = 3; f <= 25; ++f) before.push_back(ValueAt(L"RigA.Hips.kine.local.roty", f));
    ASSERT_TRUE(Exec(L"RemoveAllAnimation", {CValue(L"RigA"), CValue(L""), CValue(1), CValue(9)})
                    .Succeeded());
    EXPECT_FALSE(Param(L"RigA.Hips.kine.local.roty")->fcurve);
    ASSERT_TRUE(Exec(L"ApplyAction", {CValue(L"RigA.Sources.Walk")}).Succeeded());
    for (int f = 3; f <= 25; ++f) {
      EXPECT_NEAR(ValueAt(L"RigA.Hips.kine.local.roty", f), before[static_cast<size_t>(f - 3)],
                  1e-9);
    }
  }
}

TEST(Actions, StoredValuesApplyAsStaticValues) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  BuildRig(L"RigB");
  AnimateRig(L"RigA");
  Key(L"RigB.Hips.posx", 0, 100);
  ASSERT_TRUE(Param(L"PlayControl.Current")->Put(CValue(7.0), 1).Succeeded());

  CValue result;
  ASSERT_TRUE(Store(L"RigA", ChannelList(L"RigA"), 1, L"Pose", 0, 1, 1, &result).Succeeded());
  Zyra::CRefArray items = Zyra::ActionSource(result.AsRef()).GetItems();
  ASSERT_EQ(items.GetCount(), static_cast<long>(kChannels.size()));
  for (long i = 0; i < items.GetCount(); ++i) {
    Zyra::AnimationSourceItem item(items[i]);
    EXPECT_TRUE(item.IsStatic());
    EXPECT_FALSE(item.GetSource().IsValid());
    EXPECT_NEAR(item.GetStaticValue().AsDouble(),
                ValueAt(L"RigA." + kChannels[static_cast<size_t>(i)], 7), 1e-12);
  }
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(result), CValue(L"RigB")}).Succeeded());
  for (const auto& channel : kChannels) {
    auto p = Param(L"RigB." + channel);
    EXPECT_FALSE(p->fcurve) << "a static item replaces the animation of " << Zyra::ToUtf8(channel);
    for (double f : {-5.0, 7.0, 60.0}) {
      EXPECT_NEAR(ValueAt(L"RigB." + channel, f), ValueAt(L"RigA." + channel, 7), 1e-9);
    }
  }
}

TEST(Actions, RemoveTakesTheFCurvesOffTheStoredParametersOnly) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  AnimateRig(L"RigA");
  ASSERT_TRUE(Store(L"RigA", L"RigA.Hips.kine.local.posx, RigA.Spine.rotz", 6, L"Cut", 1, 0, 30)
                  .Succeeded());
  EXPECT_FALSE(Param(L"RigA.Hips.kine.local.posx")->fcurve);
  EXPECT_FALSE(Param(L"RigA.Spine.kine.local.rotz")->fcurve);
  EXPECT_TRUE(Param(L"RigA.Hips.kine.local.roty")->fcurve);  // not listed
  EXPECT_EQ(ValueAt(L"RigA.Hips.posx", 12), 0);              // the static value shows again
  // The stored curves survive the removal.
  Zyra::CRefArray items = Zyra::Model(CRef(rt::Resolve(L"RigA"))).GetSources();
  ASSERT_EQ(items.GetCount(), 1);
  Zyra::CRefArray stored = Zyra::ActionSource(items[0]).GetItems();
  ASSERT_EQ(stored.GetCount(), 2);
  // "RigA.Spine.rotz" names the same parameter as its full name.
  EXPECT_EQ(Zyra::AnimationSourceItem(stored[1]).GetTarget(),
            Zyra::CString(L"Spine.kine.local.rotz"));
  EXPECT_EQ(Zyra::FCurve(Zyra::AnimationSourceItem(stored[0]).GetSource()).GetKeyCount(), 5);
}

TEST(Actions, ApplySkipsTargetsThatDoNotResolveAndLogsThem) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  BuildRig(L"RigC", /*withFoot=*/false);
  AnimateRig(L"RigA");
  CValue result;
  ASSERT_TRUE(Store(L"RigA", ChannelList(L"RigA"), 6, L"Walk", 0, 3, 25, &result).Succeeded());
  rt::Host::Get().ClearLog();
  CValue applied;
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(result), CValue(L"RigC")}, &applied).Succeeded());
  EXPECT_EQ(applied.AsInt(), 3);
  EXPECT_TRUE(LogHas(rt::kSevWarning, L"\"Foot.Contact.weight\""));
  EXPECT_TRUE(LogHas(rt::kSevWarning, L"\"Foot.kine.local.posy\""));
  EXPECT_FALSE(LogHas(rt::kSevWarning, L"Hips"));
  EXPECT_NEAR(ValueAt(L"RigC.Hips.posx", 13), ValueAt(L"RigA.Hips.posx", 13), 1e-9);
  {  // Bad sources and models fail before anything is applied.
    EXPECT_FALSE(Exec(L"ApplyAction", {CValue(L"RigA.Hips")}).Succeeded());
    EXPECT_FALSE(Exec(L"ApplyAction", {CValue(result), CValue(L"RigC.Hips")}).Succeeded());
    EXPECT_FALSE(Exec(L"ApplyAction", {}).Succeeded());
  }
}

TEST(Actions, StoreActionRefusesBadArgumentsAndCreatesNothing) {
  rt::Host::Get().NewScene();
  auto rigA = BuildRig(L"RigA");
  BuildRig(L"RigB");
  AnimateRig(L"RigA");
  struct Case {
    std::wstring model, list;
    int type;
    const wchar_t* name;
    double start, end;
    std::wstring mentions;
  };
  const std::wstring good = L"RigA.Hips.kine.local.posx";
  for (const Case& c : std::vector<Case>{
           {L"RigA", good + L",RigA.Nope.posx", 6, L"A", 0, 10, L"RigA.Nope.posx"},
           {L"RigA", L"RigA.Hips", 6, L"A", 0, 10, L"RigA.Hips is not a parameter"},
           {L"RigA", L"RigB.Hips.posx", 6, L"A", 0, 10, L"RigB.Hips.kine.local.posx"},
           {L"RigA", good, 3, L"A", 0, 10, L"type"},
           {L"RigA", L"RigA.Hips.kine.global.posx", 6, L"A", 0, 10, L"computed"},
           {L"RigA", good, 6, L"A", 10, 0, L"start frame"},
           {L"RigA", good, 6, L"A.B", 0, 10, L"A.B"},
           {L"RigA.Hips", good, 6, L"A", 0, 10, L"RigA.Hips"},
           {L"RigA", L"", 6, L"A", 0, 10, L"no parameters"},
       }) {
    CStatus status = Store(c.model, c.list, c.type, c.name, 1, c.start, c.end);
    EXPECT_EQ(status.GetCode(), CStatus::InvalidArgument) << Zyra::ToUtf8(c.mentions);
    const std::wstring& message = status.GetMessage().Wide();
    EXPECT_EQ(message.rfind(L"StoreAction: ", 0), 0u) << Zyra::ToUtf8(message);
    EXPECT_NE(message.find(c.mentions), std::wstring::npos) << Zyra::ToUtf8(message);
    EXPECT_TRUE(rigA->sources->items.empty());
    EXPECT_TRUE(Param(good)->fcurve) << "remove = 1 must not run on failure";
  }
}

TEST(Actions, TakenNamesGetANumberAndTheSceneRootStoresFullNames) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  AnimateRig(L"RigA");
  CValue first, second;
  ASSERT_TRUE(Store(L"RigA", L"RigA.Hips.posx", 6, L"Walk", 0, 0, 30, &first).Succeeded());
  ASSERT_TRUE(Store(L"RigA", L"RigA.Hips.posx", 6, L"Walk", 0, 0, 30, &second).Succeeded());
  EXPECT_EQ(first.GetAsText(), Zyra::CString(L"RigA.Sources.Walk"));
  EXPECT_EQ(second.GetAsText(), Zyra::CString(L"RigA.Sources.Walk1"));
  EXPECT_EQ(Zyra::Model(CRef(rt::Resolve(L"RigA"))).GetSources().GetCount(), 2);

  // On the scene root, targets are full names; they resolve from the root again.
  auto& root = rt::Host::Get().scene().root;
  rt::CreateX3D(root, Zyra::siX3DObjectID, L"null", L"Ball");
  Key(L"Ball.posy", 1, 0);
  Key(L"Ball.posy", 11, 10, 2);
  CValue ball;
  ASSERT_TRUE(
      Store(L"Scene_Root", L"Ball.posy,RigA.Hips.posx", 6, L"Bounce", 1, 1, 11, &ball).Succeeded());
  EXPECT_EQ(ball.GetAsText(), Zyra::CString(L"Scene_Root.Sources.Bounce"));
  Zyra::CRefArray items = Zyra::ActionSource(ball.AsRef()).GetItems();
  ASSERT_EQ(items.GetCount(), 2);
  EXPECT_EQ(Zyra::AnimationSourceItem(items[0]).GetTarget(),
            Zyra::CString(L"Ball.kine.local.posy"));
  EXPECT_EQ(Zyra::AnimationSourceItem(items[1]).GetTarget(),
            Zyra::CString(L"RigA.Hips.kine.local.posx"));
  EXPECT_EQ(ValueAt(L"Ball.posy", 6), 0);
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(ball)}).Succeeded());
  EXPECT_NEAR(ValueAt(L"Ball.posy", 6), 5, 1e-12);
}

TEST(Actions, RemoveAllAnimationFollowsFilterAndBranch) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  auto animated = [](const wchar_t* path) { return Param(path)->fcurve != nullptr; };
  auto run = [](const wchar_t* objects, const wchar_t* filter, int branch, int type = 9) {
    CValue removed;
    EXPECT_TRUE(Exec(L"RemoveAllAnimation",
                     {CValue(objects), CValue(filter), CValue(branch), CValue(type)}, &removed)
                    .Succeeded());
    return removed.AsInt();
  };
  AnimateRig(L"RigA");
  EXPECT_EQ(run(L"RigA.Hips", L"", 0, 10), 0);  // no expression sources exist
  EXPECT_EQ(run(L"RigA.Hips", L"posx", 1), 1);
  EXPECT_FALSE(animated(L"RigA.Hips.posx"));
  EXPECT_TRUE(animated(L"RigA.Hips.roty"));
  EXPECT_EQ(run(L"RigA.Hips", L"", 0), 1);  // Hips' own, not its children
  EXPECT_TRUE(animated(L"RigA.Spine.rotz"));
  EXPECT_EQ(run(L"RigA.Hips", L"", 1), 2);  // Spine.rotz and the custom property of Foot
  EXPECT_FALSE(animated(L"RigA.Foot.Contact.weight"));
  AnimateRig(L"RigA");
  EXPECT_EQ(run(L"RigA.Spine,RigA.Foot", L"Contact.weight, rotz", 0), 2);
  EXPECT_TRUE(animated(L"RigA.Hips.posx"));
  CStatus status =
      Exec(L"RemoveAllAnimation", {CValue(L"RigA.Nope"), CValue(L""), CValue(0), CValue(9)});
  EXPECT_NE(status.GetMessage().Wide().find(L"RigA.Nope"), std::wstring::npos);
  EXPECT_TRUE(animated(L"RigA.Hips.posx"));
}

TEST(KeyCommands, SetKeyAndRemoveKey) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  CValue curve;
  ASSERT_TRUE(
      Exec(L"SetKey", {CValue(L"RigA.Hips.posz"), CValue(10), CValue(2.0), CValue(2)}, &curve)
          .Succeeded());
  ASSERT_TRUE(Exec(L"SetKey", {CValue(L"RigA.Hips.posz"), CValue(0), CValue(0.0)}).Succeeded());
  Zyra::FCurve handle(curve.AsRef());
  ASSERT_EQ(handle.GetKeyCount(), 2);
  EXPECT_EQ(handle.GetKeyInterpolation(1), 2);
  EXPECT_NEAR(ValueAt(L"RigA.Hips.posz", 5), 1, 1e-12);  // cubic between two keys is the chord
  {  // Refusals: each names the command and changes nothing.
    for (const CValueArray& args : std::vector<CValueArray>{
             {CValue(L"RigA.Hips"), CValue(1), CValue(1.0)},
             {CValue(L"RigA.Hips.kine.global.posx"), CValue(1), CValue(1.0)},
             {CValue(L"RigA.Hips.posz"), CValue(L"soon"), CValue(1.0)},
             {CValue(L"RigA.Hips.posz"), CValue(1), CValue()},
             {CValue(L"RigA.Hips.posz"), CValue(1), CValue(1.0), CValue(5)},
         }) {
      CStatus status = Exec(L"SetKey", args);
      EXPECT_EQ(status.GetCode(), CStatus::InvalidArgument);
      EXPECT_EQ(status.GetMessage().Wide().rfind(L"SetKey: ", 0), 0u);
    }
    EXPECT_EQ(handle.GetKeyCount(), 2);
    EXPECT_FALSE(Param(L"RigA.Hips.kine.global.posx")->fcurve);
  }
  CStatus missing = Exec(L"RemoveKey", {CValue(L"RigA.Hips.posz"), CValue(4)});
  EXPECT_NE(missing.GetMessage().Wide().find(L"frame 4"), std::wstring::npos);
  ASSERT_TRUE(Exec(L"RemoveKey", {CValue(L"RigA.Hips.posz"), CValue(10)}).Succeeded());
  EXPECT_EQ(handle.GetKeyCount(), 1);
  ASSERT_TRUE(Exec(L"RemoveKey", {CValue(L"RigA.Hips.posz"), CValue(0)}).Succeeded());
  EXPECT_FALSE(handle.IsValid()) << "the last key takes the fcurve with it";
  EXPECT_FALSE(Exec(L"RemoveKey", {CValue(L"RigA.Hips.posz")}).Succeeded());
  Key(L"RigA.Hips.posz", 3, 1);
  Key(L"RigA.Hips.posz", 4, 1);
  CValue removed;
  ASSERT_TRUE(Exec(L"RemoveKey", {CValue(L"RigA.Hips.posz")}, &removed).Succeeded());
  EXPECT_EQ(removed.AsInt(), 2);
  EXPECT_FALSE(Param(L"RigA.Hips.posz")->fcurve);
}

TEST(Mixer, TracksAndElements) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  Zyra::Model rig(CRef(rt::Resolve(L"RigA")));
  EXPECT_FALSE(rig.HasMixer());
  CValue t1, t2;
  ASSERT_TRUE(Exec(L"AddMixerTrack", {CValue(L"RigA")}, &t1).Succeeded());
  ASSERT_TRUE(Exec(L"AddMixerTrack", {CValue(L"RigA")}, &t2).Succeeded());
  EXPECT_EQ(t2.GetAsText(), Zyra::CString(L"RigA.Mixer.AnimTracks.Track1"));
  EXPECT_TRUE(Zyra::Track(t1.AsRef()).IsValid());
  ASSERT_TRUE(rig.HasMixer());
  EXPECT_EQ(Zyra::Mixer(rig.GetMixer()).GetTracks().GetCount(), 2);

  CValue elements;
  ASSERT_TRUE(Exec(L"EnumElements", {CValue(L"RigA.Mixer.AnimTracks")}, &elements).Succeeded());
  ASSERT_EQ(elements.AsArray().GetCount(), 2);
  EXPECT_EQ(elements.AsArray()[0].AsRef(), t1.AsRef());
  ASSERT_TRUE(Exec(L"EnumElements", {CValue(L"RigA.Hips")}, &elements).Succeeded());
  std::vector<std::wstring> names;
  for (const CValue& e : elements.AsArray()) names.push_back(e.AsRef().Get()->name);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"Spine", L"Foot", L"kine", L"visibility"}));
  EXPECT_FALSE(Exec(L"EnumElements", {CValue(L"RigA.Nope")}).Succeeded());
  EXPECT_FALSE(Exec(L"AddMixerTrack", {CValue(L"RigA.Hips")}).Succeeded());

  // Deleting the model leaves the track handles safely invalid.
  rt::Destroy(rt::Resolve(L"RigA"));
  EXPECT_FALSE(Zyra::Track(t1.AsRef()).IsValid());
}

TEST(Actions, SourceItemsAddedThroughTheSdkCopyTheirCurve) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  auto source = rt::CreateActionSource(
      std::static_pointer_cast<rt::ModelObject>(rt::Resolve(L"RigA")), L"Hand");
  Zyra::ActionSource handle{CRef(source)};
  Key(L"RigA.Hips.posx", 1, 2);
  Zyra::FCurve live(CRef(Param(L"RigA.Hips.posx")->fcurve));
  Zyra::AnimationSourceItem item;
  ASSERT_TRUE(handle.AddSourceItem(L"Hips.kine.local.posx", live, &item).Succeeded());
  ASSERT_TRUE(live.AddKey(Zyra::CTime(5), CValue(9.0)).Succeeded());
  EXPECT_EQ(Zyra::FCurve(item.GetSource()).GetKeyCount(), 1);
  ASSERT_TRUE(handle.AddSourceItem(L"Spine.kine.local.rotx", CValue(45.0)).Succeeded());
  EXPECT_EQ(handle.GetItems().GetCount(), 2);
  EXPECT_FALSE(handle.AddSourceItem(L"", CValue(1.0)).Succeeded());
  EXPECT_FALSE(handle.AddSourceItem(L"Spine.kine.local.roty", CValue()).Succeeded());
  EXPECT_FALSE(handle.AddSourceItem(L"Spine.kine.local.roty", Zyra::FCurve()).Succeeded());
  EXPECT_EQ(handle.GetItems().GetCount(), 2);
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(CRef(source))}).Succeeded());
  EXPECT_EQ(ValueAt(L"RigA.Spine.rotx", 1), 45);
  EXPECT_EQ(ValueAt(L"RigA.Hips.posx", 5), 2);
}

}  // namespace

TEST(Actions, RemovingStoreMovesWholeCurvesAndCopiesCutOnes) {
  rt::Host::Get().NewScene();
  BuildRig(L"RigA");
  AnimateRig(L"RigA");
  auto posx = Param(L"RigA.Hips.kine.local.posx");
  std::vector<rt::FCurveKey> keys = posx->fcurve->keys;
  int interpolation = posx->fcurve->interpolation;
  Zyra::FCurve before(CRef(posx->fcurve));
  ASSERT_TRUE(Store(L"RigA", L"RigA.Hips.kine.local.posx", 6, L"Whole", 1, -1000, 1000).Succeeded());
  EXPECT_FALSE(before.IsValid()) << "the parameter's curve is gone";
  Zyra::ActionSource whole(Zyra::Model(CRef(rt::Resolve(L"RigA"))).GetSources()[0]);
  Zyra::FCurve stored(Zyra::AnimationSourceItem(whole.GetItems()[0]).GetSource());
  ASSERT_EQ(stored.GetKeyCount(), static_cast<long>(keys.size()));
  EXPECT_EQ(stored.GetInterpolation(), interpolation);
  for (long i = 0; i < stored.GetKeyCount(); ++i) {
    EXPECT_EQ(stored.GetKeyTime(i).GetTime(), keys[static_cast<size_t>(i)].frame);
    EXPECT_EQ(stored.GetKeyValue(i).AsDouble(), keys[static_cast<size_t>(i)].value);
  }
  // A range that cuts the curve stores a copy that still evaluates like it inside the range.
  auto rotz = Param(L"RigA.Spine.kine.local.rotz");
  double at = (rotz->fcurve->keys.front().frame + rotz->fcurve->keys.back().frame) / 2;
  double expected = rotz->fcurve->Evaluate(at);
  ASSERT_TRUE(Store(L"RigA", L"RigA.Spine.kine.local.rotz", 6, L"Cut", 1, at - 1, at + 1).Succeeded());
  Zyra::ActionSource cut(Zyra::Model(CRef(rt::Resolve(L"RigA"))).GetSources()[1]);
  EXPECT_NEAR(Zyra::FCurve(Zyra::AnimationSourceItem(cut.GetItems()[0]).GetSource()).Eval(Zyra::CTime(at)), expected, 1e-9);
}
