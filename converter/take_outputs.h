// A take's files in an output folder: who may write them, and how they get there.
//
// Rules:
//   1. A take's files are `<take>` followed by one of TakeFileSuffixes() in the output folder
//      (the scene, the actor and its weights, its glTF, the take file, the kept conditioned
//      take). Nothing else of the folder is touched for the take (a take named "walk.fast" is
//      another take).
//   2. One process at a time works on a take name in a folder: Claim takes an exclusive lock on
//      `<dir>/.<take>.lock` (flock; the file stays, empty) and holds it until the object is
//      destroyed. A second process waits for the first to finish, and says once that it waits:
//      it then sees the first one's files and keeps to rules 3 and 5 against them.
//   3. A take is refused when the folder's take file is that of a converted take (status "ok")
//      from another source path: its files stay, unless `overwrite` is given. A failure record
//      holds no files and does not hold the name; a take file that cannot be read neither.
//   4. The road writes into a private staging folder, `<dir>/.<take>.staging/` (emptied when
//      found: a run that was killed left it). Publish moves its files into place, the take
//      file last, then removes the files of the take that an earlier conversion made and this
//      one did not; a file that cannot be moved puts back what was moved before it. The staging
//      folder is removed in every case, so a failed conversion leaves the folder as it was.
//   5. A failed take does not replace a converted one: when the folder's take file says "ok",
//      the earlier files all stay as they were (KeepsEarlier()). Otherwise its failure record
//      is written as the take file (replacing an earlier failure).
//   6. A failure that leaves no take file of its own (a take refused by rule 3, a failure that
//      kept a converted take's files, a second take of one name in a run) is recorded in
//      FailureFile(), `<dir>/.<take>.failure.json`, a take file that the report reads like the
//      others, so that a report written later (--report-only) counts the failure as the run's
//      lines did. The take's next conversion that succeeds, or that writes its own take file,
//      removes it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace knrconvert {

// ".zyra", ".actor.zyra", ".actor.wgmp", ".glb", ".conditioned.bvh", ".json": every file a take
// may have, the take file last.
const std::vector<std::string>& TakeFileSuffixes();

// Checks that `dir` can be made and written (a small file written, flushed and removed); false
// with the system's reason in `error` ("cannot write into the output folder "out": No space
// left on device"). Makes the folder when it is missing.
bool CheckOutputFolder(const std::filesystem::path& dir, std::string& error);

// `<dir>/.<take>.failure.json` (rule 6).
std::filesystem::path FailureFile(const std::filesystem::path& dir, const std::string& take);

class TakeOutputs {
 public:
  TakeOutputs(std::filesystem::path dir, std::string take);
  ~TakeOutputs();  // removes the staging folder, releases the lock
  TakeOutputs(const TakeOutputs&) = delete;
  TakeOutputs& operator=(const TakeOutputs&) = delete;

  // Locks the take name (rule 2), checks its owner (rule 3) and makes an empty staging folder.
  // `source` is the take's absolute path. False with the reason in `reason`.
  bool Claim(const std::string& source, bool overwrite, std::string& reason);
  const std::filesystem::path& Staging() const { return staging_; }
  // Moves the staged files into place (rule 4); false with the reason in `reason`.
  bool Publish(std::string& reason);
  // The folder holds a converted take of this name, which a failure leaves alone (rule 5).
  bool KeepsEarlier() const { return earlierConverted_; }

 private:
  std::filesystem::path dir_, staging_;
  std::string take_;
  int lock_ = -1;
  bool earlierConverted_ = false;
};

}  // namespace knrconvert
