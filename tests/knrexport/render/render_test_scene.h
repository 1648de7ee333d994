// The render tests' scene: two target models and an environment with a light, a camera and an
// object hidden by its user; and the visibility of every object, to compare before and after.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

#include "host/host.h"
#include "knrexport/render/render_visibility.h"
#include "knrexport/scene/actor_lookup.h"
#include "zyra/application.h"

namespace render_test {

using namespace Zyra;

// Render visibility, view visibility and whether a "RenderViz" is saved, by full name.
using Visibility = std::map<std::wstring, std::tuple<bool, bool, bool>>;

class RenderSceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    ui().messageBoxes.clear();
    ui().progressRuns.clear();
    rt::Host::Get().ClearLog();
  }
  static rt::UiState& ui() { return rt::Host::Get().ui(); }
  static X3DObject SceneRoot() { return Application().GetActiveSceneRoot(); }
  static CValue Run(const wchar_t* command, const CValueArray& args) {
    CValue out;
    EXPECT_TRUE(Application().ExecuteCommand(command, args, out).Succeeded())
        << CString(command).GetAsciiString();
    return out;
  }
  static X3DObject Find(const wchar_t* fullName) {
    return X3DObject(Application().GetObjectFromPath(fullName));
  }
  static void SetVisibility(const wchar_t* fullName, bool render, bool view) {
    Run(L"SetValue", {CString(fullName) + L".visibility.rendvis", render});
    Run(L"SetValue", {CString(fullName) + L".visibility.viewvis", view});
  }

  // Fred (Body, Hips > Head) and Ann (Body) are the targets. Around them: Ground; Wall, left out
  // of renders by its user; Sun, a light with a Lamp below it; Cam, a camera.
  static void BuildScene() {
    Run(L"CreateModel", {L"Fred"});
    Run(L"CreatePrimitive", {L"Cube", L"Body", L"Fred"});
    Run(L"CreateNull", {L"Hips", L"Fred"});
    Run(L"CreatePrimitive", {L"Cube", L"Head", L"Fred.Hips"});
    Run(L"CreateModel", {L"Ann"});
    Run(L"CreatePrimitive", {L"Cube", L"Body", L"Ann"});
    Run(L"CreatePrimitive", {L"Cube", L"Ground"});
    Run(L"CreatePrimitive", {L"Cube", L"Wall"});
    SetVisibility(L"Wall", false, true);
    Run(L"CreateLight", {L"Sun"});
    Run(L"CreatePrimitive", {L"Cube", L"Lamp", L"Sun"});
    Run(L"CreateCamera", {L"Cam"});
  }

  static Visibility VisibilityOf(X3DObject start) {
    Visibility out;
    CRefArray objects = start.FindChildren(L"");
    for (long i = 0; i < objects.GetCount(); ++i) {
      X3DObject o(objects[i]);
      Property saved;
      out[o.GetFullName().Wide()] = {o.GetParameterValue(L"visibility.rendvis").AsBool(),
                                     o.GetParameterValue(L"visibility.viewvis").AsBool(),
                                     FindCustomPSet(o, kRenderVizProperty, saved)};
    }
    return out;
  }
  static Visibility SceneVisibility() { return VisibilityOf(SceneRoot()); }
};

}  // namespace render_test
