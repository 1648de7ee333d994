// Role tags on a biped built through the SDK: COG, feet and their spheres, collision spheres,
// floors, role flags and colours, joint limits, and the extractors the skill code uses.
#include "knrexport/actor/actor_tags.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/host.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/joint_limit.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/tags.h"
#include "model/scene_graph.h"
#include "zyra/application.h"
#include "zyra/fcurve.h"

using namespace Zyra;

namespace {

// Rig > Hips (root, y 10) > Cog (y 10) > Chest (y 14); Cog > LeftLeg (x 1, y 5) > LeftFoot
// (x 1, y 1) > LeftToe (x 1, y 0.5, z 2); RightLeg and RightFoot mirrored on x.
class ActorTagsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    rt::Host::Get().ClearLog();
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig);
    hips = Node(rig, L"Hips", 0, 10, 0);
    cog = Node(hips, L"Cog", 0, 10, 0);
    chest = Node(cog, L"Chest", 0, 14, 0);
    leftLeg = Node(cog, L"LeftLeg", 1, 5, 0);
    leftFoot = Node(leftLeg, L"LeftFoot", 1, 1, 0);
    leftToe = Node(leftFoot, L"LeftToe", 1, 0.5, 2);
    rightLeg = Node(cog, L"RightLeg", -1, 5, 0);
    rightFoot = Node(rightLeg, L"RightFoot", -1, 1, 0);
  }
  // A null placed at a global position (its parents are unrotated and unscaled).
  static X3DObject Node(X3DObject parent, const wchar_t* name, double x, double y, double z) {
    X3DObject out;
    parent.AddNull(name, out);
    MATH::CTransformation place;
    place.SetIdentity();
    place.SetTranslationFromValues(x, y, z);
    out.GetKinematics().GetGlobal().PutTransform(place);
    return out;
  }
  void InitializeAndSetHome() {
    ASSERT_TRUE(InitializeActor(hips, false, ProgressBar()));
    ASSERT_TRUE(SetHome(hips, false, ProgressBar(), false));
  }
  static int Colour(const X3DObject& obj) {
    return Property(obj.GetProperties().GetItem(L"Display Property"))
        .GetParameterValue(L"wirecol")
        .AsInt();
  }
  static int Count(const X3DObject& obj, const wchar_t* name) {
    int n = 0;
    for (const CRef& ref : obj.GetProperties())
      n += Property(ref).GetName() == CString(name) ? 1 : 0;
    return n;
  }
  static double Value(X3DObject obj, const wchar_t* tag, const wchar_t* param) {
    Property p;
    EXPECT_TRUE(FindCustomPSet(obj, tag, p)) << tag;
    return p.GetParameterValue(param).AsDouble();
  }
  static double Radius(const X3DObject& sphere) {
    return sphere.GetActivePrimitive().GetParameterValue(L"radius").AsDouble();
  }
  static CRefArray Spheres(X3DObject node) {
    CRefArray out;
    FindRTKNodes(node, kTagSphere, out);
    return out;
  }
  std::vector<std::wstring>& Boxes() { return rt::Host::Get().ui().messageBoxes; }
  static std::wstring Box(const wchar_t* text) { return std::wstring(L"Kinra Export: ") + text; }
  Model rig;
  X3DObject hips, cog, chest, leftLeg, leftFoot, leftToe, rightLeg, rightFoot;
};

TEST_F(ActorTagsTest, SetCOGOnlyTwoLevelsBelowTheModelAndOnce) {
  {
    EXPECT_FALSE(SetCOG(chest));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{Box(L"The COG node must be two levels below the model.")});
    EXPECT_FALSE(HasTag(chest, kTagCogNode));
  }
  {
    Boxes().clear();
    EXPECT_FALSE(SetCOG(hips)) << "the root itself is one level below";
    EXPECT_EQ(Boxes().size(), 1u);
  }
  {
    Boxes().clear();
    EXPECT_TRUE(SetCOG(cog));
    EXPECT_TRUE(SetCOG(cog));
    EXPECT_TRUE(Boxes().empty());
    EXPECT_EQ(Count(cog, kTagCogNode), 1);
    X3DObject found;
    ASSERT_TRUE(GetCogNode(hips, found));
    EXPECT_EQ(found.GetRef(), cog.GetRef());
  }
  {  // A light under the root: refused as a light before the level is looked at.
    X3DObject light;
    hips.AddLight(L"Key", light);
    Boxes().clear();
    EXPECT_FALSE(SetCOG(light));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{Box(L"The COG node can not be a light or camera.")});
  }
  {  // Outside any model the scene root would be the model.
    X3DObject loose = Node(Application().GetActiveSceneRoot(), L"Loose", 0, 0, 0);
    Boxes().clear();
    EXPECT_FALSE(SetCOG(loose));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{Box(L"The actor description must be contained by a single "
                                            L"model (scene root not supported).")});
  }
  {  // A model nested under the root.
    Model inner;
    chest.AddModel(CRefArray(), L"Prop", inner);
    Boxes().clear();
    EXPECT_FALSE(SetCOG(cog));
    EXPECT_EQ(
        Boxes(),
        std::vector<std::wstring>{
            Box(L"The source description must be contained by a single model (embedded models not "
                L"supported).")});
  }
  {  // Removing: the tag goes; a second removal does nothing and says nothing.
    Boxes().clear();
    EXPECT_TRUE(RemoveCOG(cog));
    EXPECT_FALSE(HasTag(cog, kTagCogNode));
    EXPECT_FALSE(RemoveCOG(cog));
    EXPECT_TRUE(Boxes().empty());
  }
}

TEST_F(ActorTagsTest, SetFootNeedsAHomePoseAndAddsOneSphereThatTouchesTheGround) {
  {
    EXPECT_FALSE(SetFoot(leftFoot, true));
    EXPECT_EQ(
        Boxes(),
        std::vector<std::wstring>{
            Box(L"The Set Foot action can not be applied to an actor whose Home pose is not set.\n"
                L"Please set the Home pose and try again.")});
    EXPECT_FALSE(HasTag(leftFoot, kTagEffector));
    EXPECT_EQ(Spheres(leftFoot).GetCount(), 0);
  }
  InitializeAndSetHome();
  {
    Boxes().clear();
    EXPECT_FALSE(SetFoot(hips, true));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{
                  Box(L"The Set Foot action can not be applied to the root node of an actor.")});
    EXPECT_FALSE(HasTag(hips, kTagEffector));
  }
  {
    Boxes().clear();
    EXPECT_TRUE(SetFoot(leftFoot, true));
    EXPECT_TRUE(Boxes().empty());
    EXPECT_EQ(Count(leftFoot, kTagEffector), 1);
    EXPECT_EQ(Colour(leftFoot), kColourFoot);
    CRefArray spheres = Spheres(leftFoot);
    ASSERT_EQ(spheres.GetCount(), 1);
    X3DObject sphere(spheres[0]);
    EXPECT_EQ(sphere.GetName(), CString(L"LeftFoot_CS"));
    EXPECT_EQ(sphere.GetParent(), leftFoot.GetRef());
    EXPECT_EQ(sphere.GetType(), CString(L"sphere"));
    // The foot stands 1 above the ground in the home pose: a sphere of radius 1 on its pivot.
    EXPECT_DOUBLE_EQ(Radius(sphere), 1.0);
    EXPECT_DOUBLE_EQ(Value(sphere, kTagSphere, L"Radius"), 1.0);
    EXPECT_NEAR(sphere.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetY(), 1.0,
                1e-9);
    EXPECT_TRUE(HasTag(sphere, kTagNode));
    EXPECT_EQ(Colour(sphere), kColourSphere);
    EXPECT_FALSE(HasTag(sphere, kTagHomePose));
  }
  {  // Again on the same foot: one tag, and the existing sphere child is reported.
    Boxes().clear();
    EXPECT_TRUE(SetFoot(leftFoot, true));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{Box(
                           L"The foot node already has a collision sphere as a child.  You will\n"
                           L"need to add additional collision spheres manually.")});
    EXPECT_EQ(Count(leftFoot, kTagEffector), 1);
    EXPECT_EQ(Spheres(leftFoot).GetCount(), 1);
  }
  {  // Without the sphere (Shift held): tagged and coloured only.
    Boxes().clear();
    EXPECT_TRUE(SetFoot(rightFoot, false));
    EXPECT_TRUE(Boxes().empty());
    EXPECT_TRUE(HasTag(rightFoot, kTagEffector));
    EXPECT_EQ(Colour(rightFoot), kColourFoot);
    EXPECT_EQ(Spheres(rightFoot).GetCount(), 0);
  }
  {  // A foot below the ground in its home pose still gets a usable sphere.
    X3DObject low = Node(leftToe, L"Low", 1, -3, 2);
    AddHomePose(low, false, ProgressBar());
    X3DObject sphere = AddFootColSphere(low);
    ASSERT_TRUE(sphere.IsValid());
    EXPECT_GT(Radius(sphere), 0.0);
    EXPECT_LT(Radius(sphere), 1.0);
  }
}

TEST_F(ActorTagsTest, RemoveFootAsksAboutTheSpheresOfAFootOnly) {
  InitializeAndSetHome();
  ASSERT_TRUE(SetCollisionOnly(leftFoot));
  ASSERT_TRUE(SetFoot(leftFoot, true));
  X3DObject extra = AddColSphere(leftToe, false);
  ASSERT_TRUE(extra.IsValid());
  {  // No: the spheres stay, the tag is gone and the role colour is back.
    rt::Host::Get().ui().msgBoxAnswers.push_back(7);
    EXPECT_TRUE(RemoveFoot(leftFoot));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{Box(
                           L"Do you want to remove the collision spheres under the foot node?")});
    EXPECT_FALSE(HasTag(leftFoot, kTagEffector));
    EXPECT_EQ(Colour(leftFoot), kColourCollisionOnly);
    EXPECT_EQ(Spheres(leftFoot).GetCount(), 2);
  }
  {  // No tag, no foot: the spheres below are not the command's business, and nothing is asked.
    Boxes().clear();
    EXPECT_TRUE(RemoveFoot(leftFoot));
    EXPECT_TRUE(Boxes().empty());
    EXPECT_EQ(Spheres(leftFoot).GetCount(), 2);
    EXPECT_EQ(Colour(leftFoot), kColourCollisionOnly);
  }
  {  // A foot again: Yes deletes both spheres, the toe's included.
    ASSERT_TRUE(SetFoot(leftFoot, false));
    Boxes().clear();
    rt::Host::Get().ui().msgBoxAnswers.push_back(6);
    EXPECT_TRUE(RemoveFoot(leftFoot));
    EXPECT_EQ(Boxes().size(), 1u);
    EXPECT_EQ(Spheres(leftFoot).GetCount(), 0);
    EXPECT_FALSE(extra.IsValid());
    EXPECT_EQ(leftToe.GetChildren().GetCount(), 0);
  }
}

TEST_F(ActorTagsTest, RoleFlagsAndColoursAndAFootKeepsItsColour) {
  {
    struct Case {
      bool (*run)(X3DObject&);
      const wchar_t* message;
    } cases[] = {
        {SetCollisionOnly,
         L"The Set Collision Only action requires the selected node to be initialized.\n"
         L"Please initialize the actor and try again."},
        {SetVisualOnly,
         L"The Set Visual Only action requires the selected node to be initialized.\n"
         L"Please initialize the actor and try again."},
        {SetDefault,
         L"The Set Default action requires the selected node to be initialized.\n"
         L"Please initialize the actor and try again."},
    };
    for (const Case& c : cases) {
      Boxes().clear();
      EXPECT_FALSE(c.run(chest));
      EXPECT_EQ(Boxes(), std::vector<std::wstring>{Box(c.message)});
      EXPECT_EQ(Count(chest, L"Display Property"), 0)
          << "nothing is coloured before initialization";
    }
  }
  InitializeAndSetHome();
  Boxes().clear();
  struct Step {
    bool (*run)(X3DObject&);
    bool visual, collision;
    int colour;
  } steps[] = {{SetCollisionOnly, false, true, kColourCollisionOnly},
               {SetVisualOnly, true, false, kColourVisualOnly},
               {SetDefault, false, false, kColourDefaultNode},
               {SetVisualOnly, true, false, kColourVisualOnly}};
  ASSERT_TRUE(SetFoot(leftFoot, false));
  for (const Step& step : steps) {
    EXPECT_TRUE(step.run(chest));
    EXPECT_EQ(Value(chest, kTagNode, L"VisualizationOnly") != 0, step.visual);
    EXPECT_EQ(Value(chest, kTagNode, L"CollisionOnly") != 0, step.collision);
    EXPECT_EQ(Colour(chest), step.colour);
    EXPECT_TRUE(step.run(leftFoot));
    EXPECT_EQ(Value(leftFoot, kTagNode, L"VisualizationOnly") != 0, step.visual);
    EXPECT_EQ(Colour(leftFoot), kColourFoot);
  }
  EXPECT_TRUE(Boxes().empty());
  // The foot's role colour comes back when it stops being a foot.
  EXPECT_TRUE(RemoveFoot(leftFoot));
  EXPECT_EQ(Colour(leftFoot), kColourVisualOnly);
}

TEST_F(ActorTagsTest, CollisionSpheresAreSizedFromTheirBonesAndHaveNoHomePoseOfTheirOwn) {
  {
    X3DObject refused = AddColSphere(hips, true);
    EXPECT_FALSE(refused.IsValid());
    EXPECT_EQ(
        Boxes(),
        std::vector<std::wstring>{Box(
            L"The Add Collision Sphere action can not be applied to the root node of an actor.")});
    EXPECT_EQ(hips.GetChildren().GetCount(), 1);
  }
  InitializeAndSetHome();
  {  // LeftLeg to LeftFoot is 4 long: a quarter of it.
    X3DObject sphere = AddColSphere(leftLeg, false);
    ASSERT_TRUE(sphere.IsValid());
    EXPECT_DOUBLE_EQ(Radius(sphere), 1.0);
    EXPECT_DOUBLE_EQ(Value(sphere, kTagSphere, L"Radius"), 1.0);
    EXPECT_EQ(sphere.GetName(), CString(L"LeftLeg_CS"));
    // A second sphere does not count as the bone: still a quarter of the leg.
    X3DObject second = AddColSphere(leftLeg, false);
    EXPECT_DOUBLE_EQ(Radius(second), 1.0);
    EXPECT_NE(second.GetName(), sphere.GetName());
  }
  {  // A leaf takes the bone that arrives: LeftFoot to LeftToe is sqrt(0.25 + 4).
    X3DObject sphere = AddColSphere(leftToe, false);
    EXPECT_NEAR(Radius(sphere), 0.25 * std::sqrt(4.25), 1e-6);
  }
  {  // A joint on top of its child still gets the smallest usable sphere.
    X3DObject stacked = Node(chest, L"Stacked", 0, 14, 0);
    X3DObject sphere = AddColSphere(chest, false);
    EXPECT_GT(Radius(sphere), 0.0);
    (void)stacked;
  }
  {  // Inspecting asks the host for the page of the sphere's primitive.
    EXPECT_EQ(Boxes().size(), 1u) << "only the root refusal";
    CValue ignored;
    Application().ExecuteCommand(L"SetValue", {L"preferences.scripting.cmdlog", true}, ignored);
    size_t before = rt::Host::Get().LogLines().size();
    X3DObject sphere = AddColSphere(rightLeg, true);
    ASSERT_TRUE(sphere.IsValid());
    const std::wstring call = L"InspectObj(\"" + sphere.GetFullName().Wide() +
                              L".Sphere\", \"\", \"Collision Sphere\", 4, false)";
    bool asked = false;
    const auto& lines = rt::Host::Get().LogLines();
    for (size_t i = before; i < lines.size(); ++i) asked = asked || lines[i].text == call;
    EXPECT_TRUE(asked) << "expected " << std::string(call.begin(), call.end());
  }
  {  // Set Home again: the spheres stay without a pose, a node under a sphere gets one.
    X3DObject sphere(leftLeg.GetChildren().GetItem(L"LeftLeg_CS"));
    X3DObject under = Node(sphere, L"Under", 1, 3, 0);
    ASSERT_TRUE(SetHome(hips, false, ProgressBar(), true));
    EXPECT_FALSE(HasTag(sphere, kTagHomePose));
    for (const CRef& ref : Spheres(hips)) EXPECT_FALSE(HasTag(X3DObject(ref), kTagHomePose));
    EXPECT_TRUE(HasTag(under, kTagHomePose));
    EXPECT_DOUBLE_EQ(Value(under, kTagHomePose, L"py"), 3.0);
  }
}

TEST_F(ActorTagsTest, AddFloorRefusesInOrderAndLaysAQuadUnderTheMesh) {
  X3DObject body;
  cog.AddGeometry(L"Cube", L"MeshSurface", L"Body", body);  // edge 8 around the pivot
  MATH::CTransformation place;
  place.SetIdentity();
  place.SetTranslationFromValues(2, 7, -1);
  place.SetRotationFromXYZAnglesValues(0, std::atan(1.0), 0);  // 45 degrees about y
  body.GetKinematics().GetGlobal().PutTransform(place);
  const std::wstring uninitialized =
      Box(L"The Add Floor action requires the selected node to be initialized.\nPlease initialize "
          L"the actor and try again.");
  {
    EXPECT_FALSE(AddFloor(hips));
    EXPECT_EQ(Boxes().back(),
              Box(L"The Add Floor action can not be applied to the root node of an actor."));
    EXPECT_FALSE(AddFloor(body));
    EXPECT_EQ(Boxes().back(), uninitialized);
  }
  InitializeAndSetHome();
  {
    Boxes().clear();
    EXPECT_FALSE(AddFloor(chest));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{Box(L"The Add Floor action can not be applied to a node "
                                            L"without an associated polygon mesh.")});
    EXPECT_EQ(chest.GetChildren().GetCount(), 0);
  }
  X3DObject floor;
  {
    Boxes().clear();
    ASSERT_TRUE(AddFloor(body));
    EXPECT_TRUE(Boxes().empty());
    floor = X3DObject(body.GetChildren().GetItem(L"Floor"));
    ASSERT_TRUE(floor.IsValid());
    EXPECT_TRUE(HasTag(floor, kTagFloor));
    // The cube's top is 8 above its bottom.
    EXPECT_NEAR(Value(floor, kTagFloor, L"Top"), 8.0, 1e-5);
    // Level at the cube's bottom, centred under it, spanning the turned cube's x/z extent.
    MATH::CTransformation global = floor.GetKinematics().GetGlobal().GetTransform();
    EXPECT_NEAR(global.GetTranslation().GetX(), 2.0, 1e-9);
    EXPECT_NEAR(global.GetTranslation().GetY(), 3.0, 1e-9);
    EXPECT_NEAR(global.GetTranslation().GetZ(), -1.0, 1e-9);
    EXPECT_NEAR(std::fabs(global.GetRotationQuaternion().GetW()), 1.0, 1e-9);
    Geometry quad = floor.GetActivePrimitive().GetGeometry();
    EXPECT_EQ(quad.GetPolygonCount(), 1);
    EXPECT_EQ(quad.GetTriangleCount(), 2);
    MATH::CVector3 lo, hi;
    ASSERT_TRUE(quad.GetBoundingBox(lo, hi).Succeeded());
    const double half = 4.0 * std::sqrt(2.0);
    EXPECT_NEAR(lo.GetX(), -half, 1e-9);
    EXPECT_NEAR(hi.GetX(), half, 1e-9);
    EXPECT_NEAR(lo.GetZ(), -half, 1e-9);
    EXPECT_NEAR(hi.GetZ(), half, 1e-9);
    EXPECT_DOUBLE_EQ(lo.GetY(), 0.0);
    EXPECT_DOUBLE_EQ(hi.GetY(), 0.0);
  }
  {  // A second floor is refused; the refusal order puts the mesh test before it.
    Boxes().clear();
    EXPECT_FALSE(AddFloor(body));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{
                           Box(L"A floor node already exists under the selected node.")});
    EXPECT_EQ(body.GetChildren().GetCount(), 1);
  }
  {  // Removing: the floor goes, then there is nothing to remove.
    Boxes().clear();
    EXPECT_TRUE(RemoveFloor(body));
    EXPECT_FALSE(floor.IsValid());
    EXPECT_FALSE(RemoveFloor(body));
    EXPECT_TRUE(Boxes().empty());
    // A floor again after removal; "Floor" is free once more.
    ASSERT_TRUE(AddFloor(body));
    EXPECT_TRUE(body.GetChildren().GetItem(L"Floor").IsValid());
  }
}

TEST_F(ActorTagsTest, JointLimitOnInitializedNodesOnce) {
  {
    EXPECT_FALSE(AddKinraJL(chest));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{
                  Box(L"The Add Joint Limit action requires the selected node to be initialized.\n"
                      L"Please initialize the actor and try again.")});
    EXPECT_EQ(Count(chest, kTagJointLimit), 0);
  }
  InitializeAndSetHome();
  {
    Boxes().clear();
    EXPECT_FALSE(AddKinraJL(hips));
    EXPECT_EQ(Boxes(),
              std::vector<std::wstring>{Box(
                  L"The Add Joint Limit action can not be applied to the root node of an actor.")});
    EXPECT_EQ(Count(hips, kTagJointLimit), 0);
  }
  {
    Boxes().clear();
    EXPECT_TRUE(AddKinraJL(chest));
    EXPECT_TRUE(AddKinraJL(chest));
    EXPECT_TRUE(Boxes().empty());
    EXPECT_EQ(Count(chest, kTagJointLimit), 1);
    Property limits;
    ASSERT_TRUE(FindProperty(chest, kTagJointLimit, limits));
    EXPECT_EQ(limits.GetParameterValue(L"XEnable").AsBool(), false);
    EXPECT_DOUBLE_EQ(limits.GetParameterValue(L"ZMin").AsDouble(), -180.0);
    EXPECT_DOUBLE_EQ(limits.GetParameterValue(L"YMax").AsDouble(), 180.0);
  }
  {
    EXPECT_TRUE(RemoveJointLimit(chest));
    EXPECT_EQ(Count(chest, kTagJointLimit), 0);
    EXPECT_FALSE(RemoveJointLimit(chest));
    EXPECT_FALSE(RemoveJointLimit(cog));
    EXPECT_TRUE(Boxes().empty());
  }
}

TEST_F(ActorTagsTest, ExtractorsFindFeetSpheresHeelsToesAndTheLowestBottom) {
  InitializeAndSetHome();
  ASSERT_TRUE(SetFoot(rightFoot, false));
  ASSERT_TRUE(SetFoot(leftFoot, false));
  {  // Feet in depth-first order, whatever order they were tagged in.
    CRefArray feet;
    ExtractFeet(hips, feet);
    ASSERT_EQ(feet.GetCount(), 2);
    EXPECT_EQ(feet[0], leftFoot.GetRef());
    EXPECT_EQ(feet[1], rightFoot.GetRef());
  }
  // Spheres on the left foot: one behind (z -0.5), one forward (z 1.5), one on the toe (z 2).
  X3DObject back = AddColSphere(leftFoot, false), front = AddColSphere(leftFoot, false);
  X3DObject toe = AddColSphere(leftToe, false);
  back.PutParameterValue(L"posz", -0.5);
  front.PutParameterValue(L"posz", 1.5);
  {
    CRefArray direct, all;
    ExtractColSpheres(leftFoot, direct, false);
    ExtractColSpheres(leftFoot, all, true);
    EXPECT_EQ(direct.GetCount(), 2);
    ASSERT_EQ(all.GetCount(), 3);
    EXPECT_EQ(all[0], toe.GetRef()) << "pre-order: the toe comes before the later spheres";
    EXPECT_EQ(all[1], back.GetRef());
    CRefArray none;
    ExtractColSpheres(rightFoot, none, true);
    EXPECT_EQ(none.GetCount(), 0);
  }
  {  // Positions come from the home pose, not from where the actor stands now.
    leftFoot.PutParameterValue(L"roty", 180.0);
    EXPECT_EQ(FindHeel(leftFoot).GetRef(), back.GetRef());
    EXPECT_EQ(FindToe(leftFoot).GetRef(), toe.GetRef());
    EXPECT_EQ(FindHeel(rightFoot).GetRef(), rightFoot.GetRef());
    EXPECT_EQ(FindToe(rightFoot).GetRef(), rightFoot.GetRef());
    CRefArray feet, heels;
    ExtractFeet(hips, feet);
    ExtractHeels(feet, heels);
    ASSERT_EQ(heels.GetCount(), 2);
    EXPECT_EQ(heels[0], back.GetRef());
    EXPECT_EQ(heels[1], rightFoot.GetRef());
    leftFoot.PutParameterValue(L"roty", 0.0);
  }
  {  // Bottoms: centre y minus radius times the y scaling.
    CRefArray spheres;
    ExtractColSpheres(leftFoot, spheres, true);
    double lowest = 1e30;
    for (const CRef& ref : spheres) {
      X3DObject s(ref);
      lowest = std::min(
          lowest, s.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetY() - Radius(s));
    }
    float bottom = 100.0f;
    CheckBottom(spheres, bottom, 1);
    EXPECT_NEAR(bottom, lowest, 1e-6);
    // Hand-computed: the toe sphere at y 0.5 with radius sqrt(4.25) / 4.
    EXPECT_NEAR(bottom, 0.5 - 0.25 * std::sqrt(4.25), 1e-6);
    // Never raised.
    float already = -5.0f;
    CheckBottom(spheres, already, 1);
    EXPECT_FLOAT_EQ(already, -5.0f);
    // The foot scaled by 2 on y: centres move down with the scaling, radii double.
    back.GetActivePrimitive().PutParameterValue(L"radius", 3.0);
    leftFoot.PutParameterValue(L"scly", 2.0);
    bottom = 100.0f;
    CRefArray one;
    one.Add(back);
    CheckBottom(one, bottom, 1);
    EXPECT_NEAR(bottom, 1.0 - 3.0 * 2.0, 1e-6);
  }
  {  // The frame is honoured: the foot's local height keyed 1 at frame 1 and 11 at frame 11,
     // under the leg at y 5.
    FCurve curve;
    ASSERT_TRUE(leftFoot.GetParameter(L"posy").AddFCurve(siStandardFCurve, curve).Succeeded());
    curve.AddKey(CTime(1), 1.0);
    curve.AddKey(CTime(11), 11.0);
    leftFoot.PutParameterValue(L"scly", 1.0);
    CRefArray one;
    one.Add(back);
    float bottom = 100.0f;
    CheckBottom(one, bottom, 11);
    EXPECT_NEAR(bottom, 5.0 + 11.0 - 3.0, 1e-5);
  }
}

}  // namespace
