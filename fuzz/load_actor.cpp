// libFuzzer harness of Load Actor: the input is an actor file and its weight file, written into a
// temporary folder of this process; the plug-in's Load Actor command then runs on them in the
// headless host, its file dialog answered with the actor file.
//
// Input: ACTOR [SEPARATOR WEIGHTS], split at the first separator line:
//   "\n--wgmp--\n"       the weight file holds WEIGHTS
//   "\n--wgmp-dir--\n"   the weight file is a folder (WEIGHTS unused)
//   "\n--wgmp-fifo--\n"  the weight file is a named pipe that nobody writes to (WEIGHTS unused)
// Without a separator the actor file has no weight file beside it.
//
// Besides crashes, leaks and hangs, the harness aborts when
//   - the command throws (nothing may leave the plug-in as an exception);
//   - the command runs longer than kLongestRun: it waited on something (the fuzzer's own timeout
//     alone can miss a wait on a named pipe, which its alarm signal breaks off);
//   - the actor file does not read as a branch and no message names it;
//   - the actor file reads as a branch and Load Actor adds nothing to the scene (a weight file,
//     good or bad, never keeps the actor out);
//   - the actor came in, its weight file is no regular file or is refused by the weight-file
//     reader, and no message names the weight file.
// A message is a message box, a logged warning or error, or the command's failing status.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "knrexport/actor/weight_file.h"
#include "knrexport/plugin/command_table.h"
#include "knrexport/plugin/dispatch.h"
#include "model/scene_graph.h"
#include "quiet_host.h"
#include "scene_file/scene_file.h"
#include "zyra/application.h"

namespace {

using namespace Zyra;
namespace fs = std::filesystem;

// Load Actor of these inputs takes well under a second even instrumented.
constexpr auto kLongestRun = std::chrono::seconds(5);

enum class WeightKind { kNone, kFile, kFolder, kFifo };

struct Split {
  std::string actor;
  std::string weights;
  WeightKind kind = WeightKind::kNone;
};

Split SplitInput(const std::string& input) {
  static const struct {
    const char* separator;
    WeightKind kind;
  } kSeparators[] = {{"\n--wgmp--\n", WeightKind::kFile},
                     {"\n--wgmp-dir--\n", WeightKind::kFolder},
                     {"\n--wgmp-fifo--\n", WeightKind::kFifo}};
  Split out;
  out.actor = input;
  size_t first = std::string::npos;
  for (const auto& s : kSeparators) {
    const size_t at = input.find(s.separator);
    if (at == std::string::npos || at >= first) continue;
    first = at;
    out.actor = input.substr(0, at);
    out.weights = input.substr(at + std::string(s.separator).size());
    out.kind = s.kind;
  }
  return out;
}

const fs::path& Folder() {
  static const fs::path dir =
      fs::temp_directory_path() / ("fuzz_load_actor_" + std::to_string(::getpid()));
  return dir;
}

[[noreturn]] void Fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "load_actor: %s: %s\n", what, detail.c_str());
  std::abort();
}

void Setup() {
  static bool done = false;
  if (done) return;
  done = true;
  QuietHost();
  // Registered as the loaded module registers it, so that it runs as a user runs it: through the
  // host, which reports the failures of the commands it nests (the importer's among them).
  rt::HostCommand command;
  command.name = L"KnrLoadActor";
  command.plugin = true;
  command.run = [](const CValueArray& args, CValue&) {
    try {  // here, since the host turns what a command throws into its failing status
      return ExecuteEntry(*FindCommandEntry(L"Load Actor"), args);
    } catch (const std::exception& e) {
      Fail("Load Actor threw", e.what());
    } catch (...) {
      Fail("Load Actor threw", "an exception of no standard type");
    }
  };
  rt::Host::Get().RegisterCommand(std::move(command));
}

bool WriteFile(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

// Whether the scene reader takes `text` as a branch (read into a scene of its own).
bool ReadsAsBranch(const std::string& text) {
  rt::Host::Get().NewScene();
  std::shared_ptr<rt::X3D> top;
  const bool reads =
      rt::ReadBranchText(text, "actor.zyra", rt::Host::Get().scene().root, top).Succeeded();
  rt::Host::Get().NewScene();
  return reads;
}

// Every message the run left: boxes, logged warnings and errors, and the command's status.
std::string Messages(const CStatus& status) {
  std::string all;
  for (const std::wstring& box : rt::Host::Get().ui().messageBoxes) all += ToUtf8(box) + "\n";
  for (const rt::LogLine& line : rt::Host::Get().LogLines()) {
    if (line.severity == rt::kSevError || line.severity == rt::kSevWarning)
      all += ToUtf8(line.text) + "\n";
  }
  if (!status.Succeeded()) all += ToUtf8(status.GetMessage().Wide()) + "\n";
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Setup();
  const Split input = SplitInput(std::string(reinterpret_cast<const char*>(bytes), size));

  std::error_code error;
  fs::remove_all(Folder(), error);
  fs::create_directories(Folder(), error);
  const fs::path actor = Folder() / "actor.zyra";
  const fs::path weights = Folder() / "actor.wgmp";
  if (!WriteFile(actor, input.actor)) Fail("cannot write", actor.string());
  bool weightsRefused = input.kind == WeightKind::kFolder || input.kind == WeightKind::kFifo;
  if (input.kind == WeightKind::kFile) {
    if (!WriteFile(weights, input.weights)) Fail("cannot write", weights.string());
    WeightList records;
    std::wstring problem;
    weightsRefused = !DecodeWeightFile(
        std::vector<std::uint8_t>(input.weights.begin(), input.weights.end()), records, problem);
  } else if (input.kind == WeightKind::kFolder) {
    fs::create_directory(weights, error);
  } else if (input.kind == WeightKind::kFifo && ::mkfifo(weights.c_str(), 0600) != 0) {
    Fail("cannot make a named pipe", weights.string());
  }

  const bool actorReads = ReadsAsBranch(input.actor);
  std::cerr.clear();
  std::cout.clear();
  rt::Host& host = rt::Host::Get();
  host.NewScene();
  host.ClearLog();
  host.ui() = rt::UiState();
  host.ui().fileAnswers.emplace_back(L"Load Actor", actor.wstring());

  Model sceneRoot = Application().GetActiveSceneRoot();
  const long before = sceneRoot.GetChildren().GetCount();
  CStatus status;
  const auto start = std::chrono::steady_clock::now();
  CValue ignored;
  status = host.Execute(L"KnrLoadActor", CValueArray(), ignored);
  const auto took = std::chrono::steady_clock::now() - start;
  if (took > kLongestRun) {
    Fail("Load Actor waited",
         std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()) +
             " ms");
  }
  const bool added = sceneRoot.GetChildren().GetCount() > before;
  const std::string messages = Messages(status);

  if (!actorReads && messages.find("actor.zyra") == std::string::npos) {
    Fail("an actor file that does not read left no message naming it", messages);
  }
  if (actorReads && !added) Fail("an actor file that reads was not loaded", messages);
  if (added && weightsRefused && messages.find("actor.wgmp") == std::string::npos) {
    Fail("a refused weight file left no message naming it", messages);
  }

  host.NewScene();
  fs::remove_all(Folder(), error);
  return 0;
}
