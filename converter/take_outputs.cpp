// A take's files in an output folder (rules in take_outputs.h).
#include "take_outputs.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <utility>

namespace knrconvert {
namespace {

namespace fs = std::filesystem;

constexpr const char* kTakeFile = ".json";
constexpr size_t kProbeBytes = 64 << 10;  // about what a failure's take file and a lock need

std::string SystemReason(int error) { return std::strerror(error); }

// The source path and status of the take file at `path`; empty strings when it cannot be read.
std::pair<std::string, std::string> SourceAndStatus(const fs::path& path) {
  std::ifstream in(path);
  if (!in) return {};
  const nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
  if (!j.is_object()) return {};
  auto text = [&](const char* key) {
    const auto it = j.find(key);
    return it != j.end() && it->is_string() ? it->get<std::string>() : std::string();
  };
  return {text("source"), text("status")};
}

}  // namespace

const std::vector<std::string>& TakeFileSuffixes() {
  static const std::vector<std::string> suffixes = {".zyra", ".actor.zyra",      ".actor.wgmp",
                                                    ".glb",  ".conditioned.bvh", kTakeFile};
  return suffixes;
}

bool CheckOutputFolder(const fs::path& dir, std::string& error) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) {
    error = "cannot make the output folder \"" + dir.string() +
            "\": " + (ec ? ec.message() : "a file of that name is in the way");
    return false;
  }
  std::string probe = (dir / ".knrconvert-probe-XXXXXX").string();
  const int fd = mkstemp(probe.data());
  int why = fd < 0 ? errno : 0;
  if (fd >= 0) {
    const std::string bytes(kProbeBytes, '\n');
    // A short write is followed by one that says why.
    for (size_t at = 0; at < bytes.size() && why == 0;) {
      const ssize_t n = write(fd, bytes.data() + at, bytes.size() - at);
      if (n < 0 && errno != EINTR) why = errno;
      if (n > 0) at += static_cast<size_t>(n);
    }
    if (why == 0 && fsync(fd) != 0) why = errno;
    close(fd);
    unlink(probe.c_str());
  }
  if (why != 0) {
    error = "cannot write into the output folder \"" + dir.string() + "\": " + SystemReason(why);
    return false;
  }
  return true;
}

fs::path FailureFile(const fs::path& dir, const std::string& take) {
  return dir / ("." + take + ".failure.json");
}

TakeOutputs::TakeOutputs(fs::path dir, std::string take)
    : dir_(std::move(dir)), staging_(dir_ / ("." + take + ".staging")), take_(std::move(take)) {}

TakeOutputs::~TakeOutputs() {
  std::error_code ec;
  if (lock_ >= 0) {
    fs::remove_all(staging_, ec);
    close(lock_);  // releases the lock
  }
}

bool TakeOutputs::Claim(const std::string& source, bool overwrite, std::string& reason) {
  const fs::path lockFile = dir_ / ("." + take_ + ".lock");
  lock_ = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock_ < 0) {
    reason = "cannot lock \"" + lockFile.string() + "\": " + SystemReason(errno);
    return false;
  }
  if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    std::cerr << take_ << ": waiting for another knrconvert that converts a take of this name into "
              << dir_.string() << std::endl;
    int status;
    while ((status = flock(lock_, LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (status != 0) {
      reason = "cannot lock \"" + lockFile.string() + "\": " + SystemReason(errno);
      close(lock_);
      lock_ = -1;
      return false;
    }
  }
  const auto [owner, status] = SourceAndStatus(dir_ / (take_ + kTakeFile));
  earlierConverted_ = status == "ok";
  if (!overwrite && earlierConverted_ && owner != source) {
    reason = "\"" + source + "\": the take \"" + take_ + "\" in " + dir_.string() +
             " was converted from \"" + owner +
             "\"; its files are kept (--overwrite replaces them)";
    return false;
  }
  std::error_code ec;
  fs::remove_all(staging_, ec);
  if (!ec) fs::create_directory(staging_, ec);
  if (ec) {
    reason = "cannot make \"" + staging_.string() + "\": " + ec.message();
    return false;
  }
  return true;
}

bool TakeOutputs::Publish(std::string& reason) {
  // The take file goes last: a reader that finds it finds the files it names.
  std::vector<std::string> order;
  for (const std::string& suffix : TakeFileSuffixes())
    if (suffix != kTakeFile) order.push_back(suffix);
  order.push_back(kTakeFile);
  const fs::path earlier = staging_ / ".earlier";
  std::error_code ec;
  fs::create_directory(earlier, ec);
  if (ec) {
    reason = "save: cannot make \"" + earlier.string() + "\": " + ec.message();
    return false;
  }
  // Moved so far: (name, whether an earlier file of that name was set aside).
  std::vector<std::pair<std::string, bool>> moved;
  auto undo = [&] {
    std::error_code ignored;
    for (auto it = moved.rbegin(); it != moved.rend(); ++it) {
      fs::remove(dir_ / it->first, ignored);
      if (it->second) fs::rename(earlier / it->first, dir_ / it->first, ignored);
    }
  };
  for (const std::string& suffix : order) {
    const std::string name = take_ + suffix;
    std::error_code absent;  // "no such file" is an answer here, not an error
    const bool made = fs::exists(staging_ / name, absent);
    const bool had = fs::exists(fs::symlink_status(dir_ / name, absent));
    // An earlier file that this conversion does not make is not the take's any more.
    if (had) fs::rename(dir_ / name, earlier / name, ec);
    if (!ec && made) fs::rename(staging_ / name, dir_ / name, ec);
    if (ec) {
      reason = "save: cannot move \"" + name + "\" into " + dir_.string() + ": " + ec.message();
      if (had && !fs::exists(dir_ / name)) moved.emplace_back(name, true);
      undo();
      return false;
    }
    moved.emplace_back(name, had);
  }
  std::error_code ignored;
  fs::remove(FailureFile(dir_, take_), ignored);
  return true;
}

}  // namespace knrconvert
