// The actor file and its weight file put in place as a pair (rules in the header).
#include "knrexport/actor/actor_file_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

// Tries at most this many names before giving up on a unique one.
constexpr int kNameAttempts = 100;

std::string SystemReason(int error) { return std::strerror(error); }

std::string Folder(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// ".<name>.XXXXXX" beside `target`, the X's random letters and digits.
std::string UniqueName(const std::string& target) {
  // Seeded again in a forked child, which would otherwise draw the same names as its parent.
  static std::mt19937_64 draw;
  static pid_t seededFor = 0;
  if (seededFor != ::getpid()) {
    seededFor = ::getpid();
    draw.seed(
        std::random_device{}() ^ static_cast<std::uint64_t>(seededFor) ^
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
  }
  static constexpr char kLetters[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  const size_t slash = target.rfind('/');
  std::string name = Folder(target) + "/." +
                     (slash == std::string::npos ? target : target.substr(slash + 1)) + ".";
  for (int i = 0; i < 6; ++i) name += kLetters[draw() % (sizeof kLetters - 1)];
  return name;
}

// The permission bits a file replacing `target` must have.
mode_t ModeFor(const std::string& target) {
  struct stat info;
  if (::stat(target.c_str(), &info) == 0 && S_ISREG(info.st_mode)) return info.st_mode & 07777;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

// A new empty file of a unique name beside `target`, open for writing with `mode`; -1 with
// `error` set.
int CreateUnique(const std::string& target, mode_t mode, std::string& path, int& error) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    path = UniqueName(target);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      if (::fchmod(fd, mode) == 0) return fd;
      error = errno;
      ::close(fd);
      ::unlink(path.c_str());
      path.clear();
      return -1;
    }
    if (errno != EEXIST) break;
  }
  error = errno;
  path.clear();
  return -1;
}

bool WriteAll(int fd, const std::uint8_t* data, size_t size, int& error) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n < 0 ? errno : EIO;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Writes, flushes and closes `fd`; the system's reason in `problem` on failure.
bool FinishFile(int fd, const std::uint8_t* data, size_t size, std::string& problem) {
  int error = 0;
  bool ok = WriteAll(fd, data, size, error);
  if (ok && ::fsync(fd) != 0) {
    ok = false;
    error = errno;
  }
  if (::close(fd) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (!ok) problem = SystemReason(error);
  return ok;
}

// An exclusive lock on a folder for as long as the object lives (none where the file system
// has no locks).
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (fd_ >= 0 && ::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
  }
  // Makes the renames in the folder last.
  void Sync() {
    if (fd_ >= 0) ::fsync(fd_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

// The file that a rename is about to replace, kept under a temporary name so that it can be put
// back; removed when the object is destroyed unless it was put back.
class KeptFile {
 public:
  KeptFile() = default;
  ~KeptFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  KeptFile(const KeptFile&) = delete;
  KeptFile& operator=(const KeptFile&) = delete;

  // Keeps `file` when it exists (a folder is not kept: no file can replace it). False with
  // `problem` when it exists but cannot be kept.
  bool Keep(const std::string& file, std::string& problem) {
    struct stat info;
    if (::lstat(file.c_str(), &info) != 0) {
      if (errno == ENOENT) return true;
      problem = SystemReason(errno);
      return false;
    }
    if (S_ISDIR(info.st_mode)) return true;
    int error = 0;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
      const std::string name = UniqueName(file);
      if (::link(file.c_str(), name.c_str()) == 0) {
        path_ = name;
        return true;
      }
      error = errno;
      if (error != EEXIST) break;
    }
    if (S_ISREG(info.st_mode) && Copy(file, info.st_mode & 07777, problem)) return true;
    if (problem.empty()) problem = SystemReason(error);
    return false;
  }

  // Puts the kept file back over `file`, or removes `file` when nothing was kept.
  void PutBack(const std::string& file) {
    if (path_.empty()) {
      ::unlink(file.c_str());
    } else if (std::rename(path_.c_str(), file.c_str()) == 0) {
      path_.clear();
    }
  }

 private:
  // The copy where the file system has no hard links.
  bool Copy(const std::string& file, mode_t mode, std::string& problem) {
    const int in = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
      problem = SystemReason(errno);
      return false;
    }
    std::vector<std::uint8_t> bytes;
    std::uint8_t block[1 << 16];
    for (;;) {
      const ssize_t n = ::read(in, block, sizeof block);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        problem = SystemReason(errno);
        ::close(in);
        return false;
      }
      if (n == 0) break;
      bytes.insert(bytes.end(), block, block + n);
    }
    ::close(in);
    int error = 0;
    std::string name;
    const int out = CreateUnique(file, mode, name, error);
    if (out < 0) {
      problem = SystemReason(error);
      return false;
    }
    if (!FinishFile(out, bytes.data(), bytes.size(), problem)) {
      ::unlink(name.c_str());
      return false;
    }
    path_ = name;
    return true;
  }

  std::string path_;
};

}  // namespace

PendingFile::~PendingFile() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

bool PendingFile::Create(std::string& problem) {
  int error = 0;
  const int fd = CreateUnique(target_, ModeFor(target_), path_, error);
  if (fd < 0) {
    problem = SystemReason(error);
    return false;
  }
  ::close(fd);
  return true;
}

bool PendingFile::Write(const std::vector<std::uint8_t>& bytes, std::string& problem) {
  const int fd = ::open(path_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) {
    problem = SystemReason(errno);
    return false;
  }
  return FinishFile(fd, bytes.data(), bytes.size(), problem);
}

bool PendingFile::PutInPlace(std::string& problem) {
  if (std::rename(path_.c_str(), target_.c_str()) != 0) {
    problem = SystemReason(errno);
    return false;
  }
  path_.clear();
  return true;
}

bool PutActorFilesInPlace(PendingFile& actor, PendingFile& weights, std::string& failed,
                          std::string& problem) {
  FolderLock lock(Folder(actor.Target()));
  KeptFile older;
  if (!older.Keep(weights.Target(), problem) || !weights.PutInPlace(problem)) {
    failed = weights.Target();
    return false;
  }
  if (!actor.PutInPlace(problem)) {
    failed = actor.Target();
    older.PutBack(weights.Target());
    return false;
  }
  lock.Sync();
  return true;
}
