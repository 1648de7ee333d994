// The `zyra` command line: loads plug-ins, opens a scene, runs scripts and command lines in the
// order they were given, and saves the scene only when everything succeeded.
//
// Exit status: 0 every command succeeded, 1 a command (or a plug-in, the scene, the save) failed,
// 2 bad usage (an unknown option, a script, scene or plug-in file that cannot be opened).
#include <CLI/CLI.hpp>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "files/regular_file.h"
#include "host/host.h"
#include "plugins/plugin_loader.h"
#include "scene_file/scene_file.h"
#include "script/script.h"

namespace {

using Zyra::CStatus;
using Zyra::FromUtf8;
namespace rt = Zyra::rt;

constexpr const char* kVersion = "0.1.0";
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kAnswerYes = 6;
constexpr int kAnswerNo = 7;

struct Options {
  std::vector<std::string> plugins;
  bool noDefaultPlugins = false;
  std::string scene;
  std::vector<std::string> scripts;
  std::vector<std::string> commands;
  std::string save;
  std::string logFile;
  bool shift = false, yes = false, no = false;
  bool quiet = false, verbose = false, keepGoing = false;
  // Scripts ("file") and command lines ("-c") in the order they appeared.
  std::vector<std::pair<bool, std::string>> steps;  // true: a -c line
};

int Usage(const std::string& message) {
  std::cerr << "zyra: " << message << "\n";
  return kExitUsage;
}

// Empty when `path` is a regular file that can be read; else why not (": it is a FIFO, not a
// regular file", ": No such file or directory"). Only regular files: a FIFO would hold the run
// until some other process wrote to it, a device such as /dev/zero would never end.
std::string Unreadable(const std::string& path) {
  if (std::string why = rt::WhyNotRegularFile(path); !why.empty()) return ": " + why;
  if (!std::ifstream(path).is_open()) return ": " + std::string(std::strerror(errno));
  return std::string();
}

bool IsBvhTake(const std::string& path) {
  if (path.size() < 4) return false;
  std::string tail = path.substr(path.size() - 4);
  for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".bvh";
}

// A motion-capture take given where a script belongs: say how takes come in.
int TakeNotScript(const std::string& take) {
  return Usage("\"" + take +
               "\" is a BVH take, not a script. Takes are imported with the knrexport commands "
               "KnrImportBVHActor (a new actor) and KnrAddBVHAction (an action on an actor), e.g.\n"
               "  zyra -c 'Answer Page \"Import BVH Actor\" BVHFile=\"" +
               take +
               "\" ActorName=\"Actor\"' -c KnrImportBVHActor --save actor.zyra\n"
               "(see docs/knrexport.md).");
}

// The checks that make a run bad usage: done before anything runs so that nothing changes.
int CheckFiles(const Options& options) {
  for (const auto& [isCommand, text] : options.steps) {
    if (!isCommand && IsBvhTake(text)) return TakeNotScript(text);
    if (isCommand || text == "-") continue;
    if (std::string why = Unreadable(text); !why.empty())
      return Usage("cannot open script \"" + text + "\"" + why);
  }
  if (!options.scene.empty()) {
    if (std::string why = Unreadable(options.scene); !why.empty())
      return Usage("cannot open scene \"" + options.scene + "\"" + why);
  }
  for (const auto& plugin : options.plugins) {
    if (std::string why = Unreadable(plugin); !why.empty())
      return Usage("cannot open plug-in \"" + plugin + "\"" + why);
  }
  if (!options.logFile.empty()) {
    std::ofstream log(options.logFile, std::ios::trunc);  // one run, one log
    if (!log) return Usage("cannot write log file \"" + options.logFile + "\"");
  }
  return kExitOk;
}

class Run {
 public:
  explicit Run(const Options& options) : options_(options) {}

  int Execute() {
    rt::Host& host = rt::Host::Get();
    host.SetQuiet(options_.quiet);
    host.SetVerbose(options_.verbose);
    if (!options_.logFile.empty()) host.SetLogFile(options_.logFile);
    host.ui().shift = options_.shift;
    if (options_.yes) host.ui().defaultQuestionAnswer = kAnswerYes;
    if (options_.no) host.ui().defaultQuestionAnswer = kAnswerNo;

    if (!LoadPlugins()) return kExitFailed;
    if (!options_.scene.empty() && !Check(rt::OpenSceneFile(options_.scene))) return kExitFailed;

    rt::ScriptOptions scriptOptions;
    scriptOptions.keepGoing = options_.keepGoing;
    for (const auto& [isCommand, text] : options_.steps) {
      CStatus status;
      if (isCommand) {
        status = rt::RunScriptText(FromUtf8(text), "-c", scriptOptions);
      } else if (text == "-") {
        status = rt::RunScriptStream(std::cin, "<stdin>", scriptOptions);
      } else {
        status = rt::RunScriptFile(text, scriptOptions);
      }
      // The runner has logged its failures already.
      if (!status.Succeeded()) failed_ = true;
      if (failed_ && !options_.keepGoing) return kExitFailed;
    }

    if (!options_.save.empty()) {
      if (failed_) {
        host.Log(rt::kSevWarning,
                 FromUtf8("scene not saved to \"" + options_.save + "\": a command failed"));
      } else {
        Check(rt::SaveSceneFile(options_.save));
      }
    }
    return failed_ ? kExitFailed : kExitOk;
  }

 private:
  // Logs a failure; false when the run must stop.
  bool Check(const CStatus& status) {
    if (status.Succeeded()) return true;
    rt::Host::Get().Log(rt::kSevError, status.GetMessage().Wide());
    failed_ = true;
    return options_.keepGoing;
  }

  bool LoadPlugins() {
    if (!options_.noDefaultPlugins) {
      std::string directory = rt::DefaultPluginDirectory();
      std::error_code error;
      if (std::filesystem::is_directory(directory, error) && !Check(rt::LoadPluginsIn(directory))) {
        return false;
      }
    }
    for (const auto& plugin : options_.plugins) {
      // A bare file name would send the module loader searching the library path.
      std::string path = plugin.find('/') == std::string::npos ? "./" + plugin : plugin;
      if (!Check(rt::LoadPlugin(path))) return false;
    }
    return true;
  }

  const Options& options_;
  bool failed_ = false;
};

constexpr const char* kFooter = R"(
Scripts and -c lines run in the order given on the command line. Plug-ins are loaded first:
those installed beside the executable (unless --no-default-plugins), then each --plugin.
A script named "-" is read from standard input. --save writes the scene only when every
command succeeded, through a temporary file, so a failed run leaves the target as it was.

Exit status: 0 every command succeeded, 1 a command failed, 2 bad usage.)";

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Runs Zyra scripts without a window.", "zyra");
  app.set_version_flag("--version", std::string("zyra ") + kVersion);
  app.footer(kFooter);
  app.add_option("--plugin", options.plugins, "Load this plug-in module (repeatable)")
      ->type_name("PATH")
      ->allow_extra_args(false);
  app.add_flag("--no-default-plugins", options.noDefaultPlugins,
               "Do not load the plug-ins installed beside the executable");
  app.add_option("--scene", options.scene, "Open this scene file before the scripts run")
      ->type_name("FILE");
  auto* scripts =
      app.add_option("scripts", options.scripts, "Scripts to run (.zys)")->type_name("SCRIPT");
  auto* commands =
      app.add_option("-c,--command", options.commands, "Run this script line (repeatable)")
          ->type_name("\"COMMAND ...\"")
          ->allow_extra_args(false);
  app.add_option("--save", options.save, "Save the scene to this file when everything succeeded")
      ->type_name("FILE");
  app.add_flag("--shift", options.shift, "Hold Shift down for the whole run");
  auto* yes =
      app.add_flag("--yes", options.yes, "Answer Yes (or OK) to questions no script answered");
  auto* no =
      app.add_flag("--no", options.no, "Answer No (or Cancel) to questions no script answered");
  yes->excludes(no);
  auto* quiet = app.add_flag("--quiet", options.quiet, "Show only warnings and errors");
  auto* verbose =
      app.add_flag("--verbose", options.verbose, "Show verbose messages and every command run");
  quiet->excludes(verbose);
  app.add_option("--log", options.logFile, "Also write the log to this file")->type_name("FILE");
  app.add_flag("--keep-going", options.keepGoing, "Run every line even after a failure");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return kExitOk;
  } catch (const CLI::CallForVersion& e) {
    std::cout << e.what() << "\n";
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    std::cerr << "zyra: " << e.what() << "\nRun zyra --help for the options.\n";
    return kExitUsage;
  }

  // Interleave scripts and -c lines by the order the parser met them.
  std::map<const CLI::Option*, size_t> used;
  for (const CLI::Option* option : app.parse_order()) {
    size_t index = used[option]++;
    if (option == scripts && index < options.scripts.size()) {
      options.steps.emplace_back(false, options.scripts[index]);
    } else if (option == commands && index < options.commands.size()) {
      options.steps.emplace_back(true, options.commands[index]);
    }
  }
  if (options.steps.empty() && options.scene.empty() && options.save.empty() &&
      options.plugins.empty()) {
    // Nothing to do: a bare `zyra` is asking how to use it.
    std::cerr << app.help();
    return kExitUsage;
  }
  if (int status = CheckFiles(options); status != kExitOk) return status;
  return Run(options).Execute();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "zyra: internal error: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "zyra: internal error\n";
  }
  return kExitFailed;
}
