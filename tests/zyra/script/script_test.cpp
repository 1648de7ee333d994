// The script language: tokens, directives, errors with file and line, keep-going.
#include "script/script.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "host/host.h"
#include "model/scene_graph.h"

namespace Zyra::rt {
namespace {

using script::Token;
using script::TokenKind;

std::vector<Token> Lex(std::wstring_view line) {
  std::vector<Token> tokens;
  CStatus status = script::Tokenize(line, tokens);
  EXPECT_TRUE(status.Succeeded()) << ToUtf8(line) << ": " << status.GetMessage().GetAsciiString();
  return tokens;
}

std::string LexError(std::wstring_view line) {
  std::vector<Token> tokens;
  CStatus status = script::Tokenize(line, tokens);
  EXPECT_FALSE(status.Succeeded()) << ToUtf8(line);
  return status.GetMessage().GetAsciiString();
}

TEST(ScriptTokenize, Numbers) {
  {  // integers keep their sign; anything with a point or exponent is a double
    auto t = Lex(L"0 -12 +7 2147483647 -2147483648");
    ASSERT_EQ(t.size(), 5u);
    const int expected[] = {0, -12, 7, 2147483647, -2147483647 - 1};
    for (size_t i = 0; i < t.size(); ++i) {
      EXPECT_EQ(t[i].kind, TokenKind::kInteger) << i;
      EXPECT_EQ(t[i].value.GetType(), siInt4) << i;
      EXPECT_EQ(t[i].value.AsInt(), expected[i]) << i;
    }
  }
  {
    auto t = Lex(L"1.5 -2. .5 +1e3 1E-2 -3.25e+2 0.1 -.75 1.0");
    ASSERT_EQ(t.size(), 9u);
    const double expected[] = {1.5, -2.0, 0.5, 1000.0, 0.01, -325.0, 0.1, -0.75, 1.0};
    for (size_t i = 0; i < t.size(); ++i) {
      EXPECT_EQ(t[i].kind, TokenKind::kDouble) << i;
      EXPECT_EQ(t[i].value.GetType(), siDouble) << i;
      EXPECT_EQ(t[i].value.AsDouble(), expected[i]) << i;  // exact: same decimal reading
    }
  }
  {  // a word that starts like a number must be one
    EXPECT_EQ(LexError(L"1.2.3"), "bad number \"1.2.3\"");
    EXPECT_EQ(LexError(L"Foo 1e"), "bad number \"1e\"");
    EXPECT_EQ(LexError(L"1e+"), "bad number \"1e+\"");
    EXPECT_EQ(LexError(L"12abc"), "bad number \"12abc\"");
    EXPECT_EQ(LexError(L"-5-"), "bad number \"-5-\"");
  }
  {  // out of range: integers are 32-bit, doubles must be finite
    EXPECT_EQ(
        LexError(L"2147483648"),
        "number \"2147483648\" is out of range for an integer (write 2147483648.0 for a double)");
    EXPECT_NE(LexError(L"-2147483649").find("out of range"), std::string::npos);
    EXPECT_EQ(LexError(L"1e999"), "number \"1e999\" is out of range");
    EXPECT_EQ(LexError(L"-1e-400"), "number \"-1e-400\" is out of range");  // would read as 0
    auto t = Lex(L"2147483648.0");
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(t[0].value.AsDouble(), 2147483648.0);
  }
  {  // signs and points alone are words, not numbers
    auto t = Lex(L"- + . -x");
    ASSERT_EQ(t.size(), 4u);
    for (const auto& token : t) EXPECT_EQ(token.kind, TokenKind::kWord) << ToUtf8(token.text);
  }
}

TEST(ScriptTokenize, StringsWordsAndComments) {
  {  // escapes: \" and \\ only; other backslashes stay, so Windows paths read as written
    auto t = Lex(LR"("a \"b\" \\ c" "C:\dir\file" "" "x # y")");
    ASSERT_EQ(t.size(), 4u);
    EXPECT_EQ(t[0].kind, TokenKind::kString);
    EXPECT_EQ(t[0].text, LR"(a "b" \ c)");
    EXPECT_EQ(t[0].value.GetAsText().Wide(), LR"(a "b" \ c)");
    EXPECT_EQ(t[1].text, LR"(C:\dir\file)");
    EXPECT_EQ(t[2].kind, TokenKind::kString);
    EXPECT_EQ(t[2].text, L"");
    EXPECT_EQ(t[3].text, L"x # y");
  }
  {
    EXPECT_EQ(LexError(LR"(Foo "abc)"), "unterminated string");
    EXPECT_EQ(LexError(LR"(Foo "abc\")"), "unterminated string");
    EXPECT_EQ(LexError(LR"("a"b)"), "expected a space after the string \"a\"");
    EXPECT_EQ(LexError(LR"(ab"c")"), "unexpected quote after \"ab\"");
  }
  {  // '#' outside quotes ends the line, even inside a word
    EXPECT_TRUE(Lex(L"# a comment \"unterminated").empty());
    EXPECT_TRUE(Lex(L"   \t ").empty());
    auto t = Lex(L"Foo 1 # two 3");
    ASSERT_EQ(t.size(), 2u);
    t = Lex(L"Foo#bar");
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(t[0].text, L"Foo");
  }
  {  // bools are the exact words; a Name="..." pair stays one word with the quotes removed
    auto t = Lex(L"true false True Name=\"a \\\"b\\\" c\" Frames=30 Model.Hips.posx");
    ASSERT_EQ(t.size(), 6u);
    EXPECT_EQ(t[0].kind, TokenKind::kBool);
    EXPECT_TRUE(t[0].value.AsBool());
    EXPECT_EQ(t[1].value.GetType(), siBool);
    EXPECT_FALSE(t[1].value.AsBool());
    EXPECT_EQ(t[2].kind, TokenKind::kWord);
    EXPECT_EQ(t[3].kind, TokenKind::kWord);
    EXPECT_EQ(t[3].text, L"Name=a \"b\" c");
    EXPECT_EQ(t[4].text, L"Frames=30");
    EXPECT_EQ(t[5].text, L"Model.Hips.posx");
    EXPECT_EQ(LexError(L"A=\"x\"y"), "expected a space after \"A=x\"");
  }
  {  // non-ASCII text in words and strings
    auto t = Lex(L"H\u00fcfte \"\u65e5\u672c\"");
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(t[0].text, L"H\u00fcfte");
    EXPECT_EQ(t[1].text, L"\u65e5\u672c");
  }
}

TEST(ScriptFormat, PrintText) {
  using script::FormatValue;
  EXPECT_EQ(FormatValue(CValue(0.1)), L"0.1");
  EXPECT_EQ(FormatValue(CValue(1e21)), L"1e+21");
  EXPECT_EQ(FormatValue(CValue(0.1f)), L"0.1");  // the float's own shortest text
  EXPECT_EQ(FormatValue(CValue()), L"");
  {  // full precision: the text reads back to the same double
    for (double d :
         {1.0 / 3.0, std::nextafter(1.0, 2.0), 6.02214076e23, -1e-300, 3.141592653589793}) {
      EXPECT_EQ(std::stod(ToUtf8(FormatValue(CValue(d)))), d);
    }
  }
  CValueArray inner{CValue(3), CValue(4)};
  CValueArray array{CValue(1), CValue(2.5), CValue(L"x"), CValue(inner)};
  EXPECT_EQ(FormatValue(CValue(array)), L"1,2.5,x,3,4");
  EXPECT_EQ(FormatValue(CValue(CValueArray())), L"");
}

// Test commands registered once for the runner tests.
struct Calls {
  std::vector<CValueArray> record;
};
Calls& TestCalls() {
  static Calls calls;
  return calls;
}

class ScriptRun : public ::testing::Test {
 protected:
  void SetUp() override {
    static bool registered = false;
    Host& host = Host::Get();
    if (!registered) {
      registered = true;
      host.RegisterCommand({L"ScriptTest_Record", L"", [](const CValueArray& args, CValue& result) {
                              TestCalls().record.push_back(args);
                              result = CValue(static_cast<int>(TestCalls().record.size()));
                              return CStatus(CStatus::OK);
                            }});
      host.RegisterCommand({L"ScriptTest_Return", L"", [](const CValueArray& args, CValue& result) {
                              result = args.GetCount() == 1 ? args[0] : CValue(args);
                              return CStatus(CStatus::OK);
                            }});
      host.RegisterCommand({L"ScriptTest_Fail", L"", [](const CValueArray&, CValue&) {
                              return CStatus(CStatus::InvalidArgument, L"ScriptTest_Fail: no luck");
                            }});
      // A plug-in command with a display name that holds blanks.
      host.RegisterCommand({L"ScriptTestDisplay", L"Script Test Display",
                            [](const CValueArray& args, CValue& result) {
                              result = CValue(L"display:" + args[0].GetAsText().Wide());
                              return CStatus(CStatus::OK);
                            },
                            false});  // not a plug-in's: unloading plug-ins elsewhere keeps it
      host.RegisterCommand({L"ScriptTest_Throw", L"", [](const CValueArray&, CValue&) -> CStatus {
                              throw std::runtime_error("boom");
                            }});
    }
    host.NewScene();
    host.ui() = UiState();
    host.SetQuiet(true);
    TestCalls().record.clear();
  }
  void TearDown() override {
    Host::Get().SetQuiet(false);
    Host::Get().ui() = UiState();
  }

  static std::string Run(const std::wstring& text, bool keepGoing = false) {
    ScriptOptions options;
    options.keepGoing = keepGoing;
    CStatus status = RunScriptText(text, "t.zys", options);
    return status.GetMessage().GetAsciiString();
  }
  static std::string LastLogged() {
    const auto& lines = Host::Get().LogLines();
    return lines.empty() ? "" : ToUtf8(lines.back().text);
  }
};

TEST_F(ScriptRun, ArgumentsArriveTyped) {
  auto model = CreateModel(Host::Get().scene().root, L"Rig");
  CreateX3D(model, siX3DObjectID, L"null", L"Hips");
  ASSERT_EQ(Run(L"\uFEFF# header\r\n\r\nScriptTest_Record 1 2.5 true \"s\" Rig.Hips "
                L"Rig.Hips.kine.local.posx Rig.Hips.posx\r\n"),
            "");
  ASSERT_EQ(TestCalls().record.size(), 1u);
  const CValueArray& args = TestCalls().record[0];
  ASSERT_EQ(args.GetCount(), 7);
  EXPECT_EQ(args[0].GetType(), siInt4);
  EXPECT_EQ(args[1].GetType(), siDouble);
  EXPECT_EQ(args[2].GetType(), siBool);
  EXPECT_EQ(args[3].GetType(), siString);
  EXPECT_EQ(args[3].GetAsText().Wide(), L"s");  // not resolved, even though it could be a name
  EXPECT_EQ(args[4].GetType(), siRef);
  EXPECT_EQ(args[4].GetAsText().Wide(), L"Rig.Hips");
  EXPECT_EQ(args[5].AsRef().GetClassID(), siParameterID);
  EXPECT_EQ(args[5].GetAsText().Wide(), L"Rig.Hips.kine.local.posx");
  EXPECT_EQ(args[6].AsRef(), args[5].AsRef());  // the short path reaches the same parameter
}

TEST_F(ScriptRun, QuotedCommandNames) {
  {  // a quoted name reaches a command by its display name, or by its script name
    testing::internal::CaptureStdout();
    EXPECT_EQ(Run(L"Print \"Script Test Display\" 1\nPrint \"ScriptTestDisplay\" 2\nPrint "
                  L"ScriptTestDisplay 3"),
              "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "display:1\ndisplay:2\ndisplay:3\n");
    EXPECT_EQ(Run(L"\"ScriptTest_Record\" 7"), "");
    ASSERT_EQ(TestCalls().record.size(), 1u);
  }
  {  // a quoted directive name is looked up as a command, and there is none
    EXPECT_EQ(Run(L"\"Shift\" on"), "t.zys:1: unknown command \"Shift\"");
    EXPECT_FALSE(Host::Get().ui().shift);
    EXPECT_EQ(Run(L"Print \"Shift\" on"), "t.zys:1: unknown command \"Shift\"");
  }
}

TEST_F(ScriptRun, ErrorsNameFileAndLine) {
  auto model = CreateModel(Host::Get().scene().root, L"Rig");
  CreateX3D(model, siX3DObjectID, L"null", L"Hips");
  {  // line numbers count blank and comment lines, with either line ending
    EXPECT_EQ(Run(L"ScriptTest_Record\r\n\r\n# c\r\nFoo 1\r\nScriptTest_Record\r\n"),
              "t.zys:4: unknown command \"Foo\"");
    EXPECT_EQ(LastLogged(), "t.zys:4: unknown command \"Foo\"");
    EXPECT_EQ(Host::Get().LogLines().back().severity, kSevError);
    EXPECT_EQ(TestCalls().record.size(), 1u);  // stopped at the failure
  }
  {  // a name only resolves in its own name space
    EXPECT_EQ(Run(L"ScriptTest_Record Rig.Hips\nScriptTest_Record Hips"),
              "t.zys:2: unknown object \"Hips\"");
    EXPECT_EQ(TestCalls().record.size(), 2u);
  }
  {  // nothing runs when an argument fails to resolve
    TestCalls().record.clear();
    EXPECT_EQ(Run(L"ScriptTest_Record 1 Nobody"), "t.zys:1: unknown object \"Nobody\"");
    EXPECT_TRUE(TestCalls().record.empty());
  }
  EXPECT_EQ(Run(L"\n\nScriptTest_Fail 3"), "t.zys:3: ScriptTest_Fail: no luck");
  EXPECT_EQ(Run(L"ScriptTest_Throw"), "t.zys:1: ScriptTest_Throw failed: boom");
  EXPECT_EQ(Run(L"ScriptTest_Record \"open"), "t.zys:1: unterminated string");
  EXPECT_EQ(Run(L"1.5 ScriptTest_Record"), "t.zys:1: expected a command name, got \"1.5\"");
  EXPECT_EQ(Run(L"true"), "t.zys:1: expected a command name, got \"true\"");
  EXPECT_EQ(Run(L"print ScriptTest_Record"), "t.zys:1: unknown command \"print\"");  // case matters
  {  // the failing status keeps the command's code
    CStatus status = RunScriptText(L"ScriptTest_Fail", "x");
    EXPECT_EQ(status.GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(RunScriptText(L"Nope", "x").GetCode(), CStatus::MemberNotFound);
  }
}

TEST_F(ScriptRun, KeepGoing) {
  std::wstring text =
      L"ScriptTest_Record 1\nBad1\nScriptTest_Record 2\nScriptTest_Fail\nScriptTest_Record 3\n";
  EXPECT_EQ(Run(text, false), "t.zys:2: unknown command \"Bad1\"");
  EXPECT_EQ(TestCalls().record.size(), 1u);

  TestCalls().record.clear();
  Host::Get().ClearLog();
  EXPECT_EQ(Run(text, true), "t.zys:2: unknown command \"Bad1\"");  // the first failure
  ASSERT_EQ(TestCalls().record.size(), 3u);
  EXPECT_EQ(TestCalls().record[2][0].AsInt(), 3);
  std::vector<std::string> errors;
  for (const auto& line : Host::Get().LogLines()) {
    if (line.severity == kSevError) errors.push_back(ToUtf8(line.text));
  }
  EXPECT_EQ(errors, (std::vector<std::string>{"t.zys:2: unknown command \"Bad1\"",
                                              "t.zys:4: ScriptTest_Fail: no luck"}));
}

TEST_F(ScriptRun, AnswersAndShift) {
  UiState& ui = Host::Get().ui();
  {
    ASSERT_EQ(Run(L"Answer MsgBox OK Cancel\nAnswer MsgBox Yes\nAnswer MsgBox No"), "");
    EXPECT_EQ(std::vector<int>(ui.msgBoxAnswers.begin(), ui.msgBoxAnswers.end()),
              (std::vector<int>{1, 2, 6, 7}));
  }
  {  // a bad answer queues nothing, not even the good words before it
    EXPECT_EQ(Run(L"Answer MsgBox Yes Maybe"),
              "t.zys:1: Answer MsgBox: expected OK, Cancel, Yes or No, got \"Maybe\"");
    EXPECT_EQ(Run(L"Answer MsgBox yes"),
              "t.zys:1: Answer MsgBox: expected OK, Cancel, Yes or No, got \"yes\"");
    EXPECT_EQ(ui.msgBoxAnswers.size(), 4u);
  }
  {
    ASSERT_EQ(Run(L"Answer Page \"Export Skill\" Frames=30 Name=\"Run fast\" press=Browse press=Go "
                  L"cancel\n"
                  L"Answer Page \"\" Speed=-1.5"),
              "");
    ASSERT_EQ(ui.pageAnswers.size(), 2u);
    const PageAnswer& a = ui.pageAnswers[0];
    EXPECT_EQ(a.title, L"Export Skill");
    using Values = std::vector<std::pair<std::wstring, std::wstring>>;
    EXPECT_EQ(a.values, (Values{{L"Frames", L"30"}, {L"Name", L"Run fast"}}));
    EXPECT_EQ(a.presses, (std::vector<std::wstring>{L"Browse", L"Go"}));
    EXPECT_TRUE(a.cancel);
    EXPECT_EQ(ui.pageAnswers[1].title, L"");
    EXPECT_FALSE(ui.pageAnswers[1].cancel);
    EXPECT_EQ(ui.pageAnswers[1].values, (Values{{L"Speed", L"-1.5"}}));
    EXPECT_EQ(Run(L"Answer Page \"T\" Frames 30"),
              "t.zys:1: Answer Page: expected Param=value, press=Button or cancel, got \"Frames\"");
    EXPECT_EQ(Run(L"Answer Page A=1"),
              "t.zys:1: Answer Page: expected the page title first, as in Answer Page \"Title\" "
              "Param=value");
    EXPECT_EQ(Run(L"Answer Page \"T\" =1"),
              "t.zys:1: Answer Page: expected Param=value, press=Button or cancel, got \"=1\"");
    EXPECT_EQ(ui.pageAnswers.size(), 2u);
  }
  {
    ASSERT_EQ(Run(L"Answer File \"Open BVH\" \"/tmp/walk.bvh\""), "");
    ASSERT_EQ(ui.fileAnswers.size(), 1u);
    EXPECT_EQ(ui.fileAnswers[0],
              std::make_pair(std::wstring(L"Open BVH"), std::wstring(L"/tmp/walk.bvh")));
    EXPECT_NE(Run(L"Answer File \"Open BVH\""), "");
    EXPECT_EQ(ui.fileAnswers.size(), 1u);
  }
  {  // bare none is "nothing picked"; a quoted "none" is an object of that name
    ASSERT_EQ(Run(L"Answer Pick Rig.Hips\nAnswer Pick none\nAnswer Pick \"none\""), "");
    EXPECT_EQ(std::vector<std::wstring>(ui.pickAnswers.begin(), ui.pickAnswers.end()),
              (std::vector<std::wstring>{L"Rig.Hips", L"", L"none"}));
    EXPECT_EQ(Run(L"Answer Pick"), "t.zys:1: Answer Pick: expected an object name or none");
  }
  {
    EXPECT_EQ(Run(L"Answer Question Yes"), "t.zys:1: Answer: expected MsgBox, Page, File or Pick");
  }
  {
    ASSERT_EQ(Run(L"Shift on"), "");
    EXPECT_TRUE(ui.shift);
    ASSERT_EQ(Run(L"Shift off"), "");
    EXPECT_FALSE(ui.shift);
    EXPECT_EQ(Run(L"Shift down"), "t.zys:1: Shift: expected on or off");
    EXPECT_EQ(Run(L"Shift"), "t.zys:1: Shift: expected on or off");
    EXPECT_FALSE(ui.shift);
  }
}

TEST_F(ScriptRun, PrintAndEcho) {
  auto model = CreateModel(Host::Get().scene().root, L"Rig");
  CreateX3D(model, siX3DObjectID, L"null", L"Hips");
  testing::internal::CaptureStdout();
  std::string status =
      Run(L"Print ScriptTest_Return 0.1\n"
          L"Print ScriptTest_Return 1e-7\n"
          L"Print ScriptTest_Return -3\n"
          L"Print ScriptTest_Return false\n"
          L"Print ScriptTest_Return \"t\u00e9xt\"\n"
          L"Print ScriptTest_Return Rig.Hips\n"
          L"Print ScriptTest_Return 1 2.5 Rig\n"
          L"Echo \"a  b\" 1.50 c\n"
          L"Print ScriptTest_Fail\n"
          L"Print ScriptTest_Return 99\n");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, "t.zys:9: ScriptTest_Fail: no luck");
  EXPECT_EQ(out, "0.1\n1e-07\n-3\nfalse\nt\xc3\xa9xt\nRig.Hips\n1,2.5,Rig\na  b 1.50 c\n");
  EXPECT_EQ(Run(L"Print"), "t.zys:1: Print: expected a command, as in Print GetValue \"Obj.posx\"");
  EXPECT_EQ(Run(L"Print Shift on"), "t.zys:1: Print: \"Shift\" is a directive, not a command");
  EXPECT_EQ(Run(L"Print Nope"), "t.zys:1: unknown command \"Nope\"");
}

TEST_F(ScriptRun, Files) {
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("zyra_script_test_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  auto write = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(dir / name, std::ios::binary) << bytes;
    return (dir / name).string();
  };
  {
    std::string path = write("ok.zys", "ScriptTest_Record \"\xc3\xbc\"\r\nScriptTest_Record 2\r\n");
    EXPECT_TRUE(RunScriptFile(path).Succeeded());
    ASSERT_EQ(TestCalls().record.size(), 2u);
    EXPECT_EQ(TestCalls().record[0][0].GetAsText().Wide(), L"\u00fc");
  }
  {  // a bad byte is reported on its line, before anything runs
    TestCalls().record.clear();
    std::string path =
        write("bad.zys", "ScriptTest_Record 1\n# \xc3\x28 broken\nScriptTest_Record 2\n");
    EXPECT_EQ(RunScriptFile(path).GetMessage().GetAsciiString(), path + ":2: invalid UTF-8");
    path = write("overlong.zys", "ScriptTest_Record \"\xc0\xaf\"\n");
    EXPECT_EQ(RunScriptFile(path).GetMessage().GetAsciiString(), path + ":1: invalid UTF-8");
    path = write("truncated.zys", "ScriptTest_Record\n\n\"\xe6\x97");
    EXPECT_EQ(RunScriptFile(path).GetMessage().GetAsciiString(), path + ":3: invalid UTF-8");
    EXPECT_TRUE(TestCalls().record.empty());
  }
  {
    // Only regular files: a FIFO would wait for a writer, /dev/zero would never end.
    ASSERT_EQ(::mkfifo((dir / "fifo.zys").c_str(), 0600), 0);
    const struct {
      std::string path, why;
    } cases[] = {
        {(dir / "missing.zys").string(), "No such file or directory"},
        {dir.string(), "it is a folder, not a regular file"},
        {(dir / "fifo.zys").string(), "it is a FIFO, not a regular file"},
        {"/dev/zero", "it is a character device, not a regular file"},
    };
    for (const auto& c : cases) {
      EXPECT_EQ(RunScriptFile(c.path).GetMessage().GetAsciiString(),
                "cannot open script \"" + c.path + "\": " + c.why);
    }
  }
  {  // errors in a file name the file as given
    std::string path = write("fail.zys", "\nScriptTest_Fail\n");
    EXPECT_EQ(RunScriptFile(path).GetMessage().GetAsciiString(),
              path + ":2: ScriptTest_Fail: no luck");
  }
  fs::remove_all(dir);
}

}  // namespace
}  // namespace Zyra::rt
