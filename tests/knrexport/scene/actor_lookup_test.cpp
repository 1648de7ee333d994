// Actor lookups on scenes built through the SDK: the structures the lookups accept and refuse,
// and the messages they show.
#include "knrexport/scene/actor_lookup.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

class ActorLookupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui().messageBoxes.clear();
  }
  Model Root() { return Application().GetActiveSceneRoot(); }
  X3DObject Null(X3DObject parent, const wchar_t* name) {
    X3DObject out;
    parent.AddNull(name, out);
    return out;
  }
  Model NewModel(const wchar_t* name) {
    Model out;
    Root().AddModel(CRefArray(), name, out);
    return out;
  }
  const std::vector<std::wstring>& Boxes() { return rt::Host::Get().ui().messageBoxes; }
};

TEST_F(ActorLookupTest, ModelIsTheNearestModelAboveAndLightsAndCamerasDontCount) {
  Model fred = NewModel(L"Fred");
  X3DObject hips = Null(fred, L"Hips");
  X3DObject spine = Null(hips, L"Spine");
  X3DObject light, camera;
  fred.AddLight(L"Key", light);
  fred.AddCamera(L"Cam", camera);
  Model found;
  ASSERT_TRUE(GetModel(spine, found));
  EXPECT_EQ(found.GetRef(), fred.GetRef());
  X3DObject root;
  ASSERT_TRUE(GetRootNode(fred, root, true));
  EXPECT_EQ(root.GetRef(), hips.GetRef());
  EXPECT_TRUE(IsLightOrCamera(light));
  EXPECT_TRUE(IsLightOrCamera(camera));
  EXPECT_FALSE(IsLightOrCamera(hips));
  EXPECT_TRUE(Boxes().empty());
  // An object outside any model but the scene root still finds Scene_Root as its model.
  X3DObject loose = Null(Root(), L"Loose");
  ASSERT_TRUE(GetModel(loose, found));
  EXPECT_EQ(found.GetRef(), Root().GetRef());
}

TEST_F(ActorLookupTest, AMeshRootGetsAGlobalSRTOnce) {
  Model fred = NewModel(L"Fred");
  X3DObject body;
  fred.AddGeometry(L"Cube", L"MeshSurface", L"Body", body);
  X3DObject root;
  ASSERT_TRUE(GetRootNode(fred, root, true));
  EXPECT_EQ(root.GetName(), CString(L"GlobalSRT"));
  EXPECT_EQ(body.GetParent(), root.GetRef());
  X3DObject again;
  ASSERT_TRUE(GetRootNode(fred, again, true));
  EXPECT_EQ(again.GetRef(), root.GetRef()) << "the null is found, nothing is inserted again";
  EXPECT_EQ(fred.GetChildren().GetCount(), 1);
  // A sphere primitive has no triangles: it stays the root.
  Model ball = NewModel(L"Ball");
  X3DObject sphere;
  ball.AddPrimitive(L"Sphere", L"S", sphere);
  ASSERT_TRUE(GetRootNode(ball, root, false));
  EXPECT_EQ(root.GetRef(), sphere.GetRef());
}

TEST_F(ActorLookupTest, SeveralOrNoRootsAreRefusedWithTheirNames) {
  Model fred = NewModel(L"Fred");
  X3DObject root;
  EXPECT_FALSE(GetRootNode(fred, root, true));
  Null(fred, L"Left");
  Null(fred, L"Right");
  EXPECT_FALSE(GetRootNode(fred, root, false));
  EXPECT_EQ(Boxes().size(), 1u) << "silent when asked";
  EXPECT_FALSE(GetRootNode(fred, root, true));
  ASSERT_EQ(Boxes().size(), 2u);
  EXPECT_EQ(Boxes()[1],
            L"Kinra Export: For a model to convert to an actor, the model must have\n"
            L"a single child node (lights and cameras don't count).\n"
            L"One of the following nodes needs to be lower in the tree:\n\n"
            L"node - Left\nnode - Right\n");
}

TEST_F(ActorLookupTest, CogIsTheTaggedChildOrTheOnlyChild) {
  Model fred = NewModel(L"Fred");
  X3DObject hips = Null(fred, L"Hips");
  X3DObject cog;
  EXPECT_FALSE(GetCogNode(hips, cog));
  ASSERT_EQ(Boxes().size(), 1u);
  EXPECT_EQ(Boxes()[0],
            L"Kinra Export: For a model to convert to an actor, the actor root node must have\n"
            L"one child node (e.g. a COG node).");
  X3DObject a = Null(hips, L"A");
  X3DObject light;
  hips.AddLight(L"Lamp", light);
  ASSERT_TRUE(GetCogNode(hips, cog));
  EXPECT_EQ(cog.GetRef(), a.GetRef()) << "the light is not counted";
  X3DObject b = Null(hips, L"B");
  Null(hips, L"C");
  EXPECT_FALSE(GetCogNode(hips, cog));
  EXPECT_EQ(Boxes().back(),
            L"Kinra Export: For a model to convert to an actor, the actor root node (Hips)\n"
            L"must have only one child node (e.g. a COG node). One of the following nodes\n"
            L"needs to be lower in the tree:\n\nnode - A\nnode - B\nnode - C\n"
            L"\nThe other option is to mark one of the nodes as the COG node.\n");
  b.AddProperty(L"Custom_parameter_list", false, L"RTKCogNode");
  size_t shown = Boxes().size();
  ASSERT_TRUE(GetCogNode(hips, cog));
  EXPECT_EQ(cog.GetRef(), b.GetRef());
  EXPECT_EQ(Boxes().size(), shown);
}

TEST_F(ActorLookupTest, EmbeddedModelsCountsAndTags) {
  Model fred = NewModel(L"Fred");
  X3DObject hips = Null(fred, L"Hips");
  X3DObject spine = Null(hips, L"Spine");
  X3DObject head = Null(spine, L"Head");
  EXPECT_FALSE(CheckForEmbeddedModel(fred));
  EXPECT_FALSE(CheckForEmbeddedModel(head));
  Model inner;
  spine.AddModel(CRefArray(), L"Prop", inner);
  EXPECT_TRUE(CheckForEmbeddedModel(fred));
  EXPECT_EQ(GetNumChildren(fred), 4);
  EXPECT_EQ(GetNumChildren(head), 0);

  head.AddProperty(L"Custom_parameter_list", false, L"RTKNode");
  hips.AddProperty(L"Custom_parameter_list", false, L"RTKNode");
  spine.AddProperty(L"UserDataBlob", false, L"RTKNode");  // not a custom property
  CRefArray tagged;
  FindRTKNodes(fred, L"RTKNode", tagged);
  ASSERT_EQ(tagged.GetCount(), 2);
  EXPECT_EQ(tagged[0], hips.GetRef());
  EXPECT_EQ(tagged[1], head.GetRef());
  Property found;
  EXPECT_TRUE(FindProperty(head, L"RTKNode", found));
  EXPECT_FALSE(FindCustomPSet(head, L"rtknode", found)) << "names match case-sensitively";
}

}  // namespace
