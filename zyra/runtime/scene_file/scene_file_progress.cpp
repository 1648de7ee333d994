// Progress of long saves and opens on the host's progress bar.
#include "scene_file/scene_file_progress.h"

#include <algorithm>

namespace Zyra::rt {

namespace {
constexpr long kSteps = 1000;
}

FileProgress::FileProgress(const std::wstring& caption, size_t total) : total_(total) {
  if (total < kProgressFrom) return;
  bar_ = UIToolkit().GetProgressBar();
  bar_.PutCancelEnabled(false);
  bar_.PutMaximum(kSteps);
  bar_.PutCaption(CString(caption));
  bar_.PutVisible(true);
}

FileProgress::~FileProgress() {
  if (bar_.IsValid()) bar_.PutVisible(false);
}

void FileProgress::Advance(size_t units) {
  if (!bar_.IsValid()) return;
  done_ = std::min(total_, done_ + units);
  long value = static_cast<long>(static_cast<double>(done_) / static_cast<double>(total_) * kSteps);
  if (value == shown_) return;
  shown_ = value;
  bar_.PutValue(value);
}

}  // namespace Zyra::rt
