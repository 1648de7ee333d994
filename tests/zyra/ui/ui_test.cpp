// The headless user interface: message boxes, progress bars, the file browser, picking and the
// key state, each answered from queued answers or defaults and recorded for tests.
#include "zyra/ui.h"

#include <gtest/gtest.h>

#include <string>

#include "host/host.h"
#include "model/scene_graph.h"
#include "ui/ui_objects.h"
#include "zyra/application.h"
#include "zyra/x3dobject.h"

using namespace Zyra;

namespace {

std::string S(const CString& text) { return text.GetAsciiString(); }

class UiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    rt::Host::Get().ClearLog();
  }
  rt::UiState& Ui() { return rt::Host::Get().ui(); }
  static int Box(int style, const CString& text = L"Text") {
    int result = -1;
    EXPECT_TRUE(UIToolkit().MsgBox(text, style, L"Caption", result).Succeeded());
    return result;
  }
};

TEST_F(UiTest, MsgBoxAnswersByStyleFromQueueOrDefault) {
  {  // Defaults: OK for OK boxes, OK/Yes for questions.
    EXPECT_EQ(Box(siMsgOkOnly), siMsgOk);
    EXPECT_EQ(Box(siMsgOkCancel), siMsgOk);
    EXPECT_EQ(Box(siMsgYesNoCancel), siMsgYes);
    EXPECT_EQ(Box(siMsgYesNo | siMsgQuestion), siMsgYes);
  }
  {  // --no: questions answer No / Cancel, an OK box still OK.
    Ui().defaultQuestionAnswer = siMsgNo;
    EXPECT_EQ(Box(siMsgOkOnly), siMsgOk);
    EXPECT_EQ(Box(siMsgOkCancel), siMsgCancel);
    EXPECT_EQ(Box(siMsgYesNoCancel), siMsgNo);
    EXPECT_EQ(Box(siMsgYesNo), siMsgNo);
    Ui().defaultQuestionAnswer = 0;
  }
  {  // Queued answers come first, in order, each mapped onto the box's buttons.
    Ui().msgBoxAnswers = {siMsgCancel, siMsgNo,     siMsgYes, siMsgOk,
                          siMsgCancel, siMsgCancel, siMsgNo};
    EXPECT_EQ(Box(siMsgOkOnly), siMsgOk) << "an OK box has nothing else, and uses up the answer";
    EXPECT_EQ(Box(siMsgOkCancel), siMsgCancel) << "No on OK/Cancel";
    EXPECT_EQ(Box(siMsgOkCancel), siMsgOk) << "Yes on OK/Cancel";
    EXPECT_EQ(Box(siMsgYesNo), siMsgYes) << "OK on Yes/No";
    EXPECT_EQ(Box(siMsgYesNo), siMsgNo) << "Cancel on Yes/No";
    EXPECT_EQ(Box(siMsgYesNoCancel | siMsgExclamation), siMsgCancel);
    EXPECT_EQ(Box(siMsgYesNoCancel), siMsgNo);
    EXPECT_TRUE(Ui().msgBoxAnswers.empty());
    EXPECT_EQ(Box(siMsgOkCancel), siMsgOk) << "back to the default once the queue is empty";
  }
  {  // Styles the host does not offer are refused; nothing is shown or used up.
    Ui().msgBoxAnswers = {siMsgCancel};
    size_t shown = Ui().messageBoxes.size();
    int result = -1;
    for (int style : {2, 5, 6, 0x0F}) {
      CStatus status = UIToolkit().MsgBox(L"x", style, L"Caption", result);
      EXPECT_EQ(status.GetCode(), CStatus::InvalidArgument) << style;
      EXPECT_EQ(result, 0);
    }
    EXPECT_EQ(Ui().messageBoxes.size(), shown);
    EXPECT_EQ(Ui().msgBoxAnswers.size(), 1u);
  }
}

TEST_F(UiTest, MsgBoxIsRecordedAndPrintedWithItsAnswer) {
  Ui().msgBoxAnswers = {siMsgCancel};
  rt::Host::Get().SetQuiet(true);
  testing::internal::CaptureStderr();
  int result = 0;
  UIToolkit().MsgBox(L"First line\nSecond line \u00e9", siMsgOkCancel, L"Kinra Export", result);
  std::string printed = testing::internal::GetCapturedStderr();
  rt::Host::Get().SetQuiet(false);
  EXPECT_EQ(printed, "[Kinra Export] First line\nSecond line \xc3\xa9\n  -> Cancel\n")
      << "printed in full even when quiet";
  Box(siMsgOkOnly, L"Done.");
  ASSERT_EQ(Ui().messageBoxes.size(), 2u);
  EXPECT_EQ(ToUtf8(Ui().messageBoxes[0]), "Kinra Export: First line\nSecond line \xc3\xa9");
  EXPECT_EQ(ToUtf8(Ui().messageBoxes[1]), "Caption: Done.");
}

TEST_F(UiTest, ProgressBarRunsRecordCaptionsMaximumAndFinalValue) {
  {  // An empty bar accepts every call and records nothing.
    ProgressBar none;
    EXPECT_FALSE(none.IsValid());
    EXPECT_TRUE(none.PutVisible(true).Succeeded());
    EXPECT_TRUE(none.PutCaption(L"x").Succeeded());
    EXPECT_EQ(none.Increment(), 0);
    EXPECT_FALSE(none.GetVisible());
    EXPECT_TRUE(Ui().progressRuns.empty());
  }
  ProgressBar bar = UIToolkit().GetProgressBar();
  ASSERT_TRUE(bar.IsValid());
  EXPECT_EQ(bar.GetMinimum(), 0);
  EXPECT_EQ(bar.GetMaximum(), 100);
  EXPECT_EQ(bar.GetStep(), 1);
  EXPECT_TRUE(bar.GetCancelEnabled());
  EXPECT_FALSE(bar.GetVisible());
  {  // Settings before the bar shows are its run's starting point.
    bar.PutCaption(L"Initializing Actor");
    bar.PutMaximum(10);
    bar.PutCancelEnabled(false);
    EXPECT_TRUE(Ui().progressRuns.empty()) << "a hidden bar has no run yet";
    bar.PutVisible(true);
    ASSERT_EQ(Ui().progressRuns.size(), 1u);
    const rt::ProgressRecord& run = Ui().progressRuns[0];
    ASSERT_EQ(run.captions.size(), 1u);
    EXPECT_EQ(ToUtf8(run.captions[0]), "Initializing Actor");
    EXPECT_EQ(run.maximum, 10);
    EXPECT_FALSE(run.cancelEnabled);
    EXPECT_TRUE(run.visible);
  }
  {  // Steps, explicit increments, captions; the value stays within the range.
    EXPECT_EQ(bar.Increment(), 1);
    bar.PutStep(4);
    EXPECT_EQ(bar.Increment(), 5);
    EXPECT_EQ(bar.Increment(2), 7);
    bar.PutCaption(L"Creating Boxes");
    EXPECT_EQ(bar.Increment(), 10) << "clamped to the maximum";
    bar.PutValue(-5);
    EXPECT_EQ(bar.GetValue(), 0);
    bar.PutMaximum(20);
    bar.PutValue(20);
    bar.PutVisible(false);
    const rt::ProgressRecord& run = Ui().progressRuns[0];
    EXPECT_EQ(run.captions.size(), 2u);
    EXPECT_EQ(ToUtf8(run.captions[1]), "Creating Boxes");
    EXPECT_EQ(run.maximum, 20);
    EXPECT_EQ(run.value, 20);
    EXPECT_FALSE(run.visible);
  }
  {  // Hidden changes do not touch the finished run; showing again starts a new one.
    bar.PutValue(3);
    bar.PutCaption(L"Cleanup");
    EXPECT_EQ(Ui().progressRuns[0].value, 20);
    EXPECT_EQ(Ui().progressRuns[0].captions.size(), 2u);
    bar.PutVisible(true);
    bar.PutVisible(true);
    ASSERT_EQ(Ui().progressRuns.size(), 2u) << "showing a shown bar starts nothing";
    EXPECT_EQ(Ui().progressRuns[1].value, 3);
    ASSERT_EQ(Ui().progressRuns[1].captions.size(), 1u);
    EXPECT_EQ(ToUtf8(Ui().progressRuns[1].captions[0]), "Cleanup");
  }
  {  // A minimum above the value lifts it; the last handle going away ends the run.
    bar.PutMinimum(5);
    EXPECT_EQ(bar.GetValue(), 5);
    EXPECT_EQ(Ui().progressRuns[1].value, 5);
    ProgressBar copy = bar;
    bar = ProgressBar();
    EXPECT_TRUE(Ui().progressRuns[1].visible) << "a copy still holds the bar";
    copy = ProgressBar();
    EXPECT_FALSE(Ui().progressRuns[1].visible);
  }
  {  // Each GetProgressBar is a fresh bar.
    ProgressBar other = UIToolkit().GetProgressBar();
    EXPECT_EQ(other.GetValue(), 0);
    EXPECT_EQ(other.GetMaximum(), 100);
  }
}

TEST_F(UiTest, FileBrowserAnswersByDialogTitleAndCancelsOtherwise) {
  EXPECT_TRUE(rt::CreateAutomationObject(L"Zyra.Nothing").IsEmpty());
  AutomationObject unknown;
  EXPECT_EQ(unknown.CreateInstance(L"Zyra.Nothing").GetCode(), CStatus::MemberNotFound);
  EXPECT_FALSE(unknown.IsValid());

  AutomationObject toolkit(rt::CreateAutomationObject(L"Zyra.UIToolkit"));
  ASSERT_TRUE(toolkit.IsValid());
  AutomationObject browser(toolkit.GetProperty(L"FileBrowser"));
  ASSERT_TRUE(browser.IsValid());
  EXPECT_FALSE(toolkit.PutProperty(L"FileBrowser", CValue()).Succeeded());
  EXPECT_TRUE(toolkit.GetProperty(L"Nothing").IsEmpty());

  Ui().fileAnswers = {{L"Load Actor", L"/data/actor.zyra"},
                      {L"Save Actor", L"/out/saved.zyra"},
                      {L"", L"C:\\mocap\\walk.bvh"}};
  auto show = [&](const wchar_t* title, const wchar_t* method) {
    EXPECT_TRUE(browser.PutProperty(L"DialogTitle", CValue(title)).Succeeded());
    CValue ignored;
    EXPECT_TRUE(browser.Call(method, ignored).Succeeded());
    return S(browser.GetProperty(L"FilePathName").GetAsText());
  };
  browser.PutProperty(L"Filter", CValue(L"Actor Files (*.zyra)|*.zyra|"));
  browser.PutProperty(L"InitialDirectory", CValue(L"/home"));
  EXPECT_EQ(show(L"Save Actor", L"ShowSave"), "/out/saved.zyra") << "skips another title's answer";
  EXPECT_EQ(S(browser.GetProperty(L"FileName").GetAsText()), "saved.zyra");
  EXPECT_EQ(show(L"Import BVH", L"ShowOpen"), "C:\\mocap\\walk.bvh")
      << "an untitled answer fits any";
  EXPECT_EQ(S(browser.GetProperty(L"FileName").GetAsText()), "walk.bvh");
  EXPECT_EQ(show(L"Import BVH", L"ShowOpen"), "") << "nothing left for this title: cancelled";
  EXPECT_EQ(S(browser.GetProperty(L"FileName").GetAsText()), "");
  EXPECT_EQ(show(L"Load Actor", L"ShowOpen"), "/data/actor.zyra");
  EXPECT_TRUE(Ui().fileAnswers.empty());
  EXPECT_EQ(S(browser.GetProperty(L"Filter").GetAsText()), "Actor Files (*.zyra)|*.zyra|");

  std::string log;
  for (const auto& line : rt::Host::Get().LogLines()) log += ToUtf8(line.text) + "\n";
  EXPECT_NE(log.find("[File] Save \"Save Actor\" (Actor Files (*.zyra)|*.zyra|) in /home\n  -> "
                     "/out/saved.zyra"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("-> cancelled"), std::string::npos);

  CValue result;
  EXPECT_EQ(browser.Call(L"ShowFolder", result).GetCode(), CStatus::MemberNotFound);
  EXPECT_EQ(browser.PutProperty(L"Colour", 1).GetCode(), CStatus::MemberNotFound);
  EXPECT_FALSE(AutomationObject().PutProperty(L"Filter", 1).Succeeded());
}

TEST_F(UiTest, PickObjectReturnsTheAnsweredObjectOrNothing) {
  X3DObject hips;
  ASSERT_TRUE(Application().GetActiveSceneRoot().AddNull(L"Hips", hips).Succeeded());
  Ui().pickAnswers = {L"Hips", L"", L"Nobody"};
  auto pick = [] {
    CValue result;
    EXPECT_TRUE(Application()
                    .ExecuteCommand(L"PickObject",
                                    CValueArray{L"Select Target Model", L"Select Target Model"},
                                    result)
                    .Succeeded());
    return result.AsArray();
  };
  CValueArray picked = pick();
  ASSERT_EQ(picked.GetCount(), 3);
  EXPECT_EQ(picked[0].AsInt(), 1);
  EXPECT_EQ(picked[1].AsInt(), 0);
  EXPECT_EQ(picked[2].AsRef(), hips.GetRef());
  for (int i = 0; i < 3; ++i) {  // "", an unknown name, an empty queue: nothing picked.
    CValueArray none = pick();
    ASSERT_EQ(none.GetCount(), 3);
    EXPECT_EQ(none[0].AsInt(), 0) << i;
    EXPECT_FALSE(none[2].AsRef().IsValid()) << i;
  }
  std::string warnings;
  for (const auto& line : rt::Host::Get().LogLines()) {
    if (line.severity == rt::kSevWarning) warnings += ToUtf8(line.text);
  }
  EXPECT_NE(warnings.find("Nobody"), std::string::npos);
}

TEST_F(UiTest, ShiftKeyFollowsTheHeadlessState) {
  EXPECT_EQ(GetKeyState(kVirtualKeyShift) & 0x8000, 0);
  Ui().shift = true;
  EXPECT_NE(GetKeyState(kVirtualKeyShift) & 0x8000, 0);
  EXPECT_EQ(GetKeyState(17), 0) << "only Shift is ever down";
}

}  // namespace
