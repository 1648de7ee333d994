// Writing an actor file and its weight file as a pair that always belongs together on disk.
//
// Rules:
//   1. Each file is first written whole to a temporary file of its own beside its target, named
//      ".<target name>.XXXXXX" and made with mkstemp: unique for every save, in this process or
//      another, so two saves into one folder never write into each other's temporaries, and the
//      rename that puts it in place stays on one file system.
//   2. A temporary file gets the permission bits of the file it replaces; a new file gets 0666
//      less the umask, as a plain create would.
//   3. The pair is put in place while the save holds an exclusive lock on the folder (flock):
//      two saves into one folder put their pairs in place one after the other, never
//      interleaved, so the last save wins both files. Where the file system has no such locks,
//      the pair is put in place without one.
//   4. The weight file goes first. The one it replaces is kept meanwhile under a temporary name
//      (a hard link; a copy where the file system has none): when the actor file cannot be
//      replaced after that, the older weight file is put back (the new one removed when there
//      was none), so an older actor file never stands beside a newer weight file or the reverse.
//   5. Any failure (a temporary file that cannot be made or written, a full disk, the older
//      weight file that cannot be kept, a rename) leaves the older files as they were and no
//      temporary file behind, and names the file at fault with the system's reason.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A new content on its way to `target`: the temporary file beside it (rules 1 and 2). Removed
// when the object is destroyed, unless it was put in place.
class PendingFile {
 public:
  explicit PendingFile(std::string target) : target_(std::move(target)) {}
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  // Makes the empty temporary file. False with `problem` set (the system's reason).
  bool Create(std::string& problem);
  // Writes `bytes` into the temporary file and flushes them to the disk. False with `problem`.
  bool Write(const std::vector<std::uint8_t>& bytes, std::string& problem);
  // The temporary file (empty before Create) and the file it is meant to replace.
  const std::string& Path() const { return path_; }
  const std::string& Target() const { return target_; }
  // Renames the temporary file over the target. False with `problem`; the target is untouched.
  bool PutInPlace(std::string& problem);

 private:
  std::string target_, path_;
};

// Puts `weights` and then `actor` in place under the folder's lock (rules 3 to 5). False with
// `failed` set to the target at fault and `problem` to the reason; both targets are then as they
// were before the call.
bool PutActorFilesInPlace(PendingFile& actor, PendingFile& weights, std::string& failed,
                          std::string& problem);
