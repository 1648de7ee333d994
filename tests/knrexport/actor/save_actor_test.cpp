// Save Actor and Load Actor through the real module: the weight file's bytes, the refusals that
// write nothing, a generated actor saved and loaded into a new scene, and weight files that must
// not be applied.
#include "knrexport/actor/save_actor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/generate.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/scene/actor_lookup.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Le(std::initializer_list<std::uint32_t> words) {
  Bytes out;
  for (std::uint32_t w : words)
    for (int s = 0; s < 32; s += 8) out.push_back(static_cast<std::uint8_t>(w >> s));
  return out;
}

TEST(WeightFileTest, BytesFollowTheLayout) {
  WeightList records(2);
  records[0].points = {0, 2};
  records[0].weights = {25.0f, 100.0f};
  EXPECT_EQ(EncodeWeightFile(records), Le({2, 2, 0, 2, 0x41c80000, 0x42c80000, 0}));
  EXPECT_EQ(WeightFileName(L"/a/walker.zyra"), CString(L"/a/walker.wgmp"));
  EXPECT_EQ(WeightFileName(L"/a.v2/walker"), CString(L"/a.v2/walker.wgmp"));
}

TEST(WeightFileTest, CountsAndTruncationAreChecked) {
  struct Case {
    const char* what;
    Bytes bytes;
    bool ok;
  };
  Bytes cut = Le({1, 2, 0, 1, 0x41c80000});  // one weight short
  const Case cases[] = {
      {"no record count", Le({}), false},
      {"count 0", Le({0}), true},
      {"negative count", Le({0xffffffffu, 7}), true},
      {"absurd count", Le({0x7fffffff, 0}), false},
      {"negative value count", Le({1, 0xfffffffeu}), false},
      {"record cut short", cut, false},
      {"bytes after the records", Le({1, 0, 9}), false},
  };
  for (const Case& c : cases) {
    WeightList records;
    std::wstring problem;
    EXPECT_EQ(DecodeWeightFile(c.bytes, records, problem), c.ok) << c.what;
    EXPECT_TRUE(records.empty()) << c.what;
    EXPECT_EQ(problem.empty(), c.ok) << c.what;
  }
}

// Rig > Root > Hips (COG) > Thigh > Foot (foot, with its sphere); Hips > Skin, a mesh skinned to
// Hips and Thigh; the action "Walk". Generated with envelopes into KnrRig.
class SaveActorTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(rt::LoadPlugin(KNR_MODULE_PATH).Succeeded()); }
  static void TearDownTestSuite() { rt::UnloadPlugins(); }

  void SetUp() override {
    dir = fs::temp_directory_path() /
          ("knr_save_" + std::to_string(::getpid()) +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
    file = (dir / "walker.zyra").wstring();
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    Model sceneRoot = Application().GetActiveSceneRoot();
    sceneRoot.AddModel(CRefArray(), L"Rig", rig);
    X3DObject root = Null(rig, L"Root", 0), hips = Null(root, L"Hips", 10);
    X3DObject thigh = Null(hips, L"Thigh", -1), foot = Null(thigh, L"Foot", -4);
    const CDoubleArray points(std::vector<double>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    hips.AddPolygonMesh(points, CLongArray(std::vector<long>{3, 0, 1, 2}), L"Skin", skin);
    ASSERT_TRUE(InitializeActorTB(hips, false) && SetHomeTB(hips, false));
    ASSERT_TRUE(SetCOG(hips) && SetFoot(foot, true));
    Host(L"ApplyEnvelope", {skin.GetFullName(), hips.GetFullName(), thigh.GetFullName()});
    Weigh(L"Rig", L"70 0 50", L"30 100 50");
    for (double frame : {1.0, 10.0}) Host(L"SetKey", {L"Rig.Thigh.rotx", frame, frame * 3.0});
    Host(L"StoreAction", {CValue(rig.GetRef()), L"Rig.Thigh.rotx", 6, L"Walk", 1, 1.0, 10.0});
    rt::PageAnswer page;
    page.title = L"Generate Actor";
    page.values = {{L"Envelope", L"true"}};
    rt::Host::Get().ui().pageAnswers.push_back(page);
    ASSERT_TRUE(GenerateActor(hips));
    generated = Model(Application().GetObjectFromPath(L"KnrRig"));
    ASSERT_TRUE(generated.IsValid());
    Boxes().clear();
  }
  void TearDown() override { fs::remove_all(dir); }

  static CValue Host(const wchar_t* command, const CValueArray& args) {
    CValue result;
    EXPECT_TRUE(Application().ExecuteCommand(command, args, result).Succeeded()) << ToUtf8(command);
    return result;
  }
  static X3DObject Null(X3DObject parent, const wchar_t* name, double y) {
    X3DObject out;
    parent.AddNull(name, out);
    out.PutParameterValue(L"posy", y);
    return out;
  }
  static void Weigh(const std::wstring& model, const wchar_t* hips, const wchar_t* thigh) {
    const CString skin(model + L".Skin");
    Host(L"SetDeformerWeights", {skin, CString(model + L".Hips"), hips});
    Host(L"SetDeformerWeights", {skin, CString(model + L".Thigh"), thigh});
  }
  static std::vector<std::wstring>& Boxes() { return rt::Host::Get().ui().messageBoxes; }
  static void Answer(const wchar_t* title, const std::wstring& path) {
    rt::Host::Get().ui().fileAnswers.emplace_back(title, path);
  }
  bool Save(X3DObject node) {
    Answer(L"Save Actor", file);
    return SaveActor(node);
  }
  bool Load() {
    Answer(L"Load Actor", file);
    return LoadActor();
  }
  static Bytes Read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  fs::path WeightPath() const { return fs::path(file).replace_extension(".wgmp"); }

  // Everything a loaded actor must give back: per object its name, its properties, its envelope
  // weights and a sphere's radius; the model's action sources.
  static std::vector<std::wstring> Describe(const Model& model) {
    std::vector<std::wstring> lines;
    for (const CRef& ref : model.FindChildren(CString(), CString())) {
      X3DObject o(ref);
      std::wstring line = o.GetName().Wide() + L":";
      for (const CRef& p : o.GetProperties()) line += L" " + Property(p).GetName().Wide();
      for (const CRef& e : o.GetEnvelopes()) {
        for (const CRef& d : Envelope(e).GetDeformers()) {
          line += L" |" + X3DObject(d).GetName().Wide();
          const CDoubleArray weights = Envelope(e).GetDeformerWeights(d, 0.0);
          for (long p = 0; p < weights.GetCount(); ++p)
            line += L" " + std::to_wstring(std::lround(weights[p] * 100));
        }
      }
      if (o.GetType() == CString(L"sphere"))
        line += L" r=" + o.GetActivePrimitive().GetParameterValue(L"radius").GetAsText().Wide();
      lines.push_back(line);
    }
    for (const CRef& s : model.GetSources())
      lines.push_back(L"source " + ProjectItem(s).GetName().Wide());
    return lines;
  }
  static std::wstring SkinLine(const std::vector<std::wstring>& lines) {
    auto it = std::find_if(lines.begin(), lines.end(),
                           [](const std::wstring& l) { return l.rfind(L"Skin:", 0) == 0; });
    return it == lines.end() ? std::wstring() : *it;
  }

  fs::path dir;
  std::wstring file;
  Model rig, generated;
  X3DObject skin;
};

TEST_F(SaveActorTest, RefusalsWriteNothing) {
  struct Case {
    const char* what;
    std::wstring node;
    bool answerCancel;
    std::wstring box;  // empty: no message
  };
  X3DObject outside;
  Model(Application().GetActiveSceneRoot()).AddNull(L"Outside", outside);
  const Case cases[] = {
      {"never generated", L"Rig.Hips", false,
       L"Kinra Export: The actor must be properly generated before it can be saved.\n"
       L"Please try the Generate action and save the resultant actor."},
      {"scene root", L"Outside", false,
       L"Kinra Export: Actor descriptions must be contained by a single model (scene root not "
       L"supported)."},
      {"cancelled dialog", L"KnrRig.Hips", true, L""},
  };
  const std::vector<std::wstring> before = Describe(generated);
  for (const Case& c : cases) {
    Boxes().clear();
    rt::Host::Get().ui().fileAnswers.clear();
    if (!c.answerCancel) Answer(L"Save Actor", file);
    X3DObject node(Application().GetObjectFromPath(c.node));
    EXPECT_FALSE(SaveActor(node)) << c.what;
    EXPECT_EQ(Boxes().empty() ? L"" : Boxes().back(), c.box) << c.what;
    EXPECT_TRUE(fs::is_empty(dir)) << c.what;
    EXPECT_EQ(Describe(generated), before) << c.what;
    Property remembered;
    X3DObject sceneRoot = Application().GetActiveSceneRoot();
    EXPECT_FALSE(FindCustomPSet(sceneRoot, L"ActorFile", remembered)) << c.what;
  }
}

TEST_F(SaveActorTest, LoadedActorIsTheSavedOne) {
  // New source weights and sphere sizes reach the saved actor: the save brings it up to date.
  Weigh(L"Rig", L"20 0 50", L"80 100 50");
  Host(L"SetValue", {L"Rig.Foot_CS.radius", 0.75});
  ASSERT_TRUE(Save(generated));
  const rt::ProgressRecord& bar = rt::Host::Get().ui().progressRuns.back();
  EXPECT_EQ(bar.captions, (std::vector<std::wstring>{L"Scanning Hierarchy", L"Save action",
                                                     L"Processing Weight Map"}));
  EXPECT_EQ(bar.value, bar.maximum);
  const std::vector<std::wstring> saved = Describe(generated);
  EXPECT_EQ(
      std::count_if(saved.begin(), saved.end(),
                    [](const std::wstring& l) { return l.find(L"r=0.75") != std::wstring::npos; }),
      1);
  EXPECT_NE(SkinLine(saved).find(L"|Hips 2000 0 5000 |Thigh 8000 10000 5000"), std::wstring::npos)
      << ToUtf8(SkinLine(saved));
  WeightList records;
  std::wstring problem;
  ASSERT_TRUE(DecodeWeightFile(Read(WeightPath()), records, problem));
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].points, (std::vector<std::int32_t>{0, 1, 2}));
  EXPECT_EQ(records[0].weights, (std::vector<float>{20.0f, 50.0f}));
  EXPECT_FALSE(fs::exists(fs::path(file + L".tmp")));

  rt::Host::Get().NewScene();
  Boxes().clear();
  ASSERT_TRUE(Load());
  EXPECT_TRUE(Boxes().empty()) << ToUtf8(Boxes().front());
  Model loaded(Application().GetObjectFromPath(L"KnrRig"));
  ASSERT_TRUE(loaded.IsValid());
  EXPECT_EQ(Describe(loaded), saved);
  X3DObject root;
  ASSERT_TRUE(GetRootNode(loaded, root, false));
  EXPECT_TRUE(HasTag(root, L"RTKActor"));
  Property remembered;
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  ASSERT_TRUE(FindCustomPSet(sceneRoot, L"ActorFile", remembered));
  EXPECT_EQ(remembered.GetParameterValue(L"InitDir").GetAsText().Wide(), (dir / "").wstring());
}

TEST_F(SaveActorTest, WeightFilesThatDoNotFitAreNotApplied) {
  ASSERT_TRUE(Save(generated));
  const Bytes good = Read(WeightPath());
  WeightList records;
  std::wstring problem;
  ASSERT_TRUE(DecodeWeightFile(good, records, problem));
  struct Case {
    const char* what;
    Bytes bytes;
    const wchar_t* applied;  // the Skin's weights after the load
    bool refused;
  };
  WeightList other = records, outOfRange = records, tooFew(records.begin(), records.begin() + 1);
  other[0] = {{0, 1, 2}, {10.0f, 40.0f, 90.0f}};
  other[1] = {{0, 1, 2}, {90.0f, 60.0f, 10.0f}};
  outOfRange[0].points.back() = 3;
  WeightList overweight = other;
  overweight[1].weights[0] = 250.0f;
  Bytes truncated(good.begin(), good.end() - 2);
  const wchar_t* asSaved = L"|Hips 7000 0 5000 |Thigh 3000 10000 5000";
  const Case cases[] = {
      {"a good file is applied", EncodeWeightFile(other),
       L"|Hips 1000 4000 9000 |Thigh 9000 6000 1000", false},
      {"no file", {}, asSaved, false},
      {"count 0", Le({0}), asSaved, false},
      {"truncated", truncated, asSaved, true},
      {"point out of range", EncodeWeightFile(outOfRange), asSaved, true},
      {"weight above 100 percent", EncodeWeightFile(overweight), asSaved, true},
      {"fewer maps than envelopes", EncodeWeightFile(tooFew), asSaved, true},
  };
  for (const Case& c : cases) {
    fs::remove(WeightPath());
    if (!c.bytes.empty())
      std::ofstream(WeightPath(), std::ios::binary)
          .write(reinterpret_cast<const char*>(c.bytes.data()),
                 static_cast<std::streamsize>(c.bytes.size()));
    rt::Host::Get().NewScene();
    Boxes().clear();
    ASSERT_TRUE(Load()) << c.what;
    const std::wstring skinLine =
        SkinLine(Describe(Model(Application().GetObjectFromPath(L"KnrRig"))));
    EXPECT_NE(skinLine.find(c.applied), std::wstring::npos) << c.what << ": " << ToUtf8(skinLine);
    // A refusal names the weight file.
    const std::wstring said = Boxes().empty() ? L"" : Boxes()[0];
    EXPECT_EQ(said.find(WeightPath().wstring() + L": ") != std::wstring::npos, c.refused) << c.what;
    EXPECT_LE(Boxes().size(), 1u) << c.what;
  }
}

TEST_F(SaveActorTest, RejectedFileAddsNothing) {
  std::ofstream(fs::path(file)) << "not a scene";
  std::ofstream(WeightPath(), std::ios::binary) << "garbage";
  Model sceneRoot = Application().GetActiveSceneRoot();
  const long before = sceneRoot.GetChildren().GetCount();
  EXPECT_FALSE(Load());
  EXPECT_EQ(sceneRoot.GetChildren().GetCount(), before);
}

}  // namespace

namespace {

TEST_F(SaveActorTest, FailedSaveKeepsTheOlderFiles) {
  // Either file of the pair cannot be replaced (a folder stands in its place): the other keeps its
  // older bytes too, a message names the file at fault, and no temporary file is left behind.
  struct Case {
    const char* what;
    bool actorBlocked;
  };
  for (const Case& c : {Case{"weight file blocked", false}, Case{"actor file blocked", true}}) {
    fs::remove_all(dir);
    fs::create_directories(dir);
    Boxes().clear();
    const fs::path blocked = c.actorBlocked ? fs::path(file) : WeightPath();
    const fs::path older = c.actorBlocked ? WeightPath() : fs::path(file);
    std::ofstream(older, std::ios::binary) << "older";
    fs::create_directory(blocked);
    std::ofstream(blocked / "inside") << "x";  // a folder with something in it: no rename over it
    EXPECT_FALSE(Save(generated)) << c.what;
    ASSERT_EQ(Boxes().size(), 1u) << c.what;
    EXPECT_EQ(Boxes()[0].find(L"Kinra Export: " + blocked.wstring() + L": "), 0u) << c.what;
    EXPECT_EQ(Read(older), (Bytes{'o', 'l', 'd', 'e', 'r'})) << c.what;
    size_t entries = 0;
    for (auto it = fs::directory_iterator(dir); it != fs::directory_iterator(); ++it) ++entries;
    EXPECT_EQ(entries, 2u) << c.what;
  }
}

}  // namespace
