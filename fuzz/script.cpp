// libFuzzer harness of the script language: the input is tokenized line by line, then run as a
// script in a fresh scene with every failure kept going. Lines that would touch files or load
// modules are dropped before the run (the rest of the host's commands are all in play), and the
// process works in a temporary folder in case a command writes anything else.
#include "script/script.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "model/scene_graph.h"
#include "quiet_host.h"

namespace {

using namespace Zyra;

// Commands and directives that read or write files or load code. A quoted command name can only
// unescape '"' and '\\', neither of which a name holds, so a line that runs one of these holds
// its name as it is.
constexpr const wchar_t* kFileCommands[] = {
    L"LoadPlugin",          L"SaveScene",           L"OpenScene",
    L"ZrExportDotZyraFile", L"ZrImportDotZyraFile", L"ExportRenderArchive",
};

void Setup() {
  static bool done = false;
  if (done) return;
  done = true;
  QuietHost();
  std::error_code error;
  auto dir = std::filesystem::temp_directory_path(error) /
             ("zyra_fuzz_script_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir, error);
  std::filesystem::current_path(dir, error);
}

std::wstring Harmless(const std::wstring& text) {
  std::wstring out;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(L'\n', start);
    std::wstring line = text.substr(start, end == std::wstring::npos ? end : end - start);
    bool drop = false;
    for (const wchar_t* name : kFileCommands) drop = drop || line.find(name) != std::wstring::npos;
    // A dropped line stays as an empty one so that line numbers match the input.
    if (!drop) out += line;
    if (end == std::wstring::npos) break;
    out += L'\n';
    start = end + 1;
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Setup();
  std::cerr.clear();
  std::cout.clear();
  rt::Host& host = rt::Host::Get();
  host.ClearLog();
  host.ui() = rt::UiState();
  host.NewScene();

  const std::wstring text = FromUtf8(std::string(reinterpret_cast<const char*>(bytes), size));

  // Every line tokenizes or fails with a message; tokens of a line that tokenized have text.
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(L'\n', start);
    std::wstring_view line =
        std::wstring_view(text).substr(start, end == std::wstring::npos ? end : end - start);
    std::vector<rt::script::Token> tokens;
    CStatus status = rt::script::Tokenize(line, tokens);
    if (!status.Succeeded() && status.GetMessage().IsEmpty()) std::abort();
    for (const auto& token : tokens) {
      if (token.kind == rt::script::TokenKind::kWord && token.text.empty()) std::abort();
      rt::script::FormatValue(token.value);
    }
    if (end == std::wstring::npos) break;
    start = end + 1;
  }

  rt::ScriptOptions options;
  options.keepGoing = true;
  const CStatus status = rt::RunScriptText(Harmless(text), "fuzz.zys", options);
  if (!status.Succeeded() && status.GetMessage().IsEmpty()) std::abort();
  host.NewScene();
  return 0;
}
