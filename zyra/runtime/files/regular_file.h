// Files the host reads are regular files. A FIFO blocks its reader until another process writes
// to it, a device such as /dev/zero never ends, and a folder is no document: every file the
// runtime or the command line reads (scenes, imported branches, scripts, plug-in modules) is
// checked by name before it is opened, and readers that open it check the open file again, in
// case the name was replaced in between.
#pragma once

#include <sys/types.h>

#include <string>

#include "zyra/core.h"

namespace Zyra::rt {

// What a file of mode `mode` is, as messages say it: "a folder", "a FIFO", "a character device",
// "a block device", "a socket", "a special file"; "a regular file" for one.
const char* FileKind(mode_t mode);

// Empty when `path`, its links followed, names a regular file; else why it cannot be read as one:
// "it is a FIFO, not a regular file" (a folder, a device, ...) or the system's reason ("No such
// file or directory").
std::string WhyNotRegularFile(const std::string& path);

// OK when `path`, its links followed, names a regular file. Otherwise fails with
// "<path>: <what>: it is a FIFO, not a regular file" (a folder, a device, ...), or with the
// system's reason ("<path>: <what>: No such file or directory").
CStatus CheckRegularFile(const std::string& path, const char* what = "cannot open");

// Opens a regular file for reading, checked as CheckRegularFile does, both by name and once open
// (without waiting on a FIFO swapped in meanwhile). The descriptor, which the caller closes; -1
// with `status` failed as CheckRegularFile's.
int OpenRegularFile(const std::string& path, CStatus& status);

}  // namespace Zyra::rt
