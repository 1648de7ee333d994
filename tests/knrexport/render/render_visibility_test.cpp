// Render visibility: what hiding saves and showing restores, for one object, a hierarchy and the
// environment around target models.
#include "knrexport/render/render_visibility.h"

#include "model/scene_graph.h"
#include "render_test_scene.h"

namespace {

using namespace render_test;

class RenderVisibilityTest : public RenderSceneTest {};

// Each road of hide and show calls on an object whose own visibility is given; the last column
// is what the object shows afterwards and whether a "RenderViz" is left on it.
TEST_F(RenderVisibilityTest, HideAndShowRestoreTheObjectsOwnVisibility) {
  struct Case {
    const char* what;
    bool render, view;
    std::vector<bool> calls;  // true: hide, false: show
    std::tuple<bool, bool, bool> after;
  };
  const Case cases[] = {
      {"hidden, then shown: render on, view off", true, false, {true, false}, {true, false, false}},
      {"hidden, then shown: render off, view on", false, true, {true, false}, {false, true, false}},
      {"hidden", true, true, {true}, {false, false, true}},
      {"shown without being hidden", true, false, {false}, {true, false, false}},
      {"hidden twice, shown once: the first saving is lost",
       true,
       true,
       {true, true, false},
       {false, false, false}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    rt::Host::Get().NewScene();
    X3DObject box(Run(L"CreatePrimitive", {L"Cube", L"Box"}).AsRef());
    SetVisibility(L"Box", c.render, c.view);
    for (bool hide : c.calls) HideNode(box, hide);
    EXPECT_EQ(SceneVisibility()[L"Box"], c.after);
  }
  // The scene root is never touched.
  X3DObject root = SceneRoot();
  HideNode(root, true);
  Property saved;
  EXPECT_FALSE(FindCustomPSet(root, kRenderVizProperty, saved));
}

// HideEnv from the scene root leaves the targets' hierarchies, the light and the object below the
// light alone, and hides the camera. (HideActor's walk shows in the render setup's archives.)
TEST_F(RenderVisibilityTest, ActorAndEnvironmentWalks) {
  BuildScene();
  const Visibility before = SceneVisibility();
  CRefArray targets;
  targets.Add(Application().GetObjectFromPath(L"Fred"));
  X3DObject root = SceneRoot();
  HideEnv(root, targets, true);
  Visibility hidden = SceneVisibility();
  for (const auto& [name, state] : before) {
    SCOPED_TRACE(CString(name).GetAsciiString());
    const bool untouched =
        name.rfind(L"Fred", 0) == 0 || name == L"Sun" || name == L"Sun.Lamp" || name == L"Lamp";
    EXPECT_EQ(hidden[name], untouched ? state : std::make_tuple(false, false, true));
  }
  HideEnv(root, targets, false);
  EXPECT_EQ(SceneVisibility(), before);
}

}  // namespace
