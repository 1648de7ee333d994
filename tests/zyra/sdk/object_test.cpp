// The object graph through the SDK: names and name spaces, full names and paths, handles to
// deleted objects, class checks, properties and parameters.
#include <gtest/gtest.h>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "zyra/application.h"
#include "zyra/object.h"
#include "zyra/scene.h"
#include "zyra/x3dobject.h"

using namespace Zyra;

namespace {

class ObjectTest : public ::testing::Test {
 protected:
  void SetUp() override { rt::Host::Get().NewScene(); }
  Model Root() { return Application().GetActiveSceneRoot(); }
  X3DObject Null(X3DObject parent, const wchar_t* name) {
    X3DObject out;
    EXPECT_TRUE(parent.AddNull(name, out).Succeeded());
    return out;
  }
  Model NewModel(X3DObject parent, const wchar_t* name) {
    Model out;
    EXPECT_TRUE(parent.AddModel(CRefArray(), name, out).Succeeded());
    return out;
  }
};

TEST_F(ObjectTest, NamesAreUniquePerNameSpaceAndFullNamesFollowModels) {
  Model root = Root();
  EXPECT_EQ(root.GetFullName(), CString(L"Scene_Root"));
  X3DObject hips = Null(root, L"Hips");
  X3DObject hips1 = Null(hips, L"Hips");
  X3DObject hips2 = Null(root, L"Hips");
  EXPECT_EQ(hips1.GetName(), CString(L"Hips1"));
  EXPECT_EQ(hips2.GetName(), CString(L"Hips2"));

  // A model opens a name space of its own: the same name is free inside it.
  Model fred = NewModel(root, L"Fred");
  X3DObject inner = Null(fred, L"Hips");
  EXPECT_EQ(inner.GetName(), CString(L"Hips"));
  EXPECT_EQ(inner.GetFullName(), CString(L"Fred.Hips"));
  X3DObject deep = Null(inner, L"Spine");
  EXPECT_EQ(deep.GetFullName(), CString(L"Fred.Spine"));

  // Renaming to a taken name numbers it; trailing digits are replaced, not appended to.
  EXPECT_TRUE(hips2.PutName(L"Hips1").Succeeded());
  EXPECT_EQ(hips2.GetName(), CString(L"Hips2")) << "its own name counts as free";
  EXPECT_TRUE(hips2.PutName(L"Free").Succeeded());
  EXPECT_EQ(hips2.GetName(), CString(L"Free"));
  EXPECT_FALSE(root.PutName(L"Other").Succeeded());
  EXPECT_FALSE(hips2.PutName(L"").Succeeded());

  // Moving a branch into another name space renames what collides there.
  X3DObject spare = Null(root, L"Spine");
  EXPECT_TRUE(inner.AddChild(spare).Succeeded());
  EXPECT_EQ(spare.GetFullName(), CString(L"Fred.Spine1"));
}

TEST_F(ObjectTest, PathsReachObjectsPropertiesAndParameters) {
  Model fred = NewModel(Root(), L"Fred");
  X3DObject hips = Null(fred, L"Hips");
  Parameter byShortPath(Application().GetObjectFromPath(L"Fred.Hips.posx"));
  Parameter byLongPath(Application().GetObjectFromPath(L"Fred.Hips.kine.local.posx"));
  ASSERT_TRUE(byShortPath.IsValid());
  EXPECT_EQ(byShortPath.GetRef(), byLongPath.GetRef());
  EXPECT_EQ(byShortPath.GetRef(), hips.GetParameter(L"posx").GetRef());
  EXPECT_EQ(byLongPath.GetFullName(), CString(L"Fred.Hips.kine.local.posx"));

  Property tag = hips.AddProperty(L"Custom_parameter_list", false, L"RTKNode");
  EXPECT_EQ(tag.GetFullName(), CString(L"Fred.Hips.RTKNode"));
  EXPECT_EQ(Application().GetObjectFromPath(L"Fred.Hips.RTKNode"), tag.GetRef());
  EXPECT_TRUE(Application().GetObjectFromPath(L"preferences.scripting.cmdlog").IsValid());
  EXPECT_TRUE(Application().GetObjectFromPath(L"PlayControl.Current").IsValid());
  EXPECT_TRUE(Application().GetObjectFromPath(L"Passes.Default_Pass.renderer.ArchiveAsciiOutput").IsValid());

  // Nothing answers to a missing segment anywhere along the path.
  for (const wchar_t* path : {L"Fred.Nobody", L"Fred.Hips.nothing", L"Hips", L"Fred..Hips", L"", L"."}) {
    CRef ref;
    EXPECT_FALSE(ref.Set(path).Succeeded()) << ToUtf8(path);
    EXPECT_FALSE(ref.IsValid());
  }
}

TEST_F(ObjectTest, HandlesToDeletedObjectsGoInvalid) {
  Model root = Root();
  X3DObject arm = Null(root, L"Arm");
  X3DObject hand = Null(arm, L"Hand");
  Property tag = hand.AddProperty(L"Custom_parameter_list", false, L"Tag");
  Parameter posx = hand.GetParameter(L"posx");
  Application().GetSelection().Add(hand);
  ASSERT_EQ(Application().GetSelection().GetCount(), 1);

  CValue ignored;
  ASSERT_TRUE(Application().ExecuteCommand(L"DeleteObj", {CValue(arm.GetRef())}, ignored).Succeeded());
  for (const ZrObject& gone : {ZrObject(arm), ZrObject(hand), ZrObject(tag), ZrObject(posx)}) {
    EXPECT_FALSE(gone.IsValid());
    EXPECT_TRUE(gone.GetName().IsEmpty());
  }
  EXPECT_FALSE(X3DObject(hand.GetRef()).IsValid());
  EXPECT_FALSE(posx.PutValue(1.0).Succeeded());
  EXPECT_EQ(Application().GetSelection().GetCount(), 0);
  // A new object of the same name is not reached through the old handle.
  X3DObject again = Null(root, L"Arm");
  EXPECT_EQ(again.GetName(), CString(L"Arm"));
  EXPECT_FALSE(arm.IsValid());
  EXPECT_FALSE(arm.GetRef() == again.GetRef());
}

TEST_F(ObjectTest, TypedHandlesCheckTheClass) {
  Model root = Root();
  X3DObject null = Null(root, L"N");
  Property tag = null.AddProperty(L"Custom_parameter_list", false, L"Tag");
  X3DObject light;
  ASSERT_TRUE(root.AddLight(L"Key", light).Succeeded());
  EXPECT_EQ(light.GetClassID(), siLightID);
  EXPECT_TRUE(X3DObject(light.GetRef()).IsValid());
  EXPECT_FALSE(Model(null.GetRef()).IsValid());
  EXPECT_TRUE(Model(root.GetRef()).IsValid());
  EXPECT_FALSE(X3DObject(tag.GetRef()).IsValid());
  EXPECT_TRUE(CustomProperty(tag.GetRef()).IsValid());
  EXPECT_FALSE(UserDataBlob(tag.GetRef()).IsValid());
  EXPECT_FALSE(Parameter(tag.GetRef()).IsValid());
  EXPECT_FALSE(ChainElement(null.GetRef()).IsValid());
  EXPECT_EQ(null.GetModel().GetRef(), root.GetRef());
  Model m = NewModel(root, L"M");
  EXPECT_EQ(m.GetModel().GetRef(), m.GetRef());
  EXPECT_EQ(Null(Null(m, L"A"), L"B").GetModel().GetRef(), m.GetRef());
}

TEST_F(ObjectTest, CustomParametersKeepTypesRangesAndFlags) {
  X3DObject node = Null(Root(), L"Node");
  CustomProperty tag = node.AddProperty(L"Custom_parameter_list", false, L"RTKActor");
  Parameter radius;
  ASSERT_TRUE(tag.AddParameter(L"Radius", siFloat, 6, L"", L"", 1.0, 0.0, 3.4028235e38, 0.0, 100.0, radius)
                  .Succeeded());
  EXPECT_EQ(radius.GetValueType(), siFloat);
  EXPECT_EQ(radius.GetValue().GetType(), siFloat);
  EXPECT_FLOAT_EQ(radius.GetValue().AsFloat(), 1.0f);
  EXPECT_DOUBLE_EQ(radius.GetSuggestedMax().AsDouble(), 100.0);
  EXPECT_TRUE(radius.IsReadOnly());  // capabilities 6 = read-only + persistable
  EXPECT_TRUE(radius.PutValue(-5.0).Succeeded());
  EXPECT_FLOAT_EQ(radius.GetValue().AsFloat(), 0.0f) << "clamped to the minimum";
  EXPECT_TRUE(radius.PutCapabilityFlag(siReadOnly, false).Succeeded());
  EXPECT_EQ(radius.GetCapabilities(), 4);

  Parameter again;
  EXPECT_FALSE(tag.AddParameter(L"Radius", siFloat, 4, L"", L"", 1.0, again).Succeeded());
  EXPECT_FALSE(again.IsValid());
  Parameter contact;
  ASSERT_TRUE(tag.AddParameter(L"Contact", siInt4, 5, L"", L"", 0, 0, 1, 0, 1, contact).Succeeded());
  EXPECT_TRUE(tag.PutParameterValue(L"Contact", 2.7).Succeeded());
  EXPECT_EQ(tag.GetParameterValue(L"Contact").AsInt(), 1);
  EXPECT_FALSE(tag.PutParameterValue(L"Contact", L"many").Succeeded());
  EXPECT_EQ(tag.GetParameterValue(L"Contact").AsInt(), 1) << "a refused value changes nothing";
  EXPECT_FALSE(tag.PutParameterValue(L"Missing", 1).Succeeded());

  // Two properties of one name: the second gets a number; order is creation order.
  Property second = node.AddProperty(L"Custom_parameter_list", false, L"RTKActor");
  EXPECT_EQ(second.GetName(), CString(L"RTKActor1"));
  CRefArray props = node.GetProperties();
  EXPECT_EQ(props.GetItem(props.GetCount() - 1), second.GetRef());
  EXPECT_EQ(props.GetItem(props.GetCount() - 2), tag.GetRef());
}

TEST_F(ObjectTest, BlobsHoldBytesAndDisplayPropertiesHaveAWireColour) {
  X3DObject node = Null(Root(), L"Node");
  UserDataBlob blob = node.AddProperty(L"UserDataBlob", false, L"StorePose");
  ASSERT_TRUE(blob.IsValid());
  const unsigned char bytes[] = {0, 1, 255, 7};
  EXPECT_TRUE(blob.PutValue(bytes, sizeof bytes).Succeeded());
  EXPECT_EQ(blob.GetValue(), std::vector<unsigned char>(bytes, bytes + 4));
  Property display = node.AddProperty(L"DispProp");
  EXPECT_EQ(display.GetName(), CString(L"Display Property"));
  EXPECT_TRUE(display.PutParameterValue(L"wirecol", 123).Succeeded());
  EXPECT_EQ(node.AddProperty(L"DispProp").GetRef(), display.GetRef()) << "one display property per object";
  EXPECT_FALSE(node.AddProperty(L"NoSuchPreset").IsValid());
}

TEST_F(ObjectTest, FindChildSearchesByNameTypeAndDepth) {
  Model m = NewModel(Root(), L"M");
  X3DObject a = Null(m, L"A");
  X3DObject b = Null(a, L"B");
  X3DObject mesh;
  ASSERT_TRUE(b.AddGeometry(L"Cube", L"MeshSurface", L"Box", mesh).Succeeded());
  EXPECT_EQ(m.FindChild(L"B").GetRef(), b.GetRef());
  EXPECT_EQ(m.FindChild(L"M.B").GetRef(), b.GetRef());
  EXPECT_FALSE(m.FindChild(L"B", L"", CRefArray(), false).IsValid());
  EXPECT_EQ(m.FindChild(L"", L"polymsh").GetRef(), mesh.GetRef());
  EXPECT_EQ(m.FindChildren(L"", L"").GetCount(), 3);
  Geometry g = mesh.GetActivePrimitive().GetGeometry();
  EXPECT_TRUE(PolygonMesh(g.GetRef()).IsValid());
  EXPECT_EQ(g.GetPointCount(), 8);
  EXPECT_EQ(g.GetTriangleCount(), 12);
  MATH::CVector3 lo, hi;
  ASSERT_TRUE(g.GetBoundingBox(lo, hi).Succeeded());
  EXPECT_DOUBLE_EQ(hi.GetX() - lo.GetX(), 8.0);
}

TEST(CValueTest, ConvertsBetweenTypes) {
  EXPECT_EQ(CValue(L"2.5e1").AsDouble(), 25.0);
  EXPECT_EQ(CValue(L" -3 ").AsInt(), -3);
  EXPECT_EQ(CValue(L"abc").AsDouble(), 0.0);
  EXPECT_TRUE(CValue(L"true").AsBool());
  EXPECT_EQ(CValue(0.1).GetAsText(), CString(L"0.1"));
  EXPECT_EQ(CValue(1e300 * 10).AsInt(), 2147483647);
  CValue out;
  EXPECT_FALSE(CValue(L"1x").ChangeType(siDouble, out).Succeeded());
  EXPECT_TRUE(CValue(L"7").ChangeType(siInt4, out).Succeeded());
  EXPECT_EQ(out.GetType(), siInt4);
  EXPECT_EQ(CValue(3), CValue(3.0));
  EXPECT_NE(CValue(L"3"), CValue(3));
  CValueArray array{CValue(1), CValue(L"a")};
  EXPECT_EQ(CValue(array).GetAsText(), CString(L"1,a"));
  EXPECT_EQ(CString(std::string("h\xC3\xA9")).Wide(), std::wstring(L"h\u00e9"));
  EXPECT_EQ(CString(L"\u00e9\u4e2d").GetAsciiString(), std::string("\xC3\xA9\xE4\xB8\xAD"));
  EXPECT_EQ(FromUtf8("\xE4\xB8"), std::wstring(L"\uFFFD")) << "a truncated sequence";
}

}  // namespace
