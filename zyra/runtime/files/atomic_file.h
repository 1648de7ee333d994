// Replacing a file on disk without ever leaving it half written: the bytes go to a temporary
// file beside the target, are flushed to the disk, and the temporary file is renamed over the
// target. Every file the host writes (scenes, exported branches, render archives) goes through it.
//
// Rules:
//   1. A symbolic link is followed (also a chain of them, also one whose target does not exist
//      yet): the file it names is replaced and the link stays a link.
//   2. An existing target keeps its permission bits; a new one gets 0666 less the umask, as a
//      plain create would.
//   3. A target that exists and is not a regular file (a folder, a FIFO, a device, a socket) is
//      refused before anything is written: writing there would block, or replace something that
//      is not a document.
//   4. On any failure the target is as it was and the temporary file is gone.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "zyra/core.h"

namespace Zyra::rt {

// A new content of a file written in pieces as it is made (rules above): Open checks the target
// and makes the temporary file, Write appends (the kernel starts writing back every few MiB, so
// that the disk works while the caller makes the next piece), Commit flushes and renames. A writer
// destroyed before a successful Commit removes its temporary file and leaves the target as it was.
class ReplacingFile {
 public:
  explicit ReplacingFile(std::string path) : path_(std::move(path)) {}
  ~ReplacingFile();
  ReplacingFile(const ReplacingFile&) = delete;
  ReplacingFile& operator=(const ReplacingFile&) = delete;

  CStatus Open();
  // False once a write failed (the failure is reported by Commit).
  bool Write(std::string_view bytes);
  CStatus Commit();

 private:
  std::string path_, target_, temp_;
  int fd_ = -1;
  int error_ = 0;
  off_t written_ = 0, flushed_ = 0;
};

// Writes `bytes` as the new content of `path` (rules above). Fails with a message that starts
// with the path and says what went wrong.
CStatus WriteFileReplacing(const std::string& path, std::string_view bytes);

// The file that writing to `path` would replace: `path` with its symbolic links followed (at most
// 40 of them). False, with `why` set, for a loop or a link that cannot be read.
bool ResolveWriteTarget(const std::string& path, std::string& resolved, std::string& why);

}  // namespace Zyra::rt
