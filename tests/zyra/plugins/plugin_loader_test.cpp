// The plug-in loader with real modules: a good one whose commands and property type are driven
// through the host, and broken ones that must be refused without leaving anything behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "host/host.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "zyra/application.h"
#include "zyra/plugin.h"
#include "zyra/x3dobject.h"

using namespace Zyra;

namespace {

const std::string kDir = ZYRA_TEST_PLUGIN_DIR;
std::string Module(const char* name) { return kDir + "/" + name + ".so"; }
std::string S(const CString& text) { return text.GetAsciiString(); }

class PluginLoaderTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  static void Reset() {
    rt::UnloadPlugins();
    rt::Host& host = rt::Host::Get();
    host.NewScene();
    host.ui() = rt::UiState();
    host.ClearLog();
  }
  static CStatus Run(const wchar_t* name, const CValueArray& args, CValue& result) {
    return Application().ExecuteCommand(name, args, result);
  }
  // Every log line of `severity` joined, for "does the log mention X" checks.
  static std::string Logged(int severity) {
    std::string out;
    for (const auto& line : rt::Host::Get().LogLines()) {
      if (line.severity == severity) out += ToUtf8(line.text) + "\n";
    }
    return out;
  }
  static CustomProperty AddTstProp(const wchar_t* objectName) {
    X3DObject object;
    EXPECT_TRUE(Application().GetActiveSceneRoot().AddNull(objectName, object).Succeeded());
    return CustomProperty(object.AddProperty(L"TstProp"));
  }
  static CValue Inspect(const CustomProperty& property, const wchar_t* title, bool throwFlag,
                        CStatus* statusOut = nullptr) {
    CValue result;
    CStatus status =
        Run(L"InspectObj", CValueArray{property.GetFullName(), L"", title, 4, throwFlag}, result);
    if (statusOut) *statusOut = status;
    return result;
  }
};

TEST_F(PluginLoaderTest, GoodModuleCommandsRunByEitherNameWithPositionalArguments) {
  ASSERT_TRUE(rt::LoadPlugin(Module("good")).Succeeded());
  const rt::HostCommand* command = rt::Host::Get().FindCommand(L"TstSayHello");
  ASSERT_NE(command, nullptr);
  EXPECT_TRUE(command->plugin);
  EXPECT_TRUE(command->noLogging) << "the Init callback set the no-logging flag";
  EXPECT_EQ(rt::Host::Get().FindCommand(L"Say Hello"), command);
  EXPECT_TRUE(rt::IsPluginPropertyType(L"TstProp"));
  EXPECT_FALSE(rt::IsPluginPropertyType(L"tstprop")) << "type names are case-sensitive";

  CValue result;
  {  // Both arguments given.
    ASSERT_TRUE(Run(L"TstSayHello", CValueArray{L"Hi", 3}, result).Succeeded());
    EXPECT_EQ(S(result.GetAsText()), "Hi Hi Hi");
    EXPECT_NE(Logged(rt::kSevInfo).find("TstSayHello: Hi Hi Hi"), std::string::npos);
  }
  {  // By display name with no arguments: both defaults.
    ASSERT_TRUE(Run(L"Say Hello", CValueArray{}, result).Succeeded());
    EXPECT_EQ(S(result.GetAsText()), "Hello Hello");
  }
  {  // The second argument missing: its default; earlier runs did not change the defaults.
    ASSERT_TRUE(Run(L"TstSayHello", CValueArray{L"Yo"}, result).Succeeded());
    EXPECT_EQ(S(result.GetAsText()), "Yo Yo");
    ASSERT_TRUE(Run(L"TstSayHello", CValueArray{L"Yo", 0}, result).Succeeded());
    EXPECT_EQ(S(result.GetAsText()), "") << "an explicit zero is not a missing argument";
  }
  {  // Too many arguments: refused before the plug-in runs, naming the command.
    CStatus status = Run(L"TstSayHello", CValueArray{L"a", 1, 2}, result);
    EXPECT_FALSE(status.Succeeded());
    EXPECT_NE(S(status.GetMessage()).find("TstSayHello"), std::string::npos);
    EXPECT_TRUE(result.IsEmpty());
  }
  {  // The plug-in's own failure reaches the caller with its message.
    CStatus status = Run(L"TstSayHello", CValueArray{L"a", -1}, result);
    EXPECT_EQ(status.GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(S(status.GetMessage()), "TstSayHello: count is negative.");
  }
  {  // Loading again, also under another spelling of the path, changes nothing.
    size_t before = rt::Host::Get().Commands().size();
    EXPECT_TRUE(rt::LoadPlugin(Module("good")).Succeeded());
    EXPECT_TRUE(rt::LoadPlugin(kDir + "/./good.so").Succeeded());
    EXPECT_EQ(rt::Host::Get().Commands().size(), before);
    ASSERT_TRUE(Run(L"TstSayHello", CValueArray{L"Again", 1}, result).Succeeded());
    EXPECT_EQ(S(result.GetAsText()), "Again");
  }
  {  // Unloading removes the commands and the property type.
    rt::UnloadPlugins();
    EXPECT_EQ(rt::Host::Get().FindCommand(L"TstSayHello"), nullptr);
    EXPECT_FALSE(rt::IsPluginPropertyType(L"TstProp"));
    EXPECT_FALSE(Run(L"TstSayHello", CValueArray{}, result).Succeeded());
  }
}

TEST_F(PluginLoaderTest, BrokenModulesAreRefusedWholeWithAMessageNamingModuleAndCause) {
  // A FIFO named like a module would hold the module loader until something wrote to it.
  const std::string fifo =
      ::testing::TempDir() + "/zyra_fifo_" + std::to_string(::getpid()) + ".so";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  struct Case {
    std::string path;
    const char* cause;
  };
  const Case cases[] = {
      {Module("noentry"), "not a Zyra plug-in (no ZyraLoadPlugin entry point)"},
      {Module("nocallback"), "has no HalfDone_Execute callback"},
      {Module("unresolved"), "ZyraTestFunctionThatDoesNotExist"},
      {Module("missing"), "no such plug-in module"},
      {fifo, "cannot be loaded: it is a FIFO, not a regular file."},
      {kDir, "cannot be loaded: it is a folder, not a regular file."},
  };
  size_t before = rt::Host::Get().Commands().size();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    const std::string& path = c.path;
    CStatus status = rt::LoadPlugin(path);
    ASSERT_FALSE(status.Succeeded());
    std::string message = S(status.GetMessage());
    EXPECT_EQ(message.rfind(path + ": ", 0), 0u) << message;
    EXPECT_NE(message.find(c.cause), std::string::npos) << message;
    // A second try fails the same way: a refused module is not remembered as loaded.
    EXPECT_EQ(S(rt::LoadPlugin(path).GetMessage()), message);
  }
  ::unlink(fifo.c_str());
  // The incomplete module's valid command and property type were not registered either.
  EXPECT_EQ(rt::Host::Get().Commands().size(), before);
  for (const wchar_t* name : {L"TstFineCommand", L"Fine Command", L"TstHalfDone", L"TstNever"}) {
    EXPECT_EQ(rt::Host::Get().FindCommand(name), nullptr) << ToUtf8(name);
  }
  EXPECT_FALSE(rt::IsPluginPropertyType(L"TstIncompleteProp"));

  {  // A folder: every module in name order, the first failure reported, the good one loaded.
    CStatus status = rt::LoadPluginsIn(kDir);
    EXPECT_FALSE(status.Succeeded());
    EXPECT_NE(S(status.GetMessage()).find("nocallback.so"), std::string::npos);
    EXPECT_NE(rt::Host::Get().FindCommand(L"TstSayHello"), nullptr);
    std::string errors = Logged(rt::kSevError);
    EXPECT_NE(errors.find("noentry.so"), std::string::npos);
    EXPECT_NE(errors.find("unresolved.so"), std::string::npos);
    CStatus missing = rt::LoadPluginsIn(kDir + "/no-such-folder");
    EXPECT_NE(S(missing.GetMessage()).find("no-such-folder"), std::string::npos);
  }
}

TEST_F(PluginLoaderTest, ModuleWhoseCommandNameIsTakenIsRefusedWhole) {
  // Marked as a plug-in command so that the fixture's unload removes it again.
  rt::Host::Get().RegisterCommand(rt::HostCommand{L"TstSayHello", L"",
                                                  [](const CValueArray&, CValue& result) {
                                                    result = CValue(L"first");
                                                    return CStatus(CStatus::OK);
                                                  },
                                                  true});
  CStatus status = rt::LoadPlugin(Module("good"));
  EXPECT_FALSE(status.Succeeded());
  EXPECT_NE(S(status.GetMessage()).find("already registered"), std::string::npos);
  EXPECT_FALSE(rt::IsPluginPropertyType(L"TstProp")) << "its property type went with it";
  CValue result;
  ASSERT_TRUE(Run(L"TstSayHello", CValueArray{}, result).Succeeded());
  EXPECT_EQ(S(result.GetAsText()), "first") << "the command that was there stays";
  EXPECT_EQ(rt::Host::Get().FindCommand(L"Say Hello"), nullptr);
}

TEST_F(PluginLoaderTest, PropertyTypeRunsDefineAndBuildsALayoutThatReadsBack) {
  ASSERT_TRUE(rt::LoadPlugin(Module("good")).Succeeded());
  CustomProperty property = AddTstProp(L"Hips");
  ASSERT_TRUE(property.IsValid());
  EXPECT_EQ(S(property.GetFullName()), "Hips.TstProp");
  EXPECT_EQ(S(property.GetType()), "TstProp");
  EXPECT_EQ(property.GetParameters().GetCount(), 7);
  EXPECT_EQ(S(property.GetParameterValue(L"Name").GetAsText()), "Actor");
  EXPECT_EQ(property.GetParameterValue(L"Count").AsInt(), 3);
  EXPECT_EQ(property.GetParameter(L"Scale").GetMax().AsDouble(), 1.0);
  EXPECT_EQ(S(property.GetParameterValue(L"Events").GetAsText()), "") << "no page opened yet";

  PPGLayout layout = PPGLayout::Of(property);
  ASSERT_TRUE(layout.IsValid());
  const char* expected[][3] = {
      {"Group", "", "Main"},
      {"", "Name", "Actor Name"},
      {"Row", "", ""},
      {"", "Count", ""},
      {"", "Scale", ""},
      {"EndRow", "", ""},
      {"Combo", "Mode", "Motion"},
      {"EndGroup", "", ""},
      {"Group", "", "Options"},
      {"", "Enabled", ""},
      {"FilePath", "File", "Input File"},
      {"Button", "Apply", "Apply Now"},
      {"Button", "Done", ""},
      {"EndGroup", "", ""},
  };
  ASSERT_EQ(layout.GetCount(), static_cast<long>(std::size(expected)));
  for (long i = 0; i < layout.GetCount(); ++i) {
    SCOPED_TRACE(i);
    PPGItem item = layout.GetItem(i);
    EXPECT_EQ(S(item.GetType()), expected[i][0]);
    EXPECT_EQ(S(item.GetName()), expected[i][1]);
    EXPECT_EQ(S(item.GetLabel()), expected[i][2]);
  }
  EXPECT_FALSE(layout.GetItem(layout.GetCount()).IsValid());
  EXPECT_FALSE(layout.GetItem(-1).IsValid());
  CValueArray modes = layout.GetItem(L"Mode").GetUIItems();
  ASSERT_EQ(modes.GetCount(), 6);
  EXPECT_EQ(S(modes[2].GetAsText()), "Run");
  EXPECT_EQ(modes[3].AsInt(), 1);
  EXPECT_EQ(S(layout.GetItem(L"File").GetAttribute(siUIFileFilter).GetAsText()),
            "Text Files (*.txt)|*.txt|");
  EXPECT_NE(S(layout.GetAttribute(siUIHelpFile).GetAsText()).find("tstprop"), std::string::npos);

  {  // The same layout object every time; Clear invalidates old item handles.
    PPGItem first = layout.GetItem(0L);
    EXPECT_EQ(PPGLayout::Of(property).GetRef(), layout.GetRef());
    layout.Clear();
    EXPECT_EQ(layout.GetCount(), 0);
    EXPECT_FALSE(first.IsValid());
    EXPECT_TRUE(layout.GetAttribute(siUIHelpFile).GetType() == siString) << "attributes stay";
    EXPECT_FALSE(layout.AddEnumControl(L"Mode", CValueArray{L"odd"}).IsValid());
    EXPECT_EQ(layout.GetCount(), 0);
  }
  {  // A second property of the type gets its own name, parameters and layout.
    X3DObject hips(property.GetParent());
    CustomProperty second(hips.AddProperty(L"TstProp"));
    EXPECT_EQ(S(second.GetName()), "TstProp1");
    EXPECT_EQ(PPGLayout::Of(second).GetCount(), 14);
  }
  EXPECT_FALSE(PPGLayout::Of(Application().GetActiveSceneRoot()).IsValid()) << "not a property";
}

TEST_F(PluginLoaderTest, InspectObjRunsPageEventsInOrderFromTheQueuedAnswer) {
  ASSERT_TRUE(rt::LoadPlugin(Module("good")).Succeeded());
  CustomProperty property = AddTstProp(L"Hips");
  auto& ui = rt::Host::Get().ui();
  auto events = [&] { return S(property.GetParameterValue(L"Events").GetAsText()); };

  {  // Values then presses; a combo takes a choice by its label.
    ui.pageAnswers.push_back(rt::PageAnswer{L"Other Page", {{L"Name", L"Wrong"}}, {}, false});
    ui.pageAnswers.push_back(rt::PageAnswer{
        L"Tst Page", {{L"Enabled", L"false"}, {L"Mode", L"Jump"}}, {L"Apply"}, false});
    CStatus status;
    CValue cancelled = Inspect(property, L"Tst Page", false, &status);
    ASSERT_TRUE(status.Succeeded()) << S(status.GetMessage());
    EXPECT_EQ(cancelled.GetType(), siBool);
    EXPECT_FALSE(cancelled.AsBool());
    EXPECT_EQ(events(), "init;change:Enabled;change:Mode;button:Apply;closed");
    EXPECT_FALSE(property.GetParameterValue(L"Enabled").AsBool());
    EXPECT_EQ(property.GetParameterValue(L"Mode").AsInt(), 2);
    EXPECT_EQ(S(property.GetParameterValue(L"Name").GetAsText()), "Applied");
    EXPECT_TRUE(property.GetParameter(L"Count").IsReadOnly());
    EXPECT_TRUE(property.GetParameter(L"Scale").IsReadOnly());
    EXPECT_FALSE(property.GetParameter(L"Name").IsReadOnly());
    EXPECT_TRUE(ui.lineFailures.empty());
    EXPECT_EQ(ui.pageAnswers.size(), 1u) << "the other page's answer is still queued";
    std::string info = Logged(rt::kSevInfo);
    EXPECT_NE(info.find("[Page] Tst Page (Hips.TstProp)"), std::string::npos) << info;
    EXPECT_NE(info.find("Main{Actor Name, (Count, Scale), Motion<Combo:3>}"), std::string::npos)
        << info;
  }
  {  // An answer the page cannot take closes it as cancelled (the edit before it undone) and is
     // recorded for the script line to fail; what comes after it is not applied.
    struct Case {
      std::vector<std::pair<std::wstring, std::wstring>> values;
      std::vector<std::wstring> presses;
      const char* failure;
    } cases[] = {
        {{{L"Nme", L"x"}}, {}, "has no parameter \"Nme\" (did you mean \"Name\"?)."},
        {{{L"Bogus", L"1"}}, {}, "has no parameter \"Bogus\"."},
        {{{L"Count", L"7"}}, {}, "cannot take Count=7: the parameter is read-only."},
        {{{L"Enabled", L"abc"}}, {}, "cannot take Enabled=abc: true or false expected."},
        {{{L"Mode", L"3"}}, {}, "cannot take Mode=3: the value must lie in 0 .. 2."},
        {{{L"Mode", L"Fly"}}, {}, "cannot take Mode=Fly: a whole number expected."},
        {{}, {L"Nope"}, "has no button \"Nope\"."},
    };
    property.PutParameterValue(L"Enabled", true);
    for (const Case& c : cases) {
      SCOPED_TRACE(c.failure);
      ui.lineFailures.clear();
      auto values = c.values;
      values.insert(values.begin(), {L"Name", L"Edited"});
      values.emplace_back(L"File", L"after.txt");
      ui.pageAnswers.push_back(rt::PageAnswer{L"Tst Page", values, c.presses, false});
      EXPECT_TRUE(Inspect(property, L"Tst Page", false).AsBool());
      EXPECT_EQ(S(property.GetParameterValue(L"Name").GetAsText()), "Applied");
      EXPECT_EQ(S(property.GetParameterValue(L"File").GetAsText()), "");
      ASSERT_EQ(ui.lineFailures.size(), 1u);
      EXPECT_EQ(S(ui.lineFailures[0]),
                std::string("InspectObj: the page \"Tst Page\" ") + c.failure);
    }
    ui.lineFailures.clear();
    property.PutParameterValue(L"Enabled", false);
  }
  {  // Nothing queued for this title: confirmed unchanged, OnInit and OnClosed only.
    property.PutParameterValue(L"Events", L"");
    EXPECT_FALSE(Inspect(property, L"Tst Page", false).AsBool());
    EXPECT_EQ(events(), "init;closed");
    EXPECT_EQ(ui.pageAnswers.size(), 1u);
  }
  {  // Cancel: edits made on the page are undone; the throw flag turns it into a failure.
    ui.pageAnswers.clear();
    property.PutParameterValue(L"Events", L"");
    ui.pageAnswers.push_back(
        rt::PageAnswer{L"", {{L"Name", L"Zed"}, {L"Enabled", L"true"}}, {}, true});
    EXPECT_TRUE(Inspect(property, L"Tst Page", false).AsBool());
    EXPECT_EQ(S(property.GetParameterValue(L"Name").GetAsText()), "Applied");
    EXPECT_FALSE(property.GetParameterValue(L"Enabled").AsBool());
    ui.pageAnswers.push_back(rt::PageAnswer{L"", {}, {}, true});
    CStatus status;
    EXPECT_TRUE(Inspect(property, L"Tst Page", true, &status).AsBool());
    EXPECT_EQ(status.GetCode(), CStatus::Abort);
    EXPECT_NE(S(status.GetMessage()).find("Tst Page"), std::string::npos);
  }
  {  // A button that closes the page: later answers are ignored, OnClosed still runs.
    property.PutParameterValue(L"Events", L"");
    rt::Host::Get().ClearLog();
    ui.pageAnswers.push_back(rt::PageAnswer{L"", {}, {L"Done", L"Apply"}, false});
    EXPECT_FALSE(Inspect(property, L"Tst Page", false).AsBool());
    EXPECT_EQ(events(), "init;button:Done;closed");
    EXPECT_NE(Logged(rt::kSevWarning).find("Apply"), std::string::npos);
  }
  {  // Bad arguments fail and name what is wrong.
    CValue result;
    EXPECT_FALSE(Run(L"InspectObj", CValueArray{}, result).Succeeded());
    CStatus status =
        Run(L"InspectObj", CValueArray{L"Nobody.TstProp", L"", L"T", 4, false}, result);
    EXPECT_FALSE(status.Succeeded());
    EXPECT_NE(S(status.GetMessage()).find("Nobody.TstProp"), std::string::npos);
  }
}

TEST_F(PluginLoaderTest, PlainCustomPropertyPagesTakeAnswersWithoutEvents) {
  X3DObject ball;
  ASSERT_TRUE(Application().GetActiveSceneRoot().AddNull(L"Ball", ball).Succeeded());
  CustomProperty sphere(ball.AddProperty(L"Custom_parameter_list", false, L"Sphere"));
  Parameter radius;
  ASSERT_TRUE(
      sphere.AddParameter(L"Radius", siDouble, siPersistable, L"", L"", 1.0, radius).Succeeded());
  rt::Host::Get().ui().pageAnswers.push_back(
      rt::PageAnswer{L"Collision Sphere", {{L"Radius", L"2.5"}}, {}, false});
  CValue result;
  ASSERT_TRUE(
      Run(L"InspectObj", CValueArray{L"Ball.Sphere", L"", L"Collision Sphere", 4, false}, result)
          .Succeeded());
  EXPECT_FALSE(result.AsBool());
  EXPECT_EQ(radius.GetValue().AsDouble(), 2.5);
  EXPECT_EQ(PPGLayout::Of(sphere).GetCount(), 0);
}

}  // namespace
