// libFuzzer harness of the scene-file reader: the input is read as scene-file text; whatever
// reads must write back to text that reads again, and that second scene must write the same
// bytes (the writer is deterministic and the reader loses nothing the writer keeps). The input
// is also imported as a branch under the open scene's root, which must leave the scene sound.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"

namespace {

using namespace Zyra;

// Messages go nowhere: the fuzzer's own output (and the sanitizers', on the descriptor) stays
// readable.
void Silence() {
  static std::ostringstream sink;
  static bool done = false;
  if (done) return;
  done = true;
  std::cerr.rdbuf(sink.rdbuf());
  std::cout.rdbuf(sink.rdbuf());
  rt::Host::Get().SetQuiet(true);
}

void Reset() {
  std::cerr.clear();
  std::cout.clear();
  rt::Host& host = rt::Host::Get();
  host.ClearLog();
  host.ui() = rt::UiState();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Silence();
  Reset();
  const std::string text(reinterpret_cast<const char*>(bytes), size);

  rt::Scene first;
  if (rt::ReadSceneText(text, "fuzz.zyra", first).Succeeded()) {
    const std::string written = rt::WriteSceneText(first);
    rt::Scene second;
    const CStatus again = rt::ReadSceneText(written, "written.zyra", second);
    if (!again.Succeeded()) {
      std::fprintf(stderr, "written scene does not read back: %s\n%s\n",
                   again.GetMessage().GetAsciiString().c_str(), written.c_str());
      std::abort();
    }
    const std::string rewritten = rt::WriteSceneText(second);
    if (rewritten != written) {
      std::fprintf(stderr, "second write differs:\n%s\n----\n%s\n", written.c_str(),
                   rewritten.c_str());
      std::abort();
    }
    rt::DestroySceneObjects(first);
    rt::DestroySceneObjects(second);
  } else if (first.root) {
    std::abort();  // a failed read leaves the output empty
  }

  // The same text as a branch imported into a fresh open scene.
  rt::Host::Get().NewScene();
  std::shared_ptr<rt::X3D> top;
  rt::Scene& open = rt::Host::Get().scene();
  if (rt::ReadBranchText(text, "fuzz.zyra", open.root, top).Succeeded()) {
    if (!top || top->Owner() != open.root) std::abort();
    rt::WriteSceneText(open);
  } else if (top) {
    std::abort();
  }
  return 0;
}
