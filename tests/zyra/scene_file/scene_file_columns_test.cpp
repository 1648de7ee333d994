// Number columns read as a file streams in and written as the text is made: the same items and
// first error whatever the buffer size or thread split, broken files refused with the message
// of the file as it is and nothing changed, long columns written with the bytes a plain
// formatting loop gives.
#include "scene_file/scene_file_columns.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

#include "host/host.h"
#include "model/scene_graph.h"
#include "scene_file/scene_file.h"
#include "scene_file/scene_file_json.h"

namespace {

namespace rt = Zyra::rt;
namespace sr = Zyra::rt::scene_reading;

// `n` numbers separated by single spaces; item `bad` (if any) replaced by `word`.
std::string ColumnText(size_t n, size_t bad = SIZE_MAX, const char* word = "x") {
  std::string text;
  char buffer[32];
  for (size_t i = 0; i < n; ++i) {
    if (i > 0) text += ' ';
    if (i == bad) {
      text += word;
      continue;
    }
    text.append(buffer, std::to_chars(buffer, buffer + 32, 0.1 * static_cast<double>(i)).ptr);
  }
  return text;
}

// Items and first error of a column read whole, through ColumnParser one byte at a time (the
// oracle: no buffer, no thread).
sr::Column ByteByByte(const std::string& text, bool single) {
  sr::ColumnParser parser(single);
  for (const char& c : text) parser.Feed(&c, &c + 1);
  return parser.Finish();
}

void ExpectSame(const sr::Column& a, const sr::Column& b) {
  EXPECT_EQ(a.doubles, b.doubles);
  EXPECT_EQ(a.floats, b.floats);
  EXPECT_EQ(a.error, b.error);
  EXPECT_EQ(a.errorAt, b.errorAt);
}

// The two halves of a long column give the items and the first error of one reader, wherever
// the middle falls and whichever half holds the error.
TEST(SceneFileColumns, ASplitColumnReadsAsOne) {
  const size_t n = 16001;  // about 100 KiB: split between two threads
  struct Case {
    std::string text;
    bool single;
  };
  const std::vector<Case> cases = {
      {ColumnText(n), false},
      {ColumnText(n + 1), true},
      {ColumnText(n, n / 2 + 3), false},                      // an error in the second half
      {ColumnText(n, 17) + " y", false},                      // two errors: the first wins
      {ColumnText(n, n - 1, "1e999"), false},                 // out of range, last item
      {ColumnText(n, n / 2 - 1, "1e39"), true},               // float out of range near the middle
      {ColumnText(n) + " ", true},                            // an empty last item
      {ColumnText(n / 2) + "  " + ColumnText(n / 2), false},  // an empty item at the middle
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(c.text.size() - 20));
    ExpectSame(sr::ParseColumn(c.text.data(), c.text.data() + c.text.size(), c.single),
               ByteByByte(c.text, c.single));
  }
  EXPECT_EQ(ByteByByte(ColumnText(n, n / 2 + 3), false).errorAt, n / 2 + 3);
  EXPECT_EQ(ByteByByte("", false).size(), 0u);
  EXPECT_EQ(ByteByByte(" ", false).errorAt, 0u);
}

// Items read exactly as std::from_chars reads each one on its own (the parser takes a shortcut
// for short decimals): shortest texts of random floats and doubles, random digit strings with a
// point anywhere, and the edges of the shortcut.
TEST(SceneFileColumns, ItemsReadAsFromCharsReadsThem) {
  std::vector<std::string> items = {"-0",
                                    "0",
                                    "007",
                                    "16777217",
                                    "0.1",
                                    "-2.5",
                                    "1e5",
                                    "inf",
                                    "1234567890123456",
                                    "123456789012345",
                                    "0.0000000000000000000001",
                                    "1.00000005960464477539",
                                    "33554431.5",
                                    "3.4028235e38"};
  std::vector<std::string> doubles = items;
  std::mt19937_64 random(17);
  char buffer[40];
  for (int i = 0; i < 20000; ++i) {
    const uint64_t bits = random();
    float f;
    double d;
    std::memcpy(&f, &bits, sizeof f);
    std::memcpy(&d, &bits, sizeof d);
    if (std::isfinite(f)) items.emplace_back(buffer, std::to_chars(buffer, buffer + 40, f).ptr);
    if (std::isfinite(d)) doubles.emplace_back(buffer, std::to_chars(buffer, buffer + 40, d).ptr);
    std::string digits = std::to_string(random() % 10000000000000000u);
    digits.resize(1 + random() % digits.size());
    if (random() % 2) digits.insert(random() % digits.size() + 1, ".");
    items.push_back(random() % 2 ? "-" + digits : digits);
    doubles.push_back(items.back());
  }
  for (bool single : {true, false}) {
    if (!single) items = doubles;
    std::string text;
    for (const std::string& item : items) text += (text.empty() ? "" : " ") + item;
    const sr::Column column = sr::ParseColumn(text.data(), text.data() + text.size(), single);
    ASSERT_EQ(column.error, "");
    ASSERT_EQ(column.size(), items.size());
    for (size_t i = 0; i < items.size(); ++i) {
      const char* at = items[i].data();
      const char* end = at + items[i].size();
      if (single) {
        float expected = 0;
        std::from_chars(at, end, expected);
        ASSERT_EQ(std::memcmp(&column.floats[i], &expected, sizeof expected), 0) << items[i];
      } else {
        double expected = 0;
        std::from_chars(at, end, expected);
        ASSERT_EQ(std::memcmp(&column.doubles[i], &expected, sizeof expected), 0) << items[i];
      }
    }
  }
}

// A document read through buffers of every size (so columns cross refills, inside numbers too)
// gives the document and the columns of one read of the whole text.
TEST(SceneFileColumns, ColumnsCrossingBufferRefillsReadTheSame) {
  const std::string doc = R"({"a": {"frames": ")" + ColumnText(900) + R"(", "floatValues": ")" +
                          ColumnText(1000) + R"("}, "b": {"values": "1 2", "k\"ey": "val\\ue"},
"c": {"values": ")" + ColumnText(800, 700) +
                          R"("}, "d": {"values": "12\u0020)" + ColumnText(900) +
                          R"("}, "e": {"frames" : ")" + ColumnText(5000, 4000) + R"("}})";
  sr::Columns whole;
  sr::Json expected;
  std::string syntax;
  ASSERT_TRUE(sr::ParseJson(doc, expected, syntax, whole)) << syntax;
  ASSERT_EQ(whole.items.size(), 4u) << "the column with an escape stays a string";
  EXPECT_EQ(expected["d"]["values"].get<std::string>().substr(0, 6), "12 0 0");
  for (size_t size : std::vector<size_t>{1, 2, 7, 100, 4095, 4097, 9000, 1 << 20}) {
    SCOPED_TRACE(size);
    size_t at = 0, advanced = 0;
    auto read = [&](char* into, size_t capacity) {
      const size_t n = std::min(capacity, doc.size() - at);
      std::memcpy(into, doc.data() + at, n);
      at += n;
      return n;
    };
    sr::Columns columns;
    sr::Json parsed;
    ASSERT_TRUE(
        sr::ParseJsonStream(read, size + 1, parsed, columns, [&](size_t n) { advanced += n; }));
    EXPECT_EQ(parsed, expected);
    EXPECT_EQ(advanced, doc.size());
    ASSERT_EQ(columns.items.size(), whole.items.size());
    for (size_t i = 0; i < columns.items.size(); ++i) ExpectSame(columns.items[i], whole.items[i]);
  }
  EXPECT_EQ(whole.items[2].errorAt, 700u);
  EXPECT_EQ(whole.items[3].error, "expected a number, found \"x\"");
}

class SceneFileStreaming : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    path_ = "/tmp/zyra_streaming_" + std::to_string(::getpid()) + ".zyra";
  }
  void TearDown() override { std::remove(path_.c_str()); }
  static std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }
  void WriteBytes(const std::string& bytes) const {
    std::ofstream(path_, std::ios::binary) << bytes;
  }
  // A ball whose posx holds `n` keys of double values at irregular frames.
  static void KeyBall(size_t n) {
    auto ball = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Ball");
    std::vector<double> frames(n), values(n);
    for (size_t i = 0; i < n; ++i) {
      frames[i] = static_cast<double>(i) + (i % 3 ? 0.25 : 0.0);
      values[i] = static_cast<double>(i) / 3;
    }
    ball->local->FindParam(L"posx")->AddFCurve()->keys.Assign(frames.data(), values.data(), n, 0);
  }
  std::string path_;
};

// Long columns (split between threads, handed to the file in many pieces) hold the text of a
// plain to_chars loop, and save, open, save gives the same bytes.
TEST_F(SceneFileStreaming, LongColumnsAreWrittenAsAPlainLoopWouldAndRoundTrip) {
  const size_t n = 100001;
  KeyBall(n);
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  const std::string first = ReadBytes(path_);
  for (const char* key : {"\"frames\": \"", "\"values\": \""}) {
    SCOPED_TRACE(key);
    std::string expected;
    char buffer[32];
    for (size_t i = 0; i < n; ++i) {
      const double v = key[1] == 'f' ? static_cast<double>(i) + (i % 3 ? 0.25 : 0.0)
                                     : static_cast<double>(i) / 3;
      if (i > 0) expected += ' ';
      expected.append(buffer, std::to_chars(buffer, buffer + 32, v).ptr);
    }
    const size_t at = first.find(key);
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(first.compare(at + std::strlen(key), expected.size() + 1, expected + "\""), 0);
  }
  EXPECT_EQ(first, rt::WriteSceneText(rt::Host::Get().scene()));
  ASSERT_TRUE(rt::OpenSceneFile(path_).Succeeded());
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  EXPECT_EQ(ReadBytes(path_), first);
}

// A broken file is refused with the message its whole text gives (line and column of the file
// as it is), the open scene stays, and the file is not touched; read through a buffer shorter
// than its columns, they stream past.
TEST_F(SceneFileStreaming, BrokenFilesAreRefusedAsAWholeReadWouldAndChangeNothing) {
  KeyBall(20000);
  ASSERT_TRUE(rt::SaveSceneFile(path_).Succeeded());
  const std::string good = ReadBytes(path_);
  const size_t column = good.find("\"values\": \"") + 11;
  const size_t length = good.find('"', column) - column;
  const size_t buffer = 64 * 1024;
  ASSERT_GT(length, 4 * buffer);
  std::string badItem = good;
  badItem.replace(column + length * 3 / 4, 1, "#");
  std::string escaped = good;
  const size_t digit = good.find_first_of("0123456789", column + length * 3 / 4);
  escaped.replace(digit, 1, std::string("\\u003") + good[digit]);  // the same digit
  struct Case {
    const char* what;
    std::string bytes;
  };
  const std::vector<Case> cases = {
      {"cut inside a column", good.substr(0, column + length / 2)},
      {"cut after a column", good.substr(0, good.find('"', column) + 1)},
      {"cut early", good.substr(0, 40)},
      {"a brace lost", good.substr(0, good.size() - 3) + "\n"},
      {"a bad item far in", badItem},
  };
  rt::Host::Get().NewScene();
  auto kept = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Kept");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WriteBytes(c.bytes);
    rt::Scene whole, streamed;
    const std::string expected =
        rt::ReadSceneText(c.bytes, path_, whole).GetMessage().GetAsciiString();
    ASSERT_NE(expected, "");
    EXPECT_EQ(rt::ReadSceneFile(path_, streamed, buffer).GetMessage().GetAsciiString(), expected);
    EXPECT_EQ(rt::OpenSceneFile(path_).GetMessage().GetAsciiString(), expected);
    EXPECT_EQ(expected.rfind(path_ + ": ", 0), 0u);
    EXPECT_TRUE(kept->alive);
    EXPECT_EQ(rt::Host::Get().scene().root->Lookup(L"Ball"), nullptr);
    EXPECT_EQ(ReadBytes(path_), c.bytes);
  }
  // A (valid) escape deep in a streamed column reads as the whole text does.
  WriteBytes(escaped);
  rt::Scene read;
  ASSERT_TRUE(rt::ReadSceneFile(path_, read, buffer).Succeeded());
  EXPECT_NE(read.root->Lookup(L"Ball"), nullptr);
  rt::DestroySceneObjects(read);
}

}  // namespace
