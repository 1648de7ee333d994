// `knrconvert`: motion-capture takes to runtime actors and skills through the knrexport module,
// run in-process in the headless host; one line per take, a take file each, and a report.
//
// Exit status: 0 every take converted, 1 a take (or the report) failed, 2 bad usage. A take that
// fails does not stop the others. What is said on standard error while a take converts:
//   - by default, the converter's notes on its choices (COG, feet, loop window); the host's own
//     log and message boxes are not shown, since a failure's reason is on the take's line (once)
//     and in its take file, and the host's warnings are on the line too;
//   - with --verbose, also the host's log and every message box with its answer, and progress
//     bars on a terminal;
//   - with --quiet, nothing but errors of the run itself (the per-take lines go to standard
//     output in every mode).
// The output folder is made and checked for writing before any take is converted. A take's
// files are written as take_outputs.h says: one process at a time per take name, all of them
// or none, a failure never replacing a converted take, a take of another source refused unless
// --overwrite. A failure that leaves no take file of its own is recorded beside it in a hidden
// take file (take_outputs.h), so that the report counts it as the lines do.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "converter/report/report_html.h"
#include "host/host.h"
#include "plugins/plugin_loader.h"
#include "take_outputs.h"
#include "take_road.h"

namespace {

namespace fs = std::filesystem;
namespace rt = Zyra::rt;
using knrconvert::TakeRecord;

constexpr const char* kVersion = "0.1.0";
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Options {
  std::vector<std::string> takes;
  std::string output = "out";
  bool reportOnly = false, noReport = false, quiet = false, verbose = false, overwrite = false;
  knrconvert::ConvertOptions convert;
};

// Standard error sent to /dev/null while it lives (the host writes its log and bars there).
class SilencedStderr {
 public:
  explicit SilencedStderr(bool on) {
    if (!on) return;
    std::fflush(stderr);
    std::cerr.flush();
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
      dup2(null, STDERR_FILENO);
      close(null);
    }
  }
  ~SilencedStderr() {
    if (saved_ < 0) return;
    std::cerr.flush();
    dup2(saved_, STDERR_FILENO);
    close(saved_);
  }
  SilencedStderr(const SilencedStderr&) = delete;
  SilencedStderr& operator=(const SilencedStderr&) = delete;

  // Writes `text` to the standard error that was silenced (or to standard error).
  void Write(const std::string& text) const {
    if (saved_ < 0) {
      std::cerr << text << std::flush;
      return;
    }
    for (size_t at = 0; at < text.size();) {
      const ssize_t n = write(saved_, text.data() + at, text.size() - at);
      if (n <= 0) break;
      at += static_cast<size_t>(n);
    }
  }

 private:
  int saved_ = -1;
};

// 1234567 -> "1,234,567".
std::string Grouped(long value) {
  std::string digits = std::to_string(value), out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

std::string TakeLine(const TakeRecord& r) {
  if (!r.ok) return r.take + ": FAILED: " + r.reason;
  char text[200];
  std::string line = r.take + ": " + r.skill + ", " + Grouped(r.frames.value_or(0)) + " frames";
  if (r.loop) {
    std::snprintf(text, sizeof text, ", loop %d..%d (seam %.1f -> %.1f)", r.loop->start,
                  r.loop->end, r.loop->seamBefore, r.loop->seamAfter);
    line += text;
  }
  const double total = r.seconds.empty() ? 0.0 : r.seconds.back().second;
  std::snprintf(text, sizeof text, ", %.1f s", total);
  line += text;
  // What a person should look at goes on the take's own line, so a library run shows it too.
  for (const std::string& warning : r.warnings) line += "; warning: " + warning;
  return line;
}

// Records a failure that leaves no take file of its own (take_outputs.h, rule 6); a note on
// the take's line when even that cannot be written.
void RecordFailure(TakeRecord& record, const fs::path& dir) {
  std::string error;
  if (!knrconvert::WriteTakeRecordTo(record, knrconvert::FailureFile(dir, record.take), error))
    record.reason += "; " + error;
}

// Converts one take into `dir` through its staging folder; false when it failed.
bool ConvertOne(const Options& options, const fs::path& dir, const std::string& take) {
  TakeRecord record;
  record.take = knrconvert::TakeName(take);
  record.source = knrconvert::TakeSource(take);
  knrconvert::TakeOutputs outputs(dir, record.take);
  if (!outputs.Claim(record.source, options.overwrite, record.reason)) {
    RecordFailure(record, dir);
    std::cout << TakeLine(record) << std::endl;
    return false;
  }
  bool ok = false;
  {
    SilencedStderr silence(!options.verbose);
    knrconvert::ConvertOptions convert = options.convert;
    convert.outputFolder = dir;
    if (!options.quiet) convert.note = [&silence](const std::string& text) { silence.Write(text); };
    ok = knrconvert::ConvertTake(take, outputs.Staging(), convert, record);
  }
  std::string error;
  if (ok &&
      !(knrconvert::WriteTakeRecord(record, outputs.Staging(), error) && outputs.Publish(error))) {
    ok = false;
    record.ok = false;
    record.filesWritten = false;
    record.reason = error;
  }
  // A failure names the files where they were to go, not the staging folder that is gone.
  const std::string staging = (outputs.Staging() / "").string(), final = (dir / "").string();
  for (size_t at = record.reason.find(staging); at != std::string::npos;
       at = record.reason.find(staging, at + final.size()))
    record.reason.replace(at, staging.size(), final);
  if (!ok && outputs.KeepsEarlier()) {
    record.reason += "; the earlier files of " + record.take + " are kept";
    RecordFailure(record, dir);
  } else if (!ok) {
    if (knrconvert::WriteTakeRecord(record, dir, error)) {
      std::error_code ignored;
      fs::remove(knrconvert::FailureFile(dir, record.take), ignored);
    } else {
      record.reason += "; " + error;
      RecordFailure(record, dir);
    }
  }
  std::cout << TakeLine(record) << std::endl;
  return ok;
}

int Convert(const Options& options, const fs::path& dir) {
  rt::Host& host = rt::Host::Get();
  // The host's chatter (pages answered, message boxes) only when asked for.
  host.SetQuiet(!options.verbose);
  host.SetEchoMessageBoxes(options.verbose);
  {
    const std::string plugins = rt::DefaultPluginDirectory();
    Zyra::CStatus status = rt::LoadPluginsIn(plugins);
    if (!status.Succeeded()) {
      std::cerr << "knrconvert: cannot load the plug-ins in \"" << plugins
                << "\": " << Zyra::ToUtf8(status.GetMessage().Wide()) << "\n";
      return kExitFailed;
    }
  }
  bool failed = false;
  std::set<std::string> seen;
  for (const std::string& take : options.takes) {
    const std::string name = knrconvert::TakeName(take);
    if (!seen.insert(name).second) {
      // Its files would replace those of the take of the same name given before.
      TakeRecord record;
      record.take = name;
      record.source = knrconvert::TakeSource(take);
      record.reason = "\"" + take + "\": a take given before in this run is named \"" + name + "\"";
      RecordFailure(record, dir);
      std::cout << TakeLine(record) << std::endl;
      failed = true;
      continue;
    }
    failed = !ConvertOne(options, dir, take) || failed;
  }
  return failed ? kExitFailed : kExitOk;
}

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Converts motion-capture takes (BVH) into runtime actors and skills.", "knrconvert");
  app.set_version_flag("--version", std::string("knrconvert ") + kVersion);
  app.add_option("takes", options.takes, "Takes to convert")->type_name("TAKE.bvh");
  app.add_option("-o,--output", options.output,
                 "Output folder, created when missing (default: out)")
      ->type_name("DIR");
  auto* reportOnly =
      app.add_flag("--report-only", options.reportOnly,
                   "Convert nothing: write DIR/report.html from the take files in DIR");
  auto* noReport = app.add_flag("--no-report", options.noReport, "Convert, write no report");
  reportOnly->excludes(noReport);
  app.add_option_function<double>(
         "--threshold", [&options](double value) { options.convert.threshold = value; },
         "Foot-contact threshold of every Locomotion skill (default: chosen per take, the one "
         "whose contacts agree best with the feet's own motion)")
      ->check(CLI::Range(0.0, 1.0))
      ->type_name("X");
  // The actor import takes scales up to 1 (lengths are only ever made smaller).
  app.add_option("--scale", options.convert.scale, "BVH scale, 0.0001 to 1 (default 1)")
      ->check(CLI::Range(0.0001, 1.0))
      ->type_name("S");
  app.add_flag(
      "--optimize", options.convert.optimize,
      "Generate a pruned actor (Generate's Optimize) instead of the take's whole skeleton");
  app.add_flag("--keep-conditioned", options.convert.keepConditioned,
               "Keep the conditioned take that the import read as DIR/<take>.conditioned.bvh");
  auto* quiet = app.add_flag("--quiet", options.quiet,
                             "Only the per-take lines and errors (no notes on the choices made)");
  auto* verbose = app.add_flag(
      "--verbose", options.verbose,
      "Also the host's log, its message boxes and progress bars while a take converts");
  quiet->excludes(verbose);
  app.add_flag("--overwrite", options.overwrite,
               "Replace the files of a take of the same name converted from another file");
  app.footer(
      "\nPer take, in DIR: <take>.zyra (the working scene), <take>.actor.zyra and "
      "<take>.actor.wgmp\n"
      "(the saved actor), <take>.json; and report.html for the run. A take's files appear all\n"
      "together or not at all; a failed take leaves a converted take's earlier files as they "
      "were.\n"
      "A take whose rotation orders, top joint, root position or up axis differ from what the\n"
      "import reads is conditioned first (the same poses, written the way the import reads them);\n"
      "its take file says what was done.\n"
      "Exit status: 0 every take converted, 1 a take failed (the others are still converted), 2 "
      "bad usage.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return kExitOk;
  } catch (const CLI::CallForVersion& e) {
    std::cout << e.what() << "\n";
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    std::cerr << "knrconvert: " << e.what() << "\nRun knrconvert --help for the options.\n";
    return kExitUsage;
  }
  if (options.takes.empty() && !options.reportOnly) {
    std::cerr << "knrconvert: no take given\nRun knrconvert --help for the options.\n";
    return kExitUsage;
  }
  if (options.output.empty()) {
    std::cerr << "knrconvert: -o needs a folder\n";
    return kExitUsage;
  }
  const fs::path dir = fs::absolute(options.output);
  std::string error;
  if (!knrconvert::CheckOutputFolder(dir, error)) {
    std::cerr << "knrconvert: " << error << "\n";
    return kExitFailed;
  }
  int status = kExitOk;
  if (!options.reportOnly) status = Convert(options, dir);
  if (!options.noReport) {
    if (!knrconvert::WriteRunReport(dir, error)) {
      std::cerr << "knrconvert: report not written: " << error << "\n";
      status = kExitFailed;
    }
  }
  return status;
}

}  // namespace

// The last take's scene (hundreds of thousands of curves on a long take) is not taken apart
// piece by piece at exit: every file is closed by then, and the system frees the memory at once.
// Sanitizer builds exit as usual, so that the leak checker sees the end of the run.
[[noreturn]] void Exit(int status) {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__)
  std::exit(status);
#else
  std::_Exit(status);
#endif
}

int main(int argc, char** argv) {
  // A long take builds and drops buffers of tens of megabytes (curves, scene file text). Kept in
  // the heap instead of being mapped and unmapped each time, their pages are not faulted in
  // afresh for every one: a good part of a long take's system time.
  mallopt(M_MMAP_THRESHOLD, 512 << 20);
  mallopt(M_TRIM_THRESHOLD, 1024 << 20);
  mallopt(M_TOP_PAD, 64 << 20);
  try {
    Exit(Main(argc, argv));
  } catch (const std::exception& e) {
    std::cerr << "knrconvert: internal error: " << e.what() << "\n";
  } catch (...) {
    std::cerr << "knrconvert: internal error\n";
  }
  return kExitFailed;
}
