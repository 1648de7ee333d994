// The render setup: the ".knrn" lines, the companion files and what each archive holds, failing
// exports, and refusals that leave everything as it was.
#include "knrexport/render/render_setup_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "model/scene_graph.h"
#include "render_test_scene.h"

namespace {

using namespace render_test;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}
bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }
// The object names of each frame block of a render archive, one line per frame.
std::string ArchiveObjects(const std::string& path) {
  std::istringstream in(ReadFile(path));
  std::string word, out;
  while (in >> word) {
    if (word == "frame") {
      in >> word;
      out += "frame " + word + ":";
    } else if (word == "object") {
      in >> word;
      out += " " + word;
    } else if (word == "end") {
      out += "\n";
    }
  }
  return out;
}

class RenderSetupFileTest : public RenderSceneTest {
 protected:
  void SetUp() override {
    RenderSceneTest::SetUp();
    dir_ = ::testing::TempDir() + "render_setup_" + std::to_string(getpid()) + "/";
    mkdir(dir_.c_str(), 0755);
  }
  static CRef MakeGroup(const wchar_t* name, const wchar_t* members) {
    return Run(L"CreateGroup", {name, members}).AsRef();
  }
  std::string dir_;
};

// Each target is archived alone at frame 1, the environment over the range without the targets;
// the lamp under the light is never switched off, the wall its user hid never shows. Companion
// paths join the directory, which keeps its separator, with one more.
TEST_F(RenderSetupFileTest, SetupLinesCompanionFilesAndArchives) {
  struct Case {
    const char* what;
    const wchar_t* members;
    bool domap;
    const wchar_t* className;
    std::string lines;
    std::map<std::string, std::string> archives;  // file -> objects per frame
    bool blockFred = false;  // directories stand where Fred's files go: his exports fail
  };
  const std::string envFrame = " \"Ground\" \"Lamp\"\n";
  const std::string fredFrame = " \"Fred.Body\" \"Fred.Head\"";
  const Case cases[] = {
      {"Fred and Ann",
       L"Fred,Ann",
       true,
       L"Crowd",
       "2\n1\n3\nFred\nAnn\n1\nCrowd\n",
       {{"Fred", "frame 1:" + fredFrame + " \"Lamp\"\n"},
        {"Ann", "frame 1: \"Ann.Body\" \"Lamp\"\n"},
        {"env", "frame 1:" + envFrame + "frame 2:" + envFrame + "frame 3:" + envFrame}}},
      {"a light, a null and Ann twice count once; an empty class name",
       L"Sun,Ground,Ann,Ann",
       false,
       L"",
       "1\n1\n3\nAnn\n0\n\n",
       {{"Ann", "frame 1: \"Ann.Body\" \"Lamp\"\n"},
        {"env", "frame 1:" + fredFrame + envFrame + "frame 2:" + fredFrame + envFrame +
                    "frame 3:" + fredFrame + envFrame}}},
      {"Fred's exports fail: the generation goes on",
       L"Fred,Ann",
       true,
       L"C",
       "2\n1\n3\nFred\nAnn\n1\nC\n",
       {{"Ann", "frame 1: \"Ann.Body\" \"Lamp\"\n"}},
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    rt::Host::Get().NewScene();
    ui().progressRuns.clear();
    BuildScene();
    Run(L"SetValue", {L"preferences.scripting.cmdlog", true});
    for (const char* name : {"Fred", "Fred.zyra"}) {
      if (c.blockFred) mkdir((dir_ + name).c_str(), 0755);
    }
    const Visibility before = SceneVisibility();
    const std::string setup = dir_ + "crowd.knrn";
    ASSERT_TRUE(GenerateRenderSetup(CString(setup), MakeGroup(L"Crowd", c.members), 1, 3, c.domap,
                                    c.className, true));
    EXPECT_EQ(ReadFile(setup), c.lines);
    EXPECT_TRUE(ui().messageBoxes.empty());
    EXPECT_EQ(SceneVisibility(), before);
    EXPECT_TRUE(Run(L"GetValue", {L"preferences.scripting.cmdlog"}).AsBool());
    const long n = c.lines[0] - '0';
    ASSERT_EQ(ui().progressRuns.size(), 1u);
    EXPECT_EQ(ui().progressRuns[0].captions, std::vector<std::wstring>{kRenderSetupCaption});
    EXPECT_EQ(ui().progressRuns[0].maximum, 5 * n + 7);
    EXPECT_EQ(ui().progressRuns[0].value, 5 * n + 7);
    EXPECT_EQ(Run(L"GetValue", {L"Passes.Default_Pass.ArchiveFileName"}).GetAsText(),
              CString(dir_ + "/env"));
    for (const auto& [file, objects] : c.archives) {
      EXPECT_EQ(ArchiveObjects(dir_ + "/" + file), objects) << file;
      if (file != "env") {
        EXPECT_NE(ReadFile(dir_ + "/" + file + ".zyra").find("\"Body\""), std::string::npos)
            << file;
      }
    }
    for (const char* name : {"Fred", "Fred.zyra", "Ann", "Ann.zyra", "env", "crowd.knrn"}) {
      std::remove((dir_ + name).c_str());  // files and empty directories alike
    }
  }
}

// Refusals say why, in a message box or in the log, and leave the setup file and the scene alone.
TEST_F(RenderSetupFileTest, RefusalsChangeNothing) {
  BuildScene();
  const std::string existing = dir_ + "kept.knrn";
  std::ofstream(existing) << "kept\n";
  // Not files to write a setup into: refused by name before they are opened (a FIFO would wait
  // for a reader, the device would swallow the setup).
  const std::string fifo = dir_ + "fifo.knrn", device = dir_ + "zero.knrn";
  std::remove(fifo.c_str());
  std::remove(device.c_str());
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", device.c_str()), 0);
  struct Case {
    std::string file;
    const wchar_t* group;  // null: no group at all
    const wchar_t* message;
    bool named = false;  // the log names the file and what it is
  };
  const Case cases[] = {
      {"", L"Fred", kRenderSetupNoFile},
      {dir_, L"Fred", kRenderSetupNoFile, true},
      {fifo, L"Fred", kRenderSetupNoFile, true},
      {device, L"Fred", kRenderSetupNoFile, true},
      {dir_ + "missing/a.knrn", L"Fred", kRenderSetupNoFile},
      {existing, nullptr, kRenderSetupNoGroup},
      {existing, L"Ground,Sun", kRenderSetupNoModels},
      {dir_ + "new.knrn", L"", kRenderSetupNoModels},
  };
  const Visibility before = SceneVisibility();
  for (bool doui : {true, false}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.file + (doui ? " with message box" : " in the log"));
      ui().messageBoxes.clear();
      rt::Host::Get().ClearLog();
      CRef group =
          c.group ? MakeGroup(L"Targets", c.group) : Application().GetObjectFromPath(L"Fred");
      EXPECT_FALSE(GenerateRenderSetup(CString(c.file), group, 1, 2, true, L"Crowd", doui));
      const auto& lines = rt::Host::Get().LogLines();
      EXPECT_EQ(std::any_of(lines.begin(), lines.end(),
                            [&](const rt::LogLine& l) {
                              return l.text.rfind(FromUtf8(c.file) + L": it is ", 0) == 0;
                            }),
                c.named);
      if (doui) {
        EXPECT_EQ(ui().messageBoxes,
                  std::vector<std::wstring>{std::wstring(L"Kinra Export: ") + c.message});
      } else {
        EXPECT_TRUE(ui().messageBoxes.empty());
        const auto& log = rt::Host::Get().LogLines();
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log.back().severity, rt::kSevMessage);
        EXPECT_EQ(log.back().text, c.message);
      }
      EXPECT_EQ(ReadFile(existing), "kept\n");
      EXPECT_FALSE(Exists(dir_ + "new.knrn"));
      EXPECT_TRUE(ui().progressRuns.empty());
      EXPECT_EQ(SceneVisibility(), before);
    }
  }
  std::remove(fifo.c_str());
  std::remove(device.c_str());
}

}  // namespace
