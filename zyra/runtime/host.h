// The running host: the open scene, the host command table, the log, the headless user
// interface state and the loaded plug-ins. One per process; the command line and the tests
// drive it through this interface, plug-ins only through the SDK.
#pragma once

#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model.h"
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

// The objects of one open scene.
struct Scene {
  std::shared_ptr<ModelObject> root;          // "Scene_Root"
  std::shared_ptr<Container> groups;          // scene-level groups
  std::shared_ptr<Container> passes;          // "Passes" with "Default_Pass"
  std::shared_ptr<Property> playControl;      // "PlayControl": Current, In, Out
  std::shared_ptr<Property> preferences;      // "preferences": scripting.cmdlog, output_format.frame_rate
  std::shared_ptr<Property> exportOptions;    // "dotZyraExportOptions"
  std::vector<std::weak_ptr<Object>> selection;
  std::wstring currentPass = L"Default_Pass";
};

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

  Scene& scene() { return scene_; }
  UiState& ui() { return ui_; }

  // Discards the open scene and makes a new empty one (Scene_Root, default pass, preferences).
  void NewScene();

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
  double CurrentFrame() const;
  double FrameRate() const;
  bool CommandLogging() const;

 private:
  Host();
  // Moves commands registered since the last call into the table.
  void TakePendingCommands() const;
  Scene scene_;
  UiState ui_;
  mutable std::map<std::wstring, HostCommand, std::less<>> commands_;
  std::vector<LogLine> log_;
  std::string logFile_;
  bool verbose_ = false;
  bool quiet_ = false;
  int commandDepth_ = 0;
  bool echoMessageBoxes_ = true;
};

// ---- Plug-ins (plugin_loader.cpp) ------------------------------------------------------------

// Loads a plug-in module; loading the same module again does nothing. Fails with a message that
// names the module and what is missing (entry point, callback, unresolved symbol).
CStatus LoadPlugin(const std::string& path);
// Loads every module (*.so) of a folder, in name order; the first failure is returned after
// the others were tried.
CStatus LoadPluginsIn(const std::string& directory);
// Calls each module's ZyraUnloadPlugin, removes its commands and property types and closes it.
// Properties of its types stay in the scene as plain custom properties without page events.
void UnloadPlugins();
// The registrars of the loaded plug-ins, in load order (PluginRegistrar handles).
CRefArray LoadedPlugins();
// Where plug-ins are installed: the "plugins" folder beside the executable's "bin" folder.
std::string DefaultPluginDirectory();
bool IsPluginPropertyType(std::wstring_view type);
// A property of a plug-in's type on `owner`: made, its Define and DefineLayout callbacks run.
std::shared_ptr<Property> CreatePluginProperty(const std::shared_ptr<Object>& owner,
                                               std::wstring type, std::wstring name);

// ---- Scene files (scene_file.cpp) -------------------------------------------------------------

// Writes the open scene (temporary file, then rename). Fails naming the file.
CStatus SaveSceneFile(const std::string& path);
// Replaces the open scene by the file's; on any error the open scene stays as it was.
CStatus OpenSceneFile(const std::string& path);

// ---- Scripts (script.cpp) ---------------------------------------------------------------------

struct ScriptOptions {
  bool keepGoing = false;
};
// Runs a script file; errors name the file and line. Returns the first failure.
CStatus RunScriptFile(const std::string& path, const ScriptOptions& options = {});
// Runs script text; `origin` names it in messages ("-c", a file name).
CStatus RunScriptText(const std::wstring& text, const std::string& origin,
                      const ScriptOptions& options = {});
// Runs a script read from `in` (standard input), as RunScriptFile does a file.
CStatus RunScriptStream(std::istream& in, const std::string& origin,
                        const ScriptOptions& options = {});
// The longest script line, in bytes: a longer one is refused before it is held in memory.
inline constexpr size_t kMaxScriptLine = size_t{64} << 20;
// The candidate closest to `name` when it is a likely slip of the keyboard (a few letters
// wrong, missing or swapped, case ignored); empty when none is that close.
std::wstring NearestName(std::wstring_view name, const std::vector<std::wstring>& candidates);

// ---- Argument helpers for host commands --------------------------------------------------------

// The argument at `i`; an empty value past the end (arguments are optional from the end).
const CValue& Arg(const CValueArray& args, long i);
// An argument as messages quote it: its text between double quotes.
std::wstring Quoted(const CValue& arg);
// A finite number from a numeric, bool or numeric-text argument; empty, references and arrays
// are not numbers.
bool ArgNumber(const CValue& arg, double& out);
// A whole number of at most 1e9 in size (kept well inside int) read as ArgNumber does.
bool ArgInteger(const CValue& arg, int& out);

// The object an argument names: a reference, or a name / full name / path string.
std::shared_ptr<Object> ArgObject(const CValue& arg);
// Objects an argument names: a reference, an array of them, or a comma-separated list of names.
// Fails naming the first name that resolves to nothing.
CStatus ArgObjects(const CValue& arg, std::vector<std::shared_ptr<Object>>& out);
// A failure that names the command and what is wrong with its arguments.
CStatus ArgError(std::wstring_view command, const std::wstring& what);

}  // namespace Zyra::rt
