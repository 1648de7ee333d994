// Reading the files that a user points the plug-in at (weight files, render setup files, actor
// files before the host imports them).
//
// Rules:
//   1. A path that names nothing is missing; whether that is an error is the caller's choice (a
//      weight file may be absent).
//   2. A path that names anything but a regular file once symbolic links are followed (a folder,
//      a FIFO, a device such as /dev/zero, a socket) is refused by its name before it is opened:
//      opening a FIFO waits for a writer that may never come, and a device can deliver bytes
//      without end.
//   3. A regular file is opened without waiting and checked again on the open descriptor (its
//      name may have been given to something else in between); it is read up to the size it had
//      when it was opened, so a file that grows while it is read cannot make the read endless.
//   4. Every refusal says what is wrong in words that can follow the file's name: "it is a FIFO,
//      not a regular file", "cannot be read: Permission denied".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What a path names for reading: a regular file, nothing, or something refused (rule 2, or a
// file that cannot be read).
enum class FileState { kRegular, kMissing, kRefused };

// What `path` names (rules 1 and 2); `problem` is set for kRefused.
FileState CheckRegularFile(const std::string& path, std::string& problem);
// Reads the whole regular file `path` into `bytes` (rules 1 to 3); `problem` is set for
// kRefused, and `bytes` is empty unless the result is kRegular.
FileState ReadRegularFile(const std::string& path, std::vector<std::uint8_t>& bytes,
                          std::string& problem);
