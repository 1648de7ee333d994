// `knrconvert`: motion-capture takes to runtime actors and skills through the knrexport module,
// run in-process in the headless host; one line per take, a take file each, and a report.
//
// Exit status: 0 every take converted, 1 a take (or the report) failed, 2 bad usage. A take that
// fails does not stop the others. With --quiet, or when standard error is not a terminal, the
// host's progress bars are not drawn; --quiet also silences the host's log while a take converts
// (a failure's reason is in its line and its take file).
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
#include "host.h"
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
  bool reportOnly = false, noReport = false, quiet = false;
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

int Convert(const Options& options, const fs::path& dir) {
  rt::Host& host = rt::Host::Get();
  host.SetQuiet(true);  // the host's chatter (pages answered) is not the user's business here
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
    TakeRecord record;
    bool ok = false;
    const std::string name = knrconvert::TakeName(take);
    if (!seen.insert(name).second) {
      // Its files would replace those of the take of the same name converted before.
      record.take = name;
      record.source = take;
      record.reason =
          "\"" + take + "\": another take named \"" + name + "\" was converted into this folder";
      std::cout << TakeLine(record) << std::endl;
      failed = true;
      continue;
    }
    {
      SilencedStderr silence(options.quiet);
      ok = knrconvert::ConvertTake(take, dir, options.convert, record);
    }
    std::string error;
    if (!knrconvert::WriteTakeRecord(record, dir, error)) {
      std::cerr << "knrconvert: " << error << "\n";
      ok = false;
    }
    std::cout << TakeLine(record) << std::endl;
    failed = failed || !ok;
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
  app.add_flag("--quiet", options.quiet, "No progress bars, only the per-take lines and errors");
  app.footer(
      "\nPer take, in DIR: <take>.zyra (the working scene), <take>.actor.zyra and "
      "<take>.actor.wgmp\n"
      "(the saved actor), <take>.json; and report.html for the run.\n"
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
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) {
    std::cerr << "knrconvert: cannot make the output folder \"" << options.output << "\"\n";
    return kExitFailed;
  }
  int status = kExitOk;
  if (!options.reportOnly) status = Convert(options, dir);
  if (!options.noReport) {
    std::string error;
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
