// The tag vocabulary: every tag's parameters with their types, defaults, ranges and flags.
#include "knrexport/scene/tags.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

struct Expected {
  const wchar_t* name;
  siValueType type;
  int caps;
  double def, min, max, smin, smax;
};

void ExpectParameters(CustomProperty& p, std::initializer_list<Expected> expected) {
  CRefArray params = p.GetParameters();
  ASSERT_EQ(params.GetCount(), static_cast<long>(expected.size()));
  long i = 0;
  for (const Expected& e : expected) {
    Parameter param(params[i++]);
    SCOPED_TRACE(ToUtf8(e.name));
    EXPECT_EQ(param.GetName(), CString(e.name));
    EXPECT_EQ(param.GetValueType(), e.type);
    EXPECT_EQ(param.GetCapabilities(), e.caps);
    EXPECT_DOUBLE_EQ(param.GetDefault().AsDouble(), e.def);
    if (e.type != siBool) {
      EXPECT_FLOAT_EQ(param.GetMin().AsFloat(), static_cast<float>(e.min));
      EXPECT_FLOAT_EQ(param.GetMax().AsFloat(), static_cast<float>(e.max));
      EXPECT_FLOAT_EQ(param.GetSuggestedMin().AsFloat(), static_cast<float>(e.smin));
      EXPECT_FLOAT_EQ(param.GetSuggestedMax().AsFloat(), static_cast<float>(e.smax));
    }
  }
}

TEST(TagsTest, EachTagCarriesItsParameters) {
  rt::Host::Get().NewScene();
  X3DObject node;
  Application().GetActiveSceneRoot().AddNull(L"Node", node);
  const double kMax = 3.4028235e38;
  CustomProperty actor = AddTag(node, kTagActor);
  EXPECT_EQ(actor.GetFullName(), CString(L"Node.RTKActor"));
  ExpectParameters(actor, {{L"Radius", siFloat, 6, 1, 0, kMax, 0, 100},
                           {L"Height", siFloat, 6, 1, 0, kMax, 0, 100},
                           {L"MeanDistance", siFloat, 6, 0, 0, kMax, 0, 100}});
  CustomProperty rtkNode = AddTag(node, kTagNode);
  ExpectParameters(rtkNode, {{L"VisualizationOnly", siBool, 4, 0, 0, 0, 0, 0},
                             {L"CollisionOnly", siBool, 4, 0, 0, 0, 0, 0}});
  CustomProperty effector = AddTag(node, kTagEffector);
  ExpectParameters(effector, {{L"Contact", siInt4, 5, 0, 0, 1, 0, 1}, {L"Anchor", siBool, 6, 0, 0, 0, 0, 0}});
  CustomProperty sphere = AddTag(node, kTagSphere, 2.5f);
  ExpectParameters(sphere, {{L"Radius", siFloat, 6, 2.5, 0, kMax, 0, 100}});
  CustomProperty floor = AddTag(node, kTagFloor, 0.75f);
  ExpectParameters(floor, {{L"Top", siFloat, 6, 0.75, 0, kMax, 0, 100}});
  CustomProperty home = AddTag(node, kTagHomePose);
  ExpectParameters(home, {{L"px", siFloat, 6, 0, -kMax, kMax, -100, 100},
                          {L"py", siFloat, 6, 0, -kMax, kMax, -100, 100},
                          {L"pz", siFloat, 6, 0, -kMax, kMax, -100, 100},
                          {L"rx", siFloat, 6, 0, -kMax, kMax, -200, 200},
                          {L"ry", siFloat, 6, 0, -kMax, kMax, -200, 200},
                          {L"rz", siFloat, 6, 0, -kMax, kMax, -200, 200},
                          {L"sx", siFloat, 6, 0, -kMax, kMax, -200, 200},
                          {L"sy", siFloat, 6, 0, -kMax, kMax, -200, 200},
                          {L"sz", siFloat, 6, 0, -kMax, kMax, -200, 200}});
  CustomProperty cog = AddTag(node, kTagCogNode);
  EXPECT_EQ(cog.GetParameters().GetCount(), 0);
  // The contact channel is what locomotion skills key: it must accept an fcurve.
  EXPECT_TRUE(Parameter(effector.GetParameter(L"Contact")).GetCapabilityFlag(siAnimatable));
  EXPECT_FALSE(Parameter(sphere.GetParameter(L"Radius")).GetCapabilityFlag(siAnimatable));
}

}  // namespace
