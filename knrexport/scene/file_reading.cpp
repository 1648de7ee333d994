// Reading user files: only regular files are opened (rules in the header).
#include "knrexport/scene/file_reading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

std::string KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "something else";
}

FileState Refuse(std::string& problem, const std::string& why) {
  problem = why;
  return FileState::kRefused;
}

FileState RefuseKind(std::string& problem, mode_t mode) {
  return Refuse(problem, "it is " + KindOf(mode) + ", not a regular file");
}

FileState RefuseSystem(std::string& problem, int error) {
  return Refuse(problem, std::string("cannot be read: ") + std::strerror(error));
}

}  // namespace

FileState CheckRegularFile(const std::string& path, std::string& problem) {
  problem.clear();
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) {
    return errno == ENOENT ? FileState::kMissing : RefuseSystem(problem, errno);
  }
  if (!S_ISREG(info.st_mode)) return RefuseKind(problem, info.st_mode);
  return FileState::kRegular;
}

FileState ReadRegularFile(const std::string& path, std::vector<std::uint8_t>& bytes,
                          std::string& problem) {
  bytes.clear();
  const FileState state = CheckRegularFile(path, problem);
  if (state != FileState::kRegular) return state;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? FileState::kMissing : RefuseSystem(problem, errno);
  struct stat info;
  if (::fstat(fd, &info) != 0) {
    const int error = errno;
    ::close(fd);
    return RefuseSystem(problem, error);
  }
  if (!S_ISREG(info.st_mode)) {
    ::close(fd);
    return RefuseKind(problem, info.st_mode);
  }
  std::vector<std::uint8_t> read(static_cast<size_t>(info.st_size));
  size_t at = 0;
  while (at < read.size()) {
    const ssize_t n = ::read(fd, read.data() + at, read.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      ::close(fd);
      return RefuseSystem(problem, error);
    }
    if (n == 0) break;  // the file shrank since it was opened: what is there is what it holds
    at += static_cast<size_t>(n);
  }
  ::close(fd);
  read.resize(at);
  bytes = std::move(read);
  return FileState::kRegular;
}
