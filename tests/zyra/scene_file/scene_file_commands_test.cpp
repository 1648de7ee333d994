// The scene-file commands as a plug-in's command runs them: an import that fails is logged as an
// error naming the file and fails the script line, even when the caller ignores the status (as
// Load Actor does: it only looks for a new child), and the scene is left as it was.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "script/script.h"

using namespace Zyra;
namespace fs = std::filesystem;

namespace {

class SceneFileCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zyra_scene_commands_XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern));
    dir_ = pattern;
    rt::Host& host = rt::Host::Get();
    host.NewScene();
    host.ClearLog();
    host.ui() = rt::UiState();
    // A plug-in command that imports a file and, like Load Actor, ignores the status.
    rt::HostCommand load;
    load.name = L"TstLoadActor";
    load.plugin = true;
    load.run = [](const CValueArray& args, CValue&) {
      CValue ignored;
      rt::Host::Get().Execute(L"ZrImportDotZyraFile", {args[0]}, ignored);
      return CStatus(CStatus::OK);
    };
    host.RegisterCommand(load);
  }
  void TearDown() override {
    rt::Host::Get().UnregisterPluginCommands();
    fs::remove_all(dir_);
  }
  std::string File(const std::string& name) const { return dir_ + "/" + name; }
  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Errors() {
    std::string out;
    for (const auto& line : rt::Host::Get().LogLines()) {
      if (line.severity == rt::kSevError) out += ToUtf8(line.text) + "\n";
    }
    return out;
  }
  std::string dir_;
};

TEST_F(SceneFileCommands, AnImportThatFailsUnderAPluginCommandIsLoggedAndFailsItsLine) {
  rt::Host& host = rt::Host::Get();
  auto actor = rt::CreateModel(host.scene().root, L"KnrRig");
  rt::CreateX3D(actor, siX3DObjectID, L"null", L"Hips");
  const std::string good = File("good.zyra");
  CValue none;
  ASSERT_TRUE(
      host.Execute(L"ZrExportDotZyraFile", {CValue(L"KnrRig"), CValue(good)}, none).Succeeded());
  std::ifstream in(good, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto changed = [&text](const std::function<void(nlohmann::ordered_json&)>& change) {
    auto doc = nlohmann::ordered_json::parse(text);
    change(doc);
    return doc.dump(1);
  };
  auto replaced = [&text](const std::string& from, const std::string& to) {
    std::string out = text;
    out.replace(out.find(from), from.size(), to);
    return out;
  };
  std::string flipped = text;
  flipped[0] ^= 0x01;  // '{' becomes 'z'
  const std::string deep = R"({"format":"zyra-scene","version":1,"scene":{"kind":"branch",)"
                           R"("fullName":"A","root":{"class":73,"type":"null","name":"A",)"
                           R"("params":[{"name":"p","type":8204,"value":)" +
                           std::string(50000, '[') + std::string(50000, ']') + "}]}}}";

  struct Case {
    const char* name;
    std::function<void(const std::string& path)> make;  // empty: the file does not exist
    std::string reason;                                 // the message after "<path>: "
  };
  auto file = [](std::string content) {
    return [content](const std::string& path) { Write(path, content); };
  };
  const Case cases[] = {
      {"truncated.zyra", file(text.substr(0, 16)),
       "not a scene file: parse error at line 2, column 15: syntax error while parsing value - "
       "invalid string: missing closing quote; last read: '\"z'"},
      {"flipped.zyra", file(flipped),
       "not a scene file: parse error at line 1, column 1: syntax error while parsing value - "
       "invalid literal; last read: 'z'"},
      {"shape.zyra", file(changed([](auto& d) { d["scene"]["root"] = "KnrRig"; })),
       "at scene.root: expected an object, found a string"},
      {"version.zyra", file(changed([](auto& d) { d["version"] = 7; })),
       "written by a newer Zyra (scene file version 7; this host reads 1)"},
      {"huge.zyra", file(replaced("\"class\": 74", "\"class\": 1e999")),
       "at scene.root.class: number 1e999 out of range"},
      {"utf8.zyra", file(replaced("\"name\": \"KnrRig\"", "\"name\": \"Knr\xff\"")),
       "not a scene file: parse error at line 10, column 19: syntax error while parsing value - "
       "invalid string: ill-formed UTF-8 byte; last read: '\"Knr\xEF\xBF\xBD'"},
      {"deep.zyra", file(deep),
       "at scene.root.params[0].value: the value nests arrays deeper than 1000 levels"},
      {"missing.zyra", {}, "cannot open: No such file or directory"},
      {"folder.zyra", [](const std::string& path) { fs::create_directory(path); },
       "cannot open: it is a folder, not a regular file"},
      {"fifo.zyra", [](const std::string& path) { ::mkfifo(path.c_str(), 0600); },
       "cannot open: it is a FIFO, not a regular file"},
      {"zero.zyra", [](const std::string& path) { fs::create_symlink("/dev/zero", path); },
       "cannot open: it is a character device, not a regular file"},
  };
  const size_t children = host.scene().root->children.size();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = File(c.name);
    if (c.make) c.make(path);
    host.ClearLog();
    CStatus status = rt::RunScriptText(FromUtf8("TstLoadActor \"" + path + "\""), "load.zys");
    const std::string message = path + ": " + c.reason;
    EXPECT_EQ(status.GetMessage().GetAsciiString(), "load.zys:1: TstLoadActor: " + message);
    EXPECT_EQ(Errors(), message + "\nload.zys:1: TstLoadActor: " + message + "\n");
    EXPECT_EQ(host.scene().root->children.size(), children);
  }

  // The good file comes in without a word; run directly, a failure is reported once, by the line.
  host.ClearLog();
  EXPECT_TRUE(rt::RunScriptText(FromUtf8("TstLoadActor \"" + good + "\""), "load.zys").Succeeded());
  EXPECT_EQ(host.scene().root->children.size(), children + 1);
  EXPECT_EQ(Errors(), "");
  CStatus direct =
      rt::RunScriptText(FromUtf8("ZrImportDotZyraFile \"" + File("missing.zyra") + "\""), "d.zys");
  EXPECT_EQ(Errors(), direct.GetMessage().GetAsciiString() + "\n");
}

}  // namespace
