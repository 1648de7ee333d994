// Atomic file replacement; the rules are in atomic_file.h.
#include "files/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "files/regular_file.h"

namespace Zyra::rt {

namespace {

constexpr int kMaxLinks = 40;
constexpr off_t kWriteBackEvery = 8 << 20;

CStatus Failure(const std::string& path, const std::string& what) {
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what));
}

CStatus SystemFailure(const std::string& path, const char* what, int error) {
  return Failure(path, std::string(what) + ": " + std::strerror(error));
}

std::string Folder(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

mode_t NewFileMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

bool ResolveWriteTarget(const std::string& path, std::string& resolved, std::string& why) {
  resolved = path;
  for (int hop = 0; hop <= kMaxLinks; ++hop) {
    struct stat info;
    if (::lstat(resolved.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return true;
    std::vector<char> target(static_cast<size_t>(info.st_size > 0 ? info.st_size : 255) + 1);
    const ssize_t n = ::readlink(resolved.c_str(), target.data(), target.size());
    if (n < 0 || static_cast<size_t>(n) >= target.size()) {
      why = "cannot read the symbolic link \"" + resolved + "\"";
      return false;
    }
    std::string next(target.data(), static_cast<size_t>(n));
    // A relative link is relative to the folder that holds it.
    resolved = next.front() == '/' ? next : Folder(resolved) + "/" + next;
  }
  why = "too many levels of symbolic links";
  return false;
}

ReplacingFile::~ReplacingFile() {
  if (fd_ < 0) return;
  ::close(fd_);
  ::unlink(temp_.c_str());
}

CStatus ReplacingFile::Open() {
  std::string why;
  if (!ResolveWriteTarget(path_, target_, why)) return Failure(path_, "cannot write: " + why);
  struct stat info;
  mode_t mode = 0;
  if (::stat(target_.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) {
      return Failure(path_, std::string("cannot write: it is ") + FileKind(info.st_mode) +
                                ", not a regular file");
    }
    mode = info.st_mode & 07777;
  } else if (errno != ENOENT) {
    return SystemFailure(path_, "cannot write", errno);
  } else {
    mode = NewFileMode();
  }
  // Beside the target, so that the rename stays on one file system.
  const size_t slash = target_.rfind('/');
  const std::string name = slash == std::string::npos ? target_ : target_.substr(slash + 1);
  temp_ = Folder(target_) + "/." + name + ".XXXXXX";
  fd_ = ::mkstemp(temp_.data());
  if (fd_ < 0) return SystemFailure(path_, "cannot write", errno);
  // Only the temporary file this writer created is ever removed.
  if (::fchmod(fd_, mode) != 0) error_ = errno;
  return CStatus::OK;
}

bool ReplacingFile::Write(std::string_view bytes) {
  if (fd_ < 0 || error_ != 0) return false;
  if (!WriteAll(fd_, bytes)) {
    error_ = errno ? errno : EIO;
    return false;
  }
  written_ += static_cast<off_t>(bytes.size());
#ifdef SYNC_FILE_RANGE_WRITE
  // Starts the write-back of what is complete, without waiting: Commit's fsync then finds most
  // of a long file on disk already.
  if (written_ - flushed_ >= kWriteBackEvery) {
    ::sync_file_range(fd_, flushed_, written_ - flushed_, SYNC_FILE_RANGE_WRITE);
    flushed_ = written_;
  }
#endif
  return true;
}

CStatus ReplacingFile::Commit() {
  if (fd_ < 0) return Failure(path_, "cannot write: the file was not opened");
  bool ok = error_ == 0 && ::fsync(fd_) == 0;
  int error = error_ ? error_ : ok ? 0 : errno;
  if (::close(fd_) != 0 && ok) {
    ok = false;
    error = errno;
  }
  fd_ = -1;
  if (ok && std::rename(temp_.c_str(), target_.c_str()) != 0) {
    ok = false;
    error = errno;
  }
  if (!ok) {
    ::unlink(temp_.c_str());
    return SystemFailure(path_, "cannot write", error);
  }
  // The rename itself lasts once the folder is on disk; a folder that cannot be synced does not
  // undo a write that has happened.
  const int folder = ::open(Folder(target_).c_str(), O_RDONLY | O_DIRECTORY);
  if (folder >= 0) {
    ::fsync(folder);
    ::close(folder);
  }
  return CStatus::OK;
}

CStatus WriteFileReplacing(const std::string& path, std::string_view bytes) {
  ReplacingFile file(path);
  CStatus status = file.Open();
  if (!status.Succeeded()) return status;
  file.Write(bytes);
  return file.Commit();
}

}  // namespace Zyra::rt
