// Progress of a long save or open, on the host's progress bar (drawn in place on a terminal).
// Only work of at least kProgressFrom units shows a bar, so everyday files stay silent and the
// record of progress runs that scripts and tests read only holds the long ones.
#pragma once

#include <cstddef>
#include <string>

#include "zyra/ui.h"

namespace Zyra::rt {

// Keys for a save, bytes of the file for an open.
inline constexpr size_t kProgressFrom = 1000000;

class FileProgress {
 public:
  // `caption` names the file ("Saving walk.zyra"); `total` is the work in units.
  FileProgress(const std::wstring& caption, size_t total);
  ~FileProgress();
  FileProgress(const FileProgress&) = delete;
  FileProgress& operator=(const FileProgress&) = delete;

  // `units` more are done; the bar moves by whole thousandths.
  void Advance(size_t units);

 private:
  ProgressBar bar_;
  size_t total_ = 0;
  size_t done_ = 0;
  long shown_ = 0;
};

}  // namespace Zyra::rt
