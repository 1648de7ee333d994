// A small generated actor for the skill tests, and takes keyed on it whose truth the tests know:
// Rig > Root (RTKActor) > Hips (COG) > LeftFoot, RightFoot (RTKEffector), home pose set.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "host/host.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/tags.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/fcurve.h"

namespace skilltest {

using namespace Zyra;

// One frame of a take: local channels by node, "Node.posx" -> value.
using Pose = std::vector<std::pair<std::wstring, double>>;

class SkillRig : public ::testing::Test {
 public:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    rt::Host::Get().ClearLog();
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig);
    rig.AddNull(L"Root", root);
    root.AddNull(L"Hips", hips);
    hips.AddNull(L"LeftFoot", left);
    hips.AddNull(L"RightFoot", right);
    hips.PutParameterValue(L"posy", 90.0);
    AddTag(root, kTagActor);
    AddTag(hips, kTagCogNode);
    AddTag(left, kTagEffector);
    AddTag(right, kTagEffector);
    ASSERT_TRUE(SetHome(rig, false, ProgressBar(), true));
  }

  X3DObject Node(const std::wstring& name) {
    return X3DObject(rig.FindChild(L"Rig." + name, CString(), CRefArray(), true));
  }

  // Keys `pose(f)` at frames first .. last and stores every keyed channel as the action `name`
  // (its curves leave the rig).
  ActionSource StoreTake(const wchar_t* name, int first, int last, const std::function<Pose(int)>& pose) {
    std::wstring list;
    for (int f = first; f <= last; ++f) {
      for (const auto& [channel, value] : pose(f)) {
        const size_t dot = channel.find(L'.');
        Parameter p = Node(channel.substr(0, dot)).GetParameter(channel.substr(dot + 1));
        FCurve curve(p.GetSource());
        if (!curve.IsValid()) {
          p.AddFCurve(30, curve);
          curve.PutInterpolation(siLinearInterpolation);
          list += (list.empty() ? L"" : L",") + p.GetFullName().Wide();
        }
        curve.AddKey(CTime(f), value);
      }
    }
    CValue made;
    Application().ExecuteCommand(L"StoreAction", {rig.GetFullName(), CString(list), 6, name, 1, double(first), double(last), 0, 0}, made);
    return ActionSource(made.AsRef());
  }

  // Plays `source` on the rig and returns the global transform of `node` at every whole frame
  // from..to, as the host computes it.
  std::vector<MATH::CTransformation> Globals(ActionSource source, X3DObject node, int from, int to) {
    CValue ignored;
    Application().ExecuteCommand(L"ApplyAction", {CValue(source.GetRef())}, ignored);
    std::vector<MATH::CTransformation> out;
    for (int f = from; f <= to; ++f) out.push_back(node.GetKinematics().GetGlobal().GetTransform(CTime(f)));
    Application().ExecuteCommand(L"RemoveAllAnimation", {CValue(rig.GetRef()), CValue(), 1, 9}, ignored);
    return out;
  }

  static void RemoveTag(X3DObject& node, const wchar_t* tag) {
    for (const CRef& ref : node.GetProperties()) {
      if (Property(ref).GetName() != CString(tag)) continue;
      CValue ignored;
      Application().ExecuteCommand(L"DeleteObj", {CValue(ref)}, ignored);
      return;
    }
  }

  // The first action source of the rig named `name`.
  ActionSource Source(const wchar_t* name) { return ActionSource(rig.GetSources().GetItem(name)); }

  rt::UiState& Ui() { return rt::Host::Get().ui(); }
  std::vector<std::wstring> Messages() {
    std::vector<std::wstring> out;
    for (const std::wstring& box : Ui().messageBoxes) out.push_back(box.substr(box.find(L": ") + 2));
    return out;
  }

  Model rig;
  X3DObject root, hips, left, right;
};

inline double Distance(const MATH::CTransformation& a, const MATH::CTransformation& b) {
  return (a.GetTranslation() - b.GetTranslation()).GetLength();
}
// The angle (radians) of the rotation between two transforms.
inline double AngleBetween(const MATH::CTransformation& a, const MATH::CTransformation& b) {
  const double w = std::fabs((a.GetRotationQuaternion().Conjugate() * b.GetRotationQuaternion()).GetW());
  return 2.0 * std::acos(std::fmin(1.0, w));
}

}  // namespace skilltest
