// The real module loaded by the host: its identity, its commands in table order with their
// callbacks found, and its property types with their parameters.
#include <gtest/gtest.h>

#include "host/host.h"
#include "knrexport/plugin/command_table.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

class RegistrationTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    rt::Host::Get().NewScene();
    CStatus status = rt::LoadPlugin(KNR_MODULE_PATH);
    ASSERT_TRUE(status.Succeeded()) << ToUtf8(status.GetMessage().Wide());
  }
  static void TearDownTestSuite() { rt::UnloadPlugins(); }
};

TEST_F(RegistrationTest, TheModuleRegistersItsNameVersionCommandsAndProperties) {
  CRefArray plugins = rt::LoadedPlugins();
  PluginRegistrar registrar;
  for (const CRef& ref : plugins) {
    if (PluginRegistrar(ref).GetName() == CString(L"Kinra Export Command Plugin")) registrar = ref;
  }
  ASSERT_TRUE(registrar.IsValid());
  EXPECT_EQ(registrar.GetMajor(), 1);
  EXPECT_EQ(registrar.GetMinor(), 0);
  CRefArray items = registrar.GetItems();
  ASSERT_EQ(items.GetCount(), 31);
  int count = 0;
  const CommandEntry* table = CommandTable(count);
  ASSERT_EQ(count, 25);
  for (int i = 0; i < count; ++i) {
    PluginItem item(items[i]);
    EXPECT_TRUE(item.IsCommand());
    EXPECT_EQ(item.GetName(), CString(table[i].displayName));
    EXPECT_EQ(item.GetScriptName(), CString(table[i].scriptName));
    const rt::HostCommand* byScript = rt::Host::Get().FindCommand(table[i].scriptName);
    ASSERT_NE(byScript, nullptr) << ToUtf8(table[i].scriptName);
    EXPECT_EQ(rt::Host::Get().FindCommand(table[i].displayName), byScript);
    EXPECT_TRUE(byScript->noLogging) << "every command sets the no-logging flag";
  }
  const wchar_t* properties[] = {L"KinraJL", L"Skill", L"KinraGen", L"BVHActor", L"LoopSkill", L"RenderSetup"};
  for (int i = 0; i < 6; ++i) {
    PluginItem item(items[count + i]);
    EXPECT_FALSE(item.IsCommand());
    EXPECT_EQ(item.GetName(), CString(properties[i]));
  }
}

TEST_F(RegistrationTest, PropertyTypesDefineTheirParametersInOrder) {
  X3DObject node;
  Application().GetActiveSceneRoot().AddNull(L"Root", node);
  struct Expected {
    const wchar_t* type;
    std::vector<std::wstring> names;
  };
  const Expected expected[] = {
      {L"KinraGen", {L"Envelope", L"Box", L"RemoveExtra", L"RemovePoly", L"Skill", L"Factor", L"Cog"}},
      {L"Skill", {L"Source", L"Skill", L"Threshold", L"Transfer"}},
      {L"LoopSkill", {L"Source", L"Start", L"End", L"Smooth", L"Loco", L"PrevSource", L"PrevStart", L"PrevEnd"}},
      {L"BVHActor", {L"BVHFile", L"Mode", L"Box", L"Scale", L"ActorName", L"Filter", L"Remove", L"Root",
                     L"ActionName", L"Optimize"}},
      {L"KinraJL", {L"XEnable", L"XMin", L"XMax", L"YEnable", L"YMin", L"YMax", L"ZEnable", L"ZMin", L"ZMax"}},
      {L"RenderSetup", {L"FileName", L"Target", L"Start", L"End", L"DoMap", L"ClassName"}},
  };
  for (const Expected& e : expected) {
    SCOPED_TRACE(ToUtf8(e.type));
    CustomProperty p = node.AddProperty(e.type);
    ASSERT_TRUE(p.IsValid());
    EXPECT_EQ(p.GetType(), CString(e.type));
    std::vector<std::wstring> names;
    for (const CRef& ref : p.GetParameters()) names.push_back(Parameter(ref).GetName().Wide());
    EXPECT_EQ(names, e.names);
    for (const CRef& ref : p.GetParameters()) {
      EXPECT_FALSE(Parameter(ref).GetCapabilityFlag(siAnimatable)) << "options are not animatable";
    }
  }
  CustomProperty gen = node.AddProperty(L"KinraGen");
  EXPECT_FLOAT_EQ(gen.GetParameterValue(L"Factor").AsFloat(), 0.2f);
  EXPECT_TRUE(gen.GetParameterValue(L"Box").AsBool());
  CustomProperty bvh = node.AddProperty(L"BVHActor");
  EXPECT_EQ(bvh.GetParameterValue(L"ActorName").GetAsText(), CString(L"Actor"));
  EXPECT_FLOAT_EQ(bvh.GetParameterValue(L"Scale").AsFloat(), 0.125f);
  EXPECT_EQ(Parameter(bvh.GetParameter(L"Mode")).GetLabel(), CString(L"Radio Button"));
  CustomProperty loop = node.AddProperty(L"LoopSkill");
  EXPECT_EQ(loop.GetParameterValue(L"Smooth").AsInt(), 10);
  EXPECT_EQ(Parameter(loop.GetParameter(L"Source")).GetMin().AsInt(), -2147483647);
  CustomProperty limits = node.AddProperty(L"KinraJL");
  EXPECT_FALSE(limits.GetParameterValue(L"YEnable").AsBool()) << "every rotation allowed by default";
  EXPECT_FLOAT_EQ(limits.GetParameterValue(L"ZMax").AsFloat(), 180.0f);
}

}  // namespace
