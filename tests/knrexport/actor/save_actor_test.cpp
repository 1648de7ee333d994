// Save Actor and Load Actor through the real module: the weight file's bytes, the refusals that
// write nothing, a generated actor saved and loaded into a new scene, and weight files that must
// not be applied.
#include "knrexport/actor/save_actor.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/host.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/generate/generate.h"
#include "knrexport/scene/actor_lookup.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
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
      {"negative count", Le({0xffffffffu}), true},
      {"count 0, then bytes", Le({0, 1, 0, 0x41c80000}), false},
      {"negative count, then bytes", Le({0xffffffffu, 7}), false},
      {"a point listed twice", Le({1, 2, 3, 3, 0x41c80000, 0x41c80000}), false},
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
  size_t Entries() const {
    size_t entries = 0;
    for (auto it = fs::directory_iterator(dir); it != fs::directory_iterator(); ++it) ++entries;
    return entries;
  }

  struct SaveResult {
    bool saved;
    std::wstring box;  // the last message box
  };
  // Saves the generated actor in a child process that may write files of at most `limit` bytes:
  // a write past it fails (EFBIG) as a write to a full disk does.
  SaveResult SaveInChild(rlim_t limit) {
    int out[2];
    if (::pipe(out) != 0) return {true, L"no pipe"};
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(out[0]);
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit fileSize{limit, limit};
      ::setrlimit(RLIMIT_FSIZE, &fileSize);
      const bool saved = Save(generated);
      const std::string said = (saved ? "1" : "0") + ToUtf8(Boxes().empty() ? L"" : Boxes().back());
      const bool written =
          ::write(out[1], said.data(), said.size()) == static_cast<ssize_t>(said.size());
      ::_exit(written ? 0 : 1);
    }
    ::close(out[1]);
    std::string said;
    char block[4096];
    for (ssize_t n; (n = ::read(out[0], block, sizeof block)) > 0;)
      said.append(block, static_cast<size_t>(n));
    ::close(out[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    if (said.empty()) return {true, L"the child said nothing"};
    return {said[0] == '1', FromUtf8(said.substr(1))};
  }

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
  enum Kind { kBytes, kFolder, kFifo, kEndlessDevice };
  struct Case {
    const char* what;
    Bytes bytes;
    const wchar_t* applied;  // the Skin's weights after the load
    bool refused;
    Kind kind = kBytes;
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
      // Not files at all: refused by name without waiting on them or reading without end.
      {"a folder", {}, asSaved, true, kFolder},
      {"a FIFO", {}, asSaved, true, kFifo},
      {"a link to /dev/zero", {}, asSaved, true, kEndlessDevice},
  };
  for (const Case& c : cases) {
    fs::remove_all(WeightPath());
    if (c.kind == kFolder) fs::create_directory(WeightPath());
    if (c.kind == kFifo) {
      ASSERT_EQ(::mkfifo(WeightPath().c_str(), 0600), 0);
    }
    if (c.kind == kEndlessDevice) fs::create_symlink("/dev/zero", WeightPath());
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

TEST_F(SaveActorTest, ActorFilesThatCannotBeLoadedAddNothing) {
  // Each is refused by the host's importer, which logs an error naming the file, at once (no wait
  // on a FIFO, no endless read); nothing comes into the scene.
  enum Kind { kText, kFolder, kFifo, kEndlessDevice };
  struct Case {
    const char* what;
    Kind kind;
  };
  const Case cases[] = {{"not a scene", kText},
                        {"a folder", kFolder},
                        {"a FIFO", kFifo},
                        {"a link to /dev/zero", kEndlessDevice}};
  Model sceneRoot = Application().GetActiveSceneRoot();
  const long before = sceneRoot.GetChildren().GetCount();
  for (const Case& c : cases) {
    fs::remove_all(file);
    if (c.kind == kText) std::ofstream(fs::path(file)) << "not a scene";
    if (c.kind == kFolder) fs::create_directory(file);
    if (c.kind == kFifo) {
      ASSERT_EQ(::mkfifo(fs::path(file).c_str(), 0600), 0);
    }
    if (c.kind == kEndlessDevice) fs::create_symlink("/dev/zero", file);
    const size_t logged = rt::Host::Get().LogLines().size();
    Answer(L"Load Actor", file);
    CValue ignored;
    Application().ExecuteCommand(L"KnrLoadActor", {}, ignored);  // as a user runs it
    EXPECT_EQ(sceneRoot.GetChildren().GetCount(), before) << c.what;
    const auto& lines = rt::Host::Get().LogLines();
    EXPECT_TRUE(std::any_of(lines.begin() + logged, lines.end(), [&](const rt::LogLine& l) {
      return l.severity == rt::kSevError && l.text.find(file) != std::wstring::npos;
    })) << c.what;
  }
}

TEST_F(SaveActorTest, CancelledLoadLeavesTheRememberedFolder) {
  EXPECT_FALSE(LoadActor());  // no answer queued: the dialog is cancelled
  Property remembered;
  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  ASSERT_TRUE(FindCustomPSet(sceneRoot, L"ActorFile", remembered));
  EXPECT_EQ(remembered.GetParameterValue(L"InitDir").GetAsText(),
            Application().GetInstallationPath(siUserPath));
}

}  // namespace

namespace {

TEST_F(SaveActorTest, FailedSaveKeepsTheOlderPair) {
  // A mesh of many points weighed by many deformers makes the weight file (8 bytes a weight)
  // larger than the actor file (about 5 characters a weight, 15 a point), so that a limit between
  // their sizes lets the export through and stops the weight file.
  constexpr size_t kPoints = 4000, kDeformers = 16;
  X3DObject big, genRoot = generated.FindChild(L"Root");
  genRoot.AddPolygonMesh(CDoubleArray(std::vector<double>(3 * kPoints, 0.0)),
                         CLongArray(std::vector<long>{3, 0, 1, 2}), L"Big", big);
  std::vector<CString> deformers;
  std::wstring deformerList;
  for (size_t d = 0; d < kDeformers; ++d) {
    deformers.push_back(Null(genRoot, (L"Bone" + std::to_wstring(d)).c_str(), 1.0).GetFullName());
    deformerList += (d ? L"," : L"") + deformers.back().Wide();
  }
  Host(L"ApplyEnvelope", {big.GetFullName(), CString(deformerList)});
  for (size_t d = 0; d < kDeformers; ++d) {
    std::wstring weights;
    for (size_t p = 0; p < kPoints; ++p) weights += d == 0 ? L"85 " : L"1 ";
    Host(L"SetDeformerWeights", {big.GetFullName(), deformers[d], CString(weights)});
  }
  // A save that works gives the sizes of both files.
  ASSERT_TRUE(Save(generated));
  const auto actorSize = static_cast<rlim_t>(fs::file_size(file));
  const auto weightSize = static_cast<rlim_t>(fs::file_size(WeightPath()));
  ASSERT_LT(actorSize + 64, weightSize);
  enum Block { kNone, kActorFolder, kWeightFolder };
  struct Case {
    const char* what;
    Block block;
    rlim_t limit;  // the largest file the save may write, as a full disk would stop it
    fs::path atFault;
    const wchar_t* reason;
  };
  const Case cases[] = {
      {"disk full while exporting", kNone, actorSize / 2, file, L"File too large"},
      {"disk full while writing the weight file", kNone, (actorSize + weightSize) / 2, WeightPath(),
       L"File too large"},
      {"a folder in place of the actor file", kActorFolder, RLIM_INFINITY, file, L"Is a directory"},
      {"a folder in place of the weight file", kWeightFolder, RLIM_INFINITY, WeightPath(),
       L"Is a directory"},
  };
  for (const Case& c : cases) {
    fs::remove_all(dir);
    fs::create_directories(dir);
    Boxes().clear();
    const fs::path paths[2] = {fs::path(file), WeightPath()};
    for (const fs::path& path : paths) {
      const bool blocked = path == paths[0] ? c.block == kActorFolder : c.block == kWeightFolder;
      if (blocked) {
        fs::create_directory(path);
        std::ofstream(path / "inside") << "x";  // a folder with something in it
      } else {
        std::ofstream(path, std::ios::binary) << "older " << path.extension().string();
      }
    }
    const SaveResult result = SaveInChild(c.limit);
    EXPECT_FALSE(result.saved) << c.what;
    EXPECT_EQ(result.box.find(L"Kinra Export: " + c.atFault.wstring() + L": "), 0u)
        << c.what << ": " << ToUtf8(result.box);
    EXPECT_NE(result.box.find(c.reason), std::wstring::npos)
        << c.what << ": " << ToUtf8(result.box);
    for (const fs::path& path : paths) {
      if (fs::is_directory(path)) continue;
      const std::string older = "older " + path.extension().string();
      EXPECT_EQ(Read(path), Bytes(older.begin(), older.end())) << c.what;
    }
    EXPECT_EQ(Entries(), 2u) << c.what << ": no temporary file is left";
  }
}

TEST_F(SaveActorTest, ConcurrentSavesLeaveAPairThatBelongsTogether) {
  // Processes save the actor, each with weights of its own, into the same files again and again:
  // every save succeeds, and what is left is one save's pair, with no temporary file beside it.
  constexpr int kRounds = 25;
  const wchar_t* const weights[][2] = {{L"70 0 50", L"30 100 50"}, {L"10 90 40", L"90 10 60"}};
  std::vector<pid_t> children;
  for (const auto& weight : weights) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      Weigh(L"Rig", weight[0], weight[1]);
      int failed = 0;
      for (int round = 0; round < kRounds; ++round) failed += Save(generated) ? 0 : 1;
      ::_exit(failed);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "failed saves: " << status;
  }
  EXPECT_EQ(Entries(), 2u);
  // The weights that the weight file puts back are those the actor file holds.
  rt::Host::Get().NewScene();
  Host(L"ZrImportDotZyraFile", {CString(file)});
  const std::wstring exported =
      SkinLine(Describe(Model(Application().GetObjectFromPath(L"KnrRig"))));
  rt::Host::Get().NewScene();
  Boxes().clear();
  ASSERT_TRUE(Load());
  EXPECT_TRUE(Boxes().empty());
  EXPECT_EQ(SkinLine(Describe(Model(Application().GetObjectFromPath(L"KnrRig")))), exported);
}

}  // namespace
