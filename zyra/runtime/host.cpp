// The host: scene set-up, the command table, the log and argument helpers.
#include "host.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace Zyra::rt {

namespace {

// Commands that register while the library loads wait here until the host exists.
std::vector<HostCommand>& PendingCommands() {
  static std::vector<HostCommand> pending;
  return pending;
}

}  // namespace

CommandRegistration::CommandRegistration(const wchar_t* name, CommandFn fn) {
  PendingCommands().push_back(HostCommand{name, L"", std::move(fn), false, false});
}

Host& Host::Get() {
  static Host host;
  return host;
}

Host::Host() { NewScene(); }

void Host::TakePendingCommands() const {
  for (auto& command : PendingCommands()) commands_[command.name] = command;
  PendingCommands().clear();
}

void Host::NewScene() {
  if (scene_.root) Destroy(scene_.root);
  scene_ = Scene();
  scene_.groups = std::make_shared<Container>(L"Groups");
  scene_.root = CreateModel(nullptr, L"Scene_Root");
  scene_.passes = std::make_shared<Container>(L"Passes");
  CreatePass(scene_.passes, L"Default_Pass");

  auto play = std::make_shared<Property>(siPropertyID, L"PlayControl", L"PlayControl");
  play->AddParam(MakeParam(L"Current", siDouble, CValue(1.0), {}, {}, kPersistable));
  play->AddParam(MakeParam(L"In", siDouble, CValue(1.0), {}, {}, kPersistable));
  play->AddParam(MakeParam(L"Out", siDouble, CValue(100.0), {}, {}, kPersistable));
  scene_.playControl = play;

  auto prefs = std::make_shared<Property>(siPreferencesID, L"preferences", L"preferences");
  auto scripting = CreateProperty(prefs, siPropertyID, L"scripting", L"scripting");
  scripting->AddParam(MakeParam(L"cmdlog", siBool, CValue(true), {}, {}, kPersistable));
  auto output = CreateProperty(prefs, siPropertyID, L"output_format", L"output_format");
  output->AddParam(MakeParam(L"frame_rate", siDouble, CValue(30.0), CValue(0.001), CValue(1000.0),
                             kPersistable));
  scene_.preferences = prefs;

  // Options of the scene-file export; the exporter reads custompset and animall.
  auto options = std::make_shared<Property>(siPropertyID, L"dotZyraExportOptions", L"dotZyraExportOptions");
  options->AddParam(MakeParam(L"output_file_format_version", siInt4, CValue(360), {}, {}, kPersistable));
  for (const wchar_t* flag : {L"tesselation", L"polymesh", L"nrbscrv", L"animall", L"custompset",
                              L"animplot", L"textures", L"txtfiles", L"txtabsolute", L"txtsequences"}) {
    bool on = std::wstring(flag) != L"animplot";
    options->AddParam(MakeParam(flag, siBool, CValue(on), {}, {}, kPersistable));
  }
  for (const wchar_t* number : {L"txtformat", L"txtresizex", L"txtresizey"}) {
    options->AddParam(MakeParam(number, siInt4, CValue(0), {}, {}, kPersistable));
  }
  scene_.exportOptions = options;
}

void Host::RegisterCommand(HostCommand command) { commands_[command.name] = std::move(command); }

void Host::UnregisterPluginCommands() {
  for (auto it = commands_.begin(); it != commands_.end();) {
    it = it->second.plugin ? commands_.erase(it) : std::next(it);
  }
}

const HostCommand* Host::FindCommand(std::wstring_view name) const {
  TakePendingCommands();
  auto it = commands_.find(name);
  if (it != commands_.end()) return &it->second;
  for (const auto& [key, command] : commands_) {
    if (!command.displayName.empty() && command.displayName == name) return &command;
  }
  return nullptr;
}

std::vector<const HostCommand*> Host::Commands() const {
  TakePendingCommands();
  std::vector<const HostCommand*> out;
  for (const auto& [key, command] : commands_) out.push_back(&command);
  return out;
}

CStatus Host::Execute(std::wstring_view name, const CValueArray& args, CValue& result) {
  result = CValue();
  const HostCommand* command = FindCommand(name);
  if (!command) {
    return CStatus(CStatus::MemberNotFound, L"Unknown command \"" + std::wstring(name) + L"\".");
  }
  if (CommandLogging() && !command->noLogging) {
    std::wstring line = command->name + L"(";
    for (long i = 0; i < args.GetCount(); ++i) {
      if (i) line += L", ";
      const CValue& a = args[i];
      line += a.GetType() == siString ? L"\"" + a.GetAsText().Wide() + L"\"" : a.GetAsText().Wide();
    }
    Log(kSevVerbose, line + L")");
  }
  CommandFn run = command->run;  // the table may change while the command runs
  struct Depth {
    int& depth;
    explicit Depth(int& d) : depth(++d) {}
    ~Depth() { --depth; }
  } depth(commandDepth_);
  try {
    return run(args, result);
  } catch (const std::exception& e) {
    return CStatus(CStatus::Unexpected,
                   std::wstring(name) + L" failed: " + FromUtf8(e.what()));
  }
}

void Host::Log(int severity, const std::wstring& text) {
  log_.push_back(LogLine{severity, text});
  const char* prefix = severity == kSevError     ? "ERROR: "
                       : severity == kSevWarning ? "WARNING: "
                       : severity == kSevVerbose ? "# "
                                                 : "";
  std::string line = prefix + ToUtf8(text) + "\n";
  bool show = severity <= kSevInfo ? !quiet_ || severity <= kSevWarning : verbose_;
  if (show) std::cerr << line << std::flush;
  if (!logFile_.empty()) {
    std::ofstream file(logFile_, std::ios::app);
    file << line;
  }
}

void Host::LogCommandFailure(const CStatus& status) {
  const std::wstring text = status.GetMessage().Wide();
  Log(kSevError, text);
  ui_.lineFailures.push_back(text);
}

void Host::SetLogFile(const std::string& path) { logFile_ = path; }

double Host::CurrentFrame() const {
  return scene_.playControl->FindParam(L"Current")->value.AsDouble();
}

double Host::FrameRate() const {
  auto p = Resolve(L"preferences.output_format.frame_rate");
  return p ? static_cast<Parameter&>(*p).value.AsDouble() : 30.0;
}

bool Host::CommandLogging() const {
  auto p = Resolve(L"preferences.scripting.cmdlog");
  return p && static_cast<Parameter&>(*p).value.AsBool();
}

// ---- Arguments --------------------------------------------------------------------------------

std::shared_ptr<Object> ArgObject(const CValue& arg) {
  if (arg.GetType() == siRef) return arg.AsRef().Get();
  if (arg.GetType() == siString) return Resolve(arg.GetAsText().Wide());
  if (arg.GetType() == siArray && arg.AsArray().GetCount() == 1) return ArgObject(arg.AsArray()[0]);
  return nullptr;
}

CStatus ArgObjects(const CValue& arg, std::vector<std::shared_ptr<Object>>& out) {
  out.clear();
  if (arg.GetType() == siArray) {
    for (const CValue& item : arg.AsArray()) {
      std::vector<std::shared_ptr<Object>> some;
      CStatus status = ArgObjects(item, some);
      if (!status.Succeeded()) return status;
      out.insert(out.end(), some.begin(), some.end());
    }
    return CStatus::OK;
  }
  if (arg.GetType() == siRef) {
    auto object = arg.AsRef().Get();
    if (!object) return CStatus(CStatus::InvalidArgument, L"The object was deleted.");
    out.push_back(object);
    return CStatus::OK;
  }
  if (arg.GetType() != siString) {
    return CStatus(CStatus::InvalidArgument, L"Expected an object, got \"" + arg.GetAsText().Wide() + L"\".");
  }
  std::wstring list = arg.GetAsText().Wide();
  size_t start = 0;
  while (start <= list.size()) {
    size_t comma = list.find(L',', start);
    std::wstring name = list.substr(start, comma == std::wstring::npos ? comma : comma - start);
    while (!name.empty() && name.front() == L' ') name.erase(0, 1);
    while (!name.empty() && name.back() == L' ') name.pop_back();
    if (!name.empty()) {
      auto object = Resolve(name);
      if (!object) return CStatus(CStatus::InvalidArgument, L"No object is named \"" + name + L"\".");
      out.push_back(object);
    }
    if (comma == std::wstring::npos) break;
    start = comma + 1;
  }
  return CStatus::OK;
}

const CValue& Arg(const CValueArray& args, long i) {
  static const CValue kEmpty;
  return i >= 0 && i < args.GetCount() ? args[i] : kEmpty;
}

std::wstring Quoted(const CValue& arg) { return L"\"" + arg.GetAsText().Wide() + L"\""; }

bool ArgNumber(const CValue& arg, double& out) {
  CValue number;
  if (!arg.ChangeType(siDouble, number).Succeeded()) return false;
  out = number.AsDouble();
  return std::isfinite(out);
}

bool ArgInteger(const CValue& arg, int& out) {
  double number = 0;
  if (!ArgNumber(arg, number) || number != std::floor(number) || std::fabs(number) > 1e9) {
    return false;
  }
  out = static_cast<int>(number);
  return true;
}

CStatus ArgError(std::wstring_view command, const std::wstring& what) {
  return CStatus(CStatus::InvalidArgument, std::wstring(command) + L": " + what);
}

}  // namespace Zyra::rt
