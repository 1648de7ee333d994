// The headless toolkit: message boxes answered from the queue or defaults, and progress bars
// that record their runs and draw on standard error only when it is a terminal.
#include "zyra/ui.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

#include "host/host.h"

namespace Zyra {

namespace {

const wchar_t* AnswerName(int answer) {
  switch (answer) {
    case siMsgOk:
      return L"OK";
    case siMsgCancel:
      return L"Cancel";
    case siMsgYes:
      return L"Yes";
    case siMsgNo:
      return L"No";
    default:
      return L"?";
  }
}

// Maps an answer onto the buttons a box of `buttons` style offers.
int FitAnswer(int buttons, int answer) {
  switch (buttons) {
    case siMsgOkOnly:
      return siMsgOk;
    case siMsgOkCancel:
      return answer == siMsgCancel || answer == siMsgNo ? siMsgCancel : siMsgOk;
    case siMsgYesNoCancel:
      if (answer == siMsgNo || answer == siMsgCancel) return answer;
      return siMsgYes;
    default:  // siMsgYesNo
      return answer == siMsgNo || answer == siMsgCancel ? siMsgNo : siMsgYes;
  }
}

}  // namespace

CStatus UIToolkit::MsgBox(const CString& text, int style, const CString& caption,
                          int& result) const {
  int buttons = style & 0x0F;
  if (buttons != siMsgOkOnly && buttons != siMsgOkCancel && buttons != siMsgYesNoCancel &&
      buttons != siMsgYesNo) {
    result = 0;
    return CStatus(CStatus::InvalidArgument,
                   L"MsgBox: style " + std::to_wstring(style) +
                       L" is not supported (0 OK, 1 OK/Cancel, 3 Yes/No/Cancel, 4 Yes/No).");
  }
  rt::UiState& ui = rt::Host::Get().ui();
  int wanted = siMsgOk;
  if (!ui.msgBoxAnswers.empty()) {
    wanted = ui.msgBoxAnswers.front();
    ui.msgBoxAnswers.pop_front();
  } else if (ui.defaultQuestionAnswer != 0) {
    wanted = ui.defaultQuestionAnswer;
  }
  result = FitAnswer(buttons, wanted);
  ui.messageBoxes.push_back(caption.Wide() + L": " + text.Wide());
  // An OK-only box tells the user that something was refused or went wrong: a batch run fails.
  if (buttons == siMsgOkOnly) ui.lineFailures.push_back(text.Wide());
  // Printed even with --quiet (unless the caller switched the echo off): a batch log must show
  // what the user would have been told.
  if (rt::Host::Get().EchoMessageBoxes()) {
    std::cerr << "[" << caption.GetAsciiString() << "] " << text.GetAsciiString() << "\n  -> "
              << ToUtf8(AnswerName(result)) << std::endl;
  }
  return CStatus::OK;
}

// ---- Progress bar -----------------------------------------------------------------------------

namespace rt {
namespace {

class ProgressBarObject : public Object {
 public:
  ProgressBarObject() : Object(siProgressBarID, L"ProgressBar") {}
  ~ProgressBarObject() override { Hide(); }

  long minimum = 0, maximum = 100, value = 0, step = 1;
  std::wstring caption, statusText;
  bool cancelEnabled = true;
  bool visible = false;
  size_t run = 0;  // index in UiState::progressRuns while visible

  ProgressRecord* Record() {
    auto& runs = Host::Get().ui().progressRuns;
    return visible && run < runs.size() ? &runs[run] : nullptr;
  }
  void Show() {
    if (visible) return;
    auto& runs = Host::Get().ui().progressRuns;
    ProgressRecord record;
    if (!caption.empty()) record.captions.push_back(caption);
    record.maximum = maximum;
    record.value = value;
    record.cancelEnabled = cancelEnabled;
    record.visible = true;
    runs.push_back(record);
    run = runs.size() - 1;
    visible = true;
    Draw();
  }
  void Hide() {
    if (!visible) return;
    if (ProgressRecord* record = Record()) record->visible = false;
    visible = false;
    drawn.clear();
    if (IsTerminal()) std::cerr << "\r\033[K" << std::flush;
  }
  // Sets the value, kept inside the range (whichever bound is the larger), and shows it.
  void PutValue(long wanted) {
    value = std::clamp(wanted, std::min(minimum, maximum), std::max(minimum, maximum));
    Update();
  }
  void Update() {
    if (ProgressRecord* record = Record()) {
      record->maximum = maximum;
      record->value = value;
      record->cancelEnabled = cancelEnabled;
    }
    Draw();
  }
  // Asked once: the answer does not change during a run, and a long operation updates its bar
  // once a frame.
  static bool IsTerminal() {
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    return terminal;
  }
  // One line: caption, a 30-character bar and the percentage, redrawn in place when what it
  // shows has changed (not at every update of a bar stepped once a frame).
  void Draw() {
    if (!visible || !IsTerminal()) return;
    constexpr int kWidth = 30;
    double span = static_cast<double>(maximum - minimum);
    double done = span > 0 ? static_cast<double>(value - minimum) / span : 1.0;
    done = std::clamp(done, 0.0, 1.0);
    int filled = static_cast<int>(done * kWidth);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '.');
    std::string line = ToUtf8(caption) + " [" + bar + "] " +
                       std::to_string(static_cast<int>(done * 100.0)) + "%";
    if (!statusText.empty()) line += " " + ToUtf8(statusText);
    if (line == drawn) return;
    drawn = line;
    std::cerr << "\r\033[K" << line << std::flush;
  }
  std::string drawn;  // the line on the terminal now
};

ProgressBarObject* BarOf(const CRef& ref) {
  auto object = ref.Get();
  return object && object->classId == siProgressBarID
             ? static_cast<ProgressBarObject*>(object.get())
             : nullptr;
}

}  // namespace
}  // namespace rt

ProgressBar UIToolkit::GetProgressBar() const {
  auto bar = std::make_shared<rt::ProgressBarObject>();
  ProgressBar handle{CRef(bar)};
  return handle;
}

ProgressBar::ProgressBar(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siProgressBarID; }), keep_(ref_.Get()) {}

namespace {
// The bar behind a handle, or null for an invalid handle (whose calls then do nothing).
rt::ProgressBarObject* Bar(const CRef& ref) { return rt::BarOf(ref); }
// Calls on an invalid ("empty") bar succeed and do nothing: callers pass one on purpose.
const CStatus kNoBar = CStatus::OK;
}  // namespace

CStatus ProgressBar::PutMaximum(long value) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->maximum = value;
  bar->PutValue(bar->value);
  return CStatus::OK;
}
long ProgressBar::GetMaximum() const {
  auto* bar = Bar(ref_);
  return bar ? bar->maximum : 0;
}
CStatus ProgressBar::PutMinimum(long value) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->minimum = value;
  bar->PutValue(bar->value);
  return CStatus::OK;
}
long ProgressBar::GetMinimum() const {
  auto* bar = Bar(ref_);
  return bar ? bar->minimum : 0;
}
CStatus ProgressBar::PutValue(long value) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->PutValue(value);
  return CStatus::OK;
}
long ProgressBar::GetValue() const {
  auto* bar = Bar(ref_);
  return bar ? bar->value : 0;
}
CStatus ProgressBar::PutStep(long value) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->step = value;
  return CStatus::OK;
}
long ProgressBar::GetStep() const {
  auto* bar = Bar(ref_);
  return bar ? bar->step : 0;
}
long ProgressBar::Increment(long step) {
  auto* bar = Bar(ref_);
  if (!bar) return 0;
  PutValue(bar->value + (step == kUseStep ? bar->step : step));
  return bar->value;
}
CStatus ProgressBar::PutCaption(const CString& caption) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->caption = caption.Wide();
  if (rt::ProgressRecord* record = bar->Record()) record->captions.push_back(caption.Wide());
  bar->Draw();
  return CStatus::OK;
}
CString ProgressBar::GetCaption() const {
  auto* bar = Bar(ref_);
  return bar ? CString(bar->caption) : CString();
}
CStatus ProgressBar::PutStatusText(const CString& text) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->statusText = text.Wide();
  bar->Draw();
  return CStatus::OK;
}
CString ProgressBar::GetStatusText() const {
  auto* bar = Bar(ref_);
  return bar ? CString(bar->statusText) : CString();
}
CStatus ProgressBar::PutCancelEnabled(bool enabled) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  bar->cancelEnabled = enabled;
  bar->Update();
  return CStatus::OK;
}
bool ProgressBar::GetCancelEnabled() const {
  auto* bar = Bar(ref_);
  return bar && bar->cancelEnabled;
}
CStatus ProgressBar::PutVisible(bool visible) {
  auto* bar = Bar(ref_);
  if (!bar) return kNoBar;
  if (visible) {
    bar->Show();
  } else {
    bar->Hide();
  }
  return CStatus::OK;
}
bool ProgressBar::GetVisible() const {
  auto* bar = Bar(ref_);
  return bar && bar->visible;
}
bool ProgressBar::IsCancelPressed() const { return false; }

}  // namespace Zyra
