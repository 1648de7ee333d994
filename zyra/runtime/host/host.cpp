// The host: the command table and the log.
#include "host/host.h"

#include <cstdio>
#include <fstream>
#include <iostream>

#include "model/scene_graph.h"

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

void Host::TakePendingCommands() const {
  for (auto& command : PendingCommands()) commands_[command.name] = command;
  PendingCommands().clear();
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

bool Host::CommandLogging() const {
  auto p = Resolve(L"preferences.scripting.cmdlog");
  return p && static_cast<Parameter&>(*p).value.AsBool();
}

}  // namespace Zyra::rt
