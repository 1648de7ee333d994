// Checking that a file to read is a regular file; the rules are in regular_file.h.
#include "files/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Zyra::rt {

namespace {

CStatus Refusal(const std::string& path, const char* what, mode_t mode) {
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what + ": it is " + FileKind(mode) +
                                         ", not a regular file"));
}

CStatus SystemFailure(const std::string& path, const char* what, int error) {
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what + ": " + std::strerror(error)));
}

}  // namespace

const char* FileKind(mode_t mode) {
  if (S_ISREG(mode)) return "a regular file";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "a special file";
}

std::string WhyNotRegularFile(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::strerror(errno);
  if (!S_ISREG(info.st_mode))
    return std::string("it is ") + FileKind(info.st_mode) + ", not a regular file";
  return std::string();
}

CStatus CheckRegularFile(const std::string& path, const char* what) {
  const std::string why = WhyNotRegularFile(path);
  if (why.empty()) return CStatus::OK;
  return CStatus(CStatus::Fail, FromUtf8(path + ": " + what + ": " + why));
}

int OpenRegularFile(const std::string& path, CStatus& status) {
  status = CheckRegularFile(path);
  if (!status.Succeeded()) return -1;
  // Non-blocking, so that a FIFO put in the file's place since the check does not hold the open.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    status = SystemFailure(path, "cannot open", errno);
    return -1;
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    status = SystemFailure(path, "cannot open", errno);
  } else if (!S_ISREG(info.st_mode)) {
    status = Refusal(path, "cannot open", info.st_mode);
  }
  if (!status.Succeeded()) {
    ::close(fd);
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

}  // namespace Zyra::rt
