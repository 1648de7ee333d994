// The running host: the host command table, the log and the headless user interface state, over
// the open scene (which the object model keeps: model/scene_graph.h). One per process; the command
// line and the tests drive it through this interface, plug-ins only through the SDK. Loading
// plug-ins, scene files and scripts have their own rooms (plugins/, scene_file/, script/).
#pragma once

#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/scene_graph.h"
#include "zyra/core.h"

namespace Zyra::rt {

// Log severities.
enum Severity : int {
  kSevError = 2,
  kSevWarning = 4,
  kSevMessage = 8,
  kSevInfo = 16,
  kSevVerbose = 32,
};

// A host command: reads its arguments, returns a value, fails with a message that names what is
// wrong. Arguments are positional; missing ones are empty values.
using CommandFn = std::function<CStatus(const CValueArray& args, CValue& result)>;

struct HostCommand {
  std::wstring name;         // the name scripts use
  std::wstring displayName;  // plug-in commands: the display name, also accepted
  CommandFn run;
  bool plugin = false;
  bool noLogging = false;  // the plug-in's no-logging flag
};

// Registers a built-in host command at load time: ZYRA_HOST_COMMAND(L"Rotate", RotateCommand);
struct CommandRegistration {
  CommandRegistration(const wchar_t* name, CommandFn fn);
};
#define ZYRA_HOST_COMMAND_CAT2(a, b) a##b
#define ZYRA_HOST_COMMAND_CAT(a, b) ZYRA_HOST_COMMAND_CAT2(a, b)
#define ZYRA_HOST_COMMAND(name, fn) \
  static const ::Zyra::rt::CommandRegistration ZYRA_HOST_COMMAND_CAT(kCommand_, __LINE__)(name, fn)

struct LogLine {
  int severity;
  std::wstring text;
};

// What the user interface was asked and answered; tests and scripts queue answers.
struct PageAnswer {
  std::wstring title;                                   // empty matches any page
  std::vector<std::pair<std::wstring, std::wstring>> values;  // parameter name -> value text
  std::vector<std::wstring> presses;                    // buttons pressed in order
  bool cancel = false;
};
struct ProgressRecord {
  std::vector<std::wstring> captions;
  long maximum = 100;
  long value = 0;
  bool cancelEnabled = true;
  bool visible = false;
};
struct UiState {
  std::deque<int> msgBoxAnswers;                  // 1 OK, 2 Cancel, 6 Yes, 7 No
  std::deque<PageAnswer> pageAnswers;
  std::deque<std::pair<std::wstring, std::wstring>> fileAnswers;  // dialog title -> path
  std::deque<std::wstring> pickAnswers;           // object names ("" = nothing picked)
  int defaultQuestionAnswer = 0;                  // 0: OK/Yes; else a fixed answer
  bool shift = false;
  std::vector<std::wstring> messageBoxes;         // "caption: text" of every box shown
  // What makes a script line fail although its command returned OK: the text of every OK-only
  // box (a refusal or a warning) and every page answer that could not be applied. The script
  // runner empties it before each command and reads it after.
  std::vector<std::wstring> lineFailures;
  std::vector<ProgressRecord> progressRuns;       // one per run of the progress bar
};

class Host {
 public:
  static Host& Get();

  // The open scene (model/scene_graph.h).
  Scene& scene() { return OpenScene(); }
  UiState& ui() { return ui_; }

  // Discards the open scene and makes a new empty one (Scene_Root, default pass, preferences).
  void NewScene() { rt::NewScene(); }

  // Host command table.
  void RegisterCommand(HostCommand command);
  void UnregisterPluginCommands();
  const HostCommand* FindCommand(std::wstring_view name) const;
  std::vector<const HostCommand*> Commands() const;
  // Runs a command by name; logs it while "preferences.scripting.cmdlog" is true.
  CStatus Execute(std::wstring_view name, const CValueArray& args, CValue& result);
  // How many commands are running: 0 between commands, 2 or more while a command (a plug-in's)
  // runs another.
  int CommandDepth() const { return commandDepth_; }

  // Logs a failure the way the application logs one that ends inside another command: an error
  // in the log, and a failure of the script line that ran the outer command (the caller may not
  // look at the status). Used by commands whose failure a caller must not swallow.
  void LogCommandFailure(const CStatus& status);

  // The log: standard error (messages and worse, or everything with verbose) and an optional file.
  void Log(int severity, const std::wstring& text);
  const std::vector<LogLine>& LogLines() const { return log_; }
  void ClearLog() { log_.clear(); }
  void SetLogFile(const std::string& path);
  void SetVerbose(bool verbose) { verbose_ = verbose; }
  void SetQuiet(bool quiet) { quiet_ = quiet; }
  // Whether a message box is echoed on standard error with its answer (on unless switched off:
  // a batch log shows what the user would have been told).
  void SetEchoMessageBoxes(bool echo) { echoMessageBoxes_ = echo; }
  bool EchoMessageBoxes() const { return echoMessageBoxes_; }

  // Frame used when a call says "at the current time".
  double CurrentFrame() const { return rt::CurrentFrame(); }
  double FrameRate() const { return rt::FrameRate(); }
  bool CommandLogging() const;

 private:
  Host() = default;
  // Moves commands registered since the last call into the table.
  void TakePendingCommands() const;
  UiState ui_;
  mutable std::map<std::wstring, HostCommand, std::less<>> commands_;
  std::vector<LogLine> log_;
  std::string logFile_;
  bool verbose_ = false;
  bool quiet_ = false;
  int commandDepth_ = 0;
  bool echoMessageBoxes_ = true;
};

}  // namespace Zyra::rt
