// Scene-building and value host commands run by name: what they make, and the exact failures
// for arguments they cannot use (which must change nothing).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/args.h"
#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "zyra/application.h"
#include "zyra/scene.h"
#include "zyra/x3dobject.h"

using namespace Zyra;

namespace {

class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override { rt::Host::Get().NewScene(); }

  CStatus Run(const wchar_t* name, CValueArray args, CValue* out = nullptr) {
    CValue result;
    CStatus status = Application().ExecuteCommand(name, args, result);
    if (out) *out = result;
    return status;
  }
  CRef Make(const wchar_t* name, CValueArray args) {
    CValue out;
    CStatus status = Run(name, args, &out);
    EXPECT_TRUE(status.Succeeded()) << ToUtf8(status.GetMessage().Wide());
    return out.AsRef();
  }
  size_t ObjectCount() { return rt::Descendants(*rt::Host::Get().scene().root).size(); }
  std::string Message(const CStatus& s) { return ToUtf8(s.GetMessage().Wide()); }
};

TEST_F(CommandTest, CreationCommandsReturnWhatTheyMake) {
  X3DObject model = Make(L"CreateModel", {L"Fred"});
  X3DObject hips = Make(L"CreateNull", {L"Hips", model.GetRef()});
  X3DObject spine = Make(L"CreateNull", {L"Spine", L"Fred.Hips"});
  EXPECT_EQ(spine.GetParent(), hips.GetRef());
  EXPECT_EQ(spine.GetFullName(), CString(L"Fred.Spine"));
  X3DObject ball = Make(L"CreatePrimitive", {L"Sphere", L"Ball", L"Fred.Spine"});
  EXPECT_EQ(ball.GetType(), CString(L"sphere"));
  EXPECT_TRUE(Run(L"SetValue", {L"Fred.Ball.radius", 2.5}).Succeeded());
  MATH::CVector3 lo, hi;
  ASSERT_TRUE(ball.GetActivePrimitive().GetGeometry().GetBoundingBox(lo, hi).Succeeded());
  EXPECT_DOUBLE_EQ(hi.GetY(), 2.5) << "a sphere is bounded by its radius";
  ProjectItem page(Application().GetObjectFromPath(L"Fred.Ball.Sphere"));
  EXPECT_EQ(page.GetRef(), ball.GetActivePrimitive().GetRef()) << "the primitive is reached by its name";
  EXPECT_DOUBLE_EQ(page.GetParameterValue(L"radius").AsDouble(), 2.5);
  X3DObject light = Make(L"CreateLight", {L"Key", L"Fred"});
  EXPECT_EQ(light.GetClassID(), siLightID);
  X3DObject tri = Make(L"CreatePolygonMesh", {L"Tri", L"0,0,0 1,0,0 0,1,0", L"3,0,1,2"});
  EXPECT_EQ(tri.GetActivePrimitive().GetGeometry().GetTriangleCount(), 1);

  ChainRoot root = Make(L"CreateChain", {L"Arm", L"Fred", 0, 0, 0, 2, 0, 0, 2, 3, 0});
  ASSERT_TRUE(root.IsValid());
  CRefArray bones = root.GetBones();
  ASSERT_EQ(bones.GetCount(), 2);
  ChainEffector eff = root.GetEffector();
  ASSERT_TRUE(eff.IsValid());
  EXPECT_EQ(ChainElement(bones[1]).GetRoot(), root.GetRef());
  EXPECT_EQ(ChainElement(eff).GetRoot(), root.GetRef());
  // The second bone starts at the first bone's end and points at its own end (+Y globally).
  MATH::CTransformation g = X3DObject(bones[1]).GetKinematics().GetGlobal().GetTransform();
  EXPECT_NEAR(g.GetTranslation().GetX(), 2.0, 1e-9);
  MATH::CVector3 axis = g.GetRotationQuaternion().Rotate(MATH::CVector3(1, 0, 0));
  EXPECT_NEAR(axis.GetY(), 1.0, 1e-9);
  EXPECT_NEAR(eff.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetY(), 3.0, 1e-9);
}

TEST_F(CommandTest, BadArgumentsFailWithClearMessagesAndChangeNothing) {
  Make(L"CreateNull", {L"A"});
  size_t before = ObjectCount();
  struct Case {
    const wchar_t* command;
    CValueArray args;
    const char* message;
  };
  const Case cases[] = {
      {L"CreateNull", {L"B", L"Nobody"}, "CreateNull: \"Nobody\" is not a 3D object to put it under."},
      {L"CreateNull", {}, "CreateNull: argument 1 must be a name."},
      {L"CreatePrimitive", {L"Torus", L"T"}, "CreatePrimitive: unknown primitive \"Torus\" (Cube or Sphere)."},
      {L"CreatePolygonMesh", {L"M", L"0,0,0 1,0,0", L"3,0,1,2"},
       "CreatePolygonMesh: Polygon data refers to point 2 of 2."},
      {L"CreatePolygonMesh", {L"M", L"0,0,x", L"3,0,1,2"}, "CreatePolygonMesh: \"x\" is not a number."},
      {L"CreateChain", {L"C", L"", 0, 0, 0}, "CreateChain: needs a root position and at least one bone end (x y z each)."},
      {L"DeleteObj", {L"Scene_Root"}, "DeleteObj: Scene_Root cannot be deleted."},
      {L"DeleteObj", {L"A,Ghost"}, "DeleteObj: No object is named \"Ghost\"."},
      {L"DeleteObj", {L"A.kine"}, "DeleteObj: A.kine cannot be deleted."},
      {L"SetValue", {L"A.posq", 1.0}, "SetValue: no parameter is named \"A.posq\"."},
      {L"SetValue", {L"A", 1.0}, "SetValue: A is not a parameter."},
      {L"SetValue", {L"A.posx"}, "SetValue: no value given for A.kine.local.posx."},
      {L"SetValue", {L"A.posx", L"far"}, "SetValue: Cannot put far on A.kine.local.posx: \"far\" is not a number."},
      {L"ParentObj", {L"A", L"A"}, "ParentObj: Cannot put A under A: it lies below it."},
      {L"Rename", {L"Scene_Root", L"X"}, "Rename: Scene_Root cannot be renamed."},
      {L"ExportRenderArchive", {L"A", 1, 1, 1}, "ExportRenderArchive: \"A\" is not a pass."},
  };
  for (const Case& c : cases) {
    CStatus status = Run(c.command, c.args);
    EXPECT_FALSE(status.Succeeded()) << ToUtf8(c.command);
    EXPECT_EQ(Message(status), c.message);
  }
  EXPECT_EQ(ObjectCount(), before);
  EXPECT_TRUE(Application().GetObjectFromPath(L"A").IsValid()) << "a failed list deletes nothing";
  EXPECT_EQ(X3DObject(Application().GetObjectFromPath(L"A")).GetParameterValue(L"posx").AsDouble(), 0.0);
  EXPECT_EQ(Message(Run(L"NoSuchCommand", {})), "Unknown command \"NoSuchCommand\".");
}

// The argument readers every host command shares.
TEST_F(CommandTest, ArgumentHelpersReadOnlyWhatTheyCanRepresent) {
  {  // positions past the end (or before the start) are empty values
    const CValueArray args = {1, L"x"};
    EXPECT_EQ(rt::Arg(args, 1).GetAsText().Wide(), L"x");
    EXPECT_TRUE(rt::Arg(args, 2).IsEmpty());
    EXPECT_TRUE(rt::Arg(args, -1).IsEmpty());
    EXPECT_TRUE(rt::Arg(CValueArray(), 0).IsEmpty());
  }
  {  // numbers: numeric values and texts; nothing else, nothing infinite
    double d = -7;
    EXPECT_TRUE(rt::ArgNumber(CValue(L"-2.5e1"), d));
    EXPECT_EQ(d, -25.0);
    EXPECT_TRUE(rt::ArgNumber(CValue(true), d));
    EXPECT_EQ(d, 1.0);
    for (const CValue& bad : {CValue(), CValue(L"ten"), CValue(L""), CValue(CValueArray{1}),
                              CValue(CRef()), CValue(1e308 * 10)}) {
      EXPECT_FALSE(rt::ArgNumber(bad, d)) << bad.GetAsText().GetAsciiString();
    }
  }
  {  // integers: whole numbers that fit, never a value cast out of range
    int n = 0;
    EXPECT_TRUE(rt::ArgInteger(CValue(L"12"), n));
    EXPECT_EQ(n, 12);
    EXPECT_TRUE(rt::ArgInteger(CValue(-1e9), n));
    EXPECT_EQ(n, -1000000000);
    n = 5;
    for (const CValue& bad : {CValue(2.5), CValue(4294967297.0), CValue(1e12), CValue(-3e9),
                              CValue(L"1e300")}) {
      EXPECT_FALSE(rt::ArgInteger(bad, n)) << bad.GetAsText().GetAsciiString();
    }
    EXPECT_EQ(n, 5) << "a refused integer leaves the output alone";
  }
  EXPECT_EQ(rt::Quoted(CValue(L"a b")), L"\"a b\"");
  {  // through commands: an integer argument too large for an int is refused, not wrapped
    Make(L"CreateNull", {L"A"});
    EXPECT_EQ(Message(Run(L"Rotate", {L"A", 0, 0, 0, 4294967297.0})),
              "Rotate: delta must be 0 (absolute) or 1 (relative), got \"4294967297\".");
    EXPECT_FALSE(Run(L"SetKey", {L"A.posx", 1, 0, 4294967298.0}).Succeeded());
    EXPECT_FALSE(Parameter(Application().GetObjectFromPath(L"A.posx")).IsAnimated());
  }
}

TEST_F(CommandTest, ValuesAndDefinitionsThroughPaths) {
  Make(L"CreateNull", {L"A"});
  X3DObject b = Make(L"CreateNull", {L"B", L"A"});
  ASSERT_TRUE(Run(L"SetValue", {L"A.posx", 2.0}).Succeeded());
  ASSERT_TRUE(Run(L"SetValue", {L"A.sclx", 2.0}).Succeeded());
  ASSERT_TRUE(Run(L"SetValue", {L"B.kine.global.posx", 10.0}).Succeeded());
  CValue v;
  ASSERT_TRUE(Run(L"GetValue", {L"B.posx"}, &v).Succeeded());
  EXPECT_DOUBLE_EQ(v.AsDouble(), 4.0) << "local = (global - parent) / parent scaling";
  ASSERT_TRUE(Run(L"GetValue", {L"B.kine.global.posx"}, &v).Succeeded());
  EXPECT_DOUBLE_EQ(v.AsDouble(), 10.0);
  ASSERT_TRUE(Run(L"GetValue", {L"preferences.output_format.frame_rate"}, &v).Succeeded());
  EXPECT_DOUBLE_EQ(v.AsDouble(), 30.0);
  ASSERT_TRUE(Run(L"GetValue", {L"B"}, &v).Succeeded());
  EXPECT_EQ(v.AsRef(), b.GetRef());

  CustomProperty prop = b.AddProperty(L"Custom_parameter_list", false, L"Loop");
  Parameter start;
  ASSERT_TRUE(prop.AddParameter(L"Start", siInt4, 4, L"", L"", 50, 0, 100, 0, 100, start).Succeeded());
  ASSERT_TRUE(Run(L"EditParameterDefinition", {L"A.B.Loop.Start", 10, 20}).Succeeded() == false);
  ASSERT_TRUE(Run(L"EditParameterDefinition", {L"B.Loop.Start", 10, 20, CValue(), 20}).Succeeded());
  EXPECT_EQ(start.GetMin().AsInt(), 10);
  EXPECT_EQ(start.GetSuggestedMax().AsInt(), 20);
  EXPECT_EQ(start.GetValue().AsInt(), 20) << "the value follows the narrower range";
}

TEST_F(CommandTest, SelectionGroupsAndEnvelopes) {
  Make(L"CreateNull", {L"A"});
  Make(L"CreateNull", {L"B"});
  ASSERT_TRUE(Run(L"SelectObj", {L"A,B"}).Succeeded());
  EXPECT_EQ(Application().GetSelection().GetCount(), 2);
  ASSERT_TRUE(Run(L"DeselectAll", {}).Succeeded());
  EXPECT_EQ(Application().GetSelection().GetCount(), 0);

  Group g = Make(L"CreateGroup", {L"Targets", L"A,B"});
  EXPECT_EQ(g.GetMembers().GetCount(), 2);
  EXPECT_EQ(Application().GetObjectFromPath(L"Targets"), g.GetRef());
  X3DObject clash = Make(L"CreateNull", {L"Targets"});
  EXPECT_EQ(clash.GetName(), CString(L"Targets1")) << "groups share the root's name space";
  ASSERT_TRUE(Run(L"DeleteObj", {L"B"}).Succeeded());
  EXPECT_EQ(g.GetMembers().GetCount(), 1);

  X3DObject mesh = Make(L"CreatePolygonMesh", {L"Skin", L"0,0,0 1,0,0 0,1,0 1,1,0", L"4,0,1,3,2"});
  Make(L"CreateNull", {L"C"});
  Envelope env = Make(L"ApplyEnvelope", {L"Skin", L"A", L"C"});
  ASSERT_TRUE(env.IsValid());
  EXPECT_EQ(env.GetDeformers().GetCount(), 2);
  EXPECT_DOUBLE_EQ(env.GetDeformerWeights(Application().GetObjectFromPath(L"A"))[3], 50.0);
  ASSERT_TRUE(Run(L"SetDeformerWeights", {L"Skin", L"C", L"100,0,25,75"}).Succeeded());
  EXPECT_DOUBLE_EQ(env.GetDeformerWeights(Application().GetObjectFromPath(L"C"))[2], 25.0);
  EXPECT_EQ(Message(Run(L"SetDeformerWeights", {L"Skin", L"C", L"1,2"})),
            "SetDeformerWeights: The envelope of Skin has 4 points, got 2 weights.");
  EXPECT_EQ(Message(Run(L"SetDeformerWeights", {L"Skin", L"Targets1", L"1,2,3,4"})),
            "SetDeformerWeights: Targets1 does not deform Skin.");
  EXPECT_EQ(mesh.GetEnvelopes().GetCount(), 1);
}

TEST_F(CommandTest, RenderArchiveHoldsRenderVisibleGeometryPerFrame) {
  Make(L"CreatePrimitive", {L"Cube", L"Seen"});
  Make(L"CreatePrimitive", {L"Cube", L"Hidden"});
  Make(L"CreateNull", {L"NoGeometry"});
  ASSERT_TRUE(Run(L"SetValue", {L"Hidden.visibility.rendvis", false}).Succeeded());
  ASSERT_TRUE(Run(L"SetValue", {L"Seen.posy", 3.0}).Succeeded());
  CValue pass;
  ASSERT_TRUE(Run(L"GetCurrentPass", {}, &pass).Succeeded());
  EXPECT_EQ(pass.GetAsText(), CString(L"Passes.Default_Pass"));
  std::string file = ::testing::TempDir() + "archive.txt";
  ASSERT_TRUE(Run(L"SetValue", {L"Passes.Default_Pass.ArchiveFileName", CString(file)}).Succeeded());
  ASSERT_TRUE(Run(L"ExportRenderArchive", {pass, 1, 2, 1}).Succeeded());
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(),
            "zyra-render-archive 1\nframe 1\n"
            "object \"Seen\" t 0 3 0 q 1 0 0 0 s 1 1 1 points 8 polygons 6\nend\n"
            "frame 2\n"
            "object \"Seen\" t 0 3 0 q 1 0 0 0 s 1 1 1 points 8 polygons 6\nend\n");
  std::remove(file.c_str());
}

}  // namespace
