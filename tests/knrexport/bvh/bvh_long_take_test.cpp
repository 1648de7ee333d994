// Long takes are read by two threads, the second from a line in the middle of the MOTION section.
// Whatever the layout of the text, the samples and the messages must be those of one reader:
// checked against the frames of the real file the take repeats (read by the one-thread path),
// for one frame per line (both readers), frames over two lines (the second reader's guess is
// wrong and it is abandoned) and CR LF, from memory and from a file; and broken takes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "knrexport/bvh/bvh_file.h"
#include "knrexport/bvh/bvh_motion.h"
#include "knrexport/bvh/bvh_scanner.h"
#include "tests/knrexport/bvh/bvh_test_text.h"

namespace {

// 01_03.bvh (4511 frames of 31 joints) with its frames repeated: about 6 MB for 8000 frames.
struct LongTake {
  static constexpr int kFrames = 8000;
  std::string head;                 // up to and including the "Frame Time" line
  std::vector<std::string> frames;  // the real file's frame lines, without line ends

  LongTake() {
    const std::string text = Slurp(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh");
    const std::size_t motion = text.find("Frame Time:");
    std::size_t at = text.find('\n', motion) + 1;
    head = text.substr(0, at);
    head.replace(head.find("Frames:"), head.find('\n', head.find("Frames:")) - head.find("Frames:"),
                 "Frames: " + std::to_string(kFrames));
    while (at < text.size()) {
      std::size_t end = text.find('\n', at);
      if (end == std::string::npos) end = text.size();
      std::string line = text.substr(at, end - at);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty()) frames.push_back(line);
      at = end + 1;
    }
  }
  // The take with `lineEnd` after each frame; with `split`, each frame breaks after its 40th
  // value as well.
  std::string Text(const char* lineEnd = "\n", bool split = false) const {
    std::string text = head;
    for (int f = 0; f < kFrames; ++f) {
      const std::string& line = frames[static_cast<std::size_t>(f) % frames.size()];
      if (split) {
        std::size_t cut = 0;
        for (int i = 0; i < 40; ++i) cut = line.find(' ', cut + 1);
        text += line.substr(0, cut) + lineEnd + line.substr(cut + 1) + lineEnd;
      } else {
        text += line + lineEnd;
      }
    }
    return text;
  }
};

const LongTake& Take() {
  static const LongTake take;
  return take;
}

// The 1-based line of byte `offset` of `text`.
int LineOf(const std::string& text, std::size_t offset) {
  return 1 + static_cast<int>(std::count(text.begin(), text.begin() + offset, '\n'));
}

TEST(BvhLongTake, SamplesAreTheRealFramesWhateverTheLayout) {
  const LongTake& take = Take();
  ASSERT_EQ(take.frames.size(), 4511u);
  // The real file, short enough for one reader, gives the expected samples.
  ZyraBvFile realFile;
  MocapData real;
  ASSERT_TRUE(realFile.Open(Wide(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh").c_str(), 1.0f) &&
              realFile.ReadHierarchy() && realFile.ReadMotionData(&real, false))
      << realFile.LastError();

  // One name per process: test runs of several checkouts may share the temporary folder.
  const std::string path =
      ::testing::TempDir() + "knr_long_take_" + std::to_string(::getpid()) + ".bvh";
  const std::string lines = take.Text();
  {
    std::ofstream out(path, std::ios::binary);
    out << lines;
  }
  struct Layout {
    const char* what;
    std::string text;
    bool fromFile;
  };
  const Layout layouts[] = {{"a frame a line", lines, false},
                            {"a frame a line, streamed from a file", lines, true},
                            {"CR LF", take.Text("\r\n"), false},
                            {"a frame over two lines", take.Text("\n", true), false}};
  for (const Layout& layout : layouts) {
    SCOPED_TRACE(layout.what);
    ZyraBvFile file;
    MocapData data;
    if (layout.fromFile) {
      // Moved away once open, and another take of the same length put in its place (every digit
      // 3 made a 4): the second stream must still read the file that was opened.
      ASSERT_TRUE(file.Open(Wide(path).c_str(), 1.0f));
      ASSERT_EQ(std::rename(path.c_str(), (path + ".moved").c_str()), 0);
      {
        std::string other = lines;
        std::replace(other.begin() + static_cast<std::ptrdiff_t>(take.head.size()), other.end(),
                     '3', '4');
        std::ofstream out(path, std::ios::binary);
        out << other;
      }
      ASSERT_TRUE(file.ReadHierarchy() && file.ReadMotionData(&data, false)) << file.LastError();
    } else {
      ASSERT_TRUE(ReadText(file, data, layout.text)) << file.LastError();
    }
    ASSERT_EQ(data.nodeCount, 31);
    for (int i = 0; i < data.nodeCount; ++i) {
      ASSERT_EQ(data.records[i].frameCount, LongTake::kFrames);
      for (int f = 0; f < LongTake::kFrames; ++f) {
        const DrvTransform& expected = real.records[i].samples[f % 4511];
        ASSERT_EQ(0, std::memcmp(&data.records[i].samples[f], &expected, sizeof expected))
            << "joint " << i << " frame " << f;
      }
    }
  }
  std::remove(path.c_str());
  std::remove((path + ".moved").c_str());
}

TEST(BvhLongTake, BrokenTakesAreReportedWhereOneReaderWould) {
  const LongTake& take = Take();
  const std::string lines = take.Text();
  // The offset of value `value` (0-based) of frame `frame` (0-based).
  const auto valueAt = [&](int frame, int value) {
    std::size_t at = take.head.size();
    for (int f = 0; f < frame; ++f) at = lines.find('\n', at) + 1;
    for (int v = 0; v < value; ++v) at = lines.find(' ', at) + 1;
    return at;
  };
  const auto corrupt = [&](std::string text, int frame, int value, const char* with = "x7") {
    const std::size_t at = valueAt(frame, value);
    text.replace(at, text.find(' ', at) - at, with);
    return text;
  };
  // Frame `frame`'s line with its last value dropped, or with one more value.
  const auto shortRow = [&](int frame) {
    std::string text = lines;
    const std::size_t end = text.find('\n', valueAt(frame, 0));
    const std::size_t last = text.rfind(' ', end - 1);
    return text.erase(last, end - last);
  };
  const auto longRow = [&](int frame) {
    std::string text = lines;
    return text.insert(text.find('\n', valueAt(frame, 0)), " 0");
  };
  const std::string perFrame =
      std::to_string(std::count(take.frames[0].begin(), take.frames[0].end(), ' ') + 1);
  // Value 7 of a frame is the second channel (Yrotation) of the second joint, LHipJoint.
  const int late = 7000;
  const int early = 1000;
  struct Case {
    const char* what;
    std::string text;
    std::string message;
    int line;
  };
  std::string truncated = lines.substr(0, valueAt(LongTake::kFrames - 10, 0));
  const Case cases[] = {
      {"a word late in the take (the second reader's half)", corrupt(lines, late, 7),
       "frame 7001, joint \"LHipJoint\", Yrotation: expected a number, found \"x7\"",
       LineOf(lines, valueAt(late, 7))},
      {"a word early and another late: the early one", corrupt(corrupt(lines, late, 7), early, 7),
       "frame 1001, joint \"LHipJoint\", Yrotation: expected a number, found \"x7\"",
       LineOf(lines, valueAt(early, 7))},
      {"a value missing late", shortRow(late),
       "frame 7001: its line holds " + std::to_string(std::stoi(perFrame) - 1) +
           " values, a frame has " + perFrame,
       LineOf(lines, valueAt(late, 0))},
      {"a value too many early", longRow(early),
       "frame 1001: its line holds more than the " + perFrame + " values of a frame",
       LineOf(lines, valueAt(early, 0))},
      {"nan late", corrupt(lines, late, 7, "nan"),
       "frame 7001, joint \"LHipJoint\", Yrotation: not a finite number",
       LineOf(lines, valueAt(late, 7))},
      {"ten frames missing at the end", truncated,
       "frame 7991, joint \"Hips\", Xposition: the file ends where a number should be",
       LineOf(truncated, truncated.size() - 1)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ZyraBvFile file;
    MocapData data;
    EXPECT_FALSE(ReadText(file, data, c.text));
    EXPECT_EQ(file.LastError(), c.message);
    EXPECT_EQ(file.LastErrorLine(), c.line);
  }
}

TEST(BvhLongTake, TheSecondReaderStartsAtTheLineAfterTheMiddle) {
  // Without this the tests above would pass with one reader doing everything.
  const std::string text = Take().Text();
  ZyraBvFile file;
  ASSERT_TRUE(file.OpenMemory(text.data(), text.size(), 1.0f) && file.ReadHierarchy());
  const BvMotionLayout layout = MakeMotionLayout(*file.Hierarchy(), 1.0f);
  // The first reader's cursor just after the frame time, where the section's frames begin.
  BvScanner first;
  first.AttachMemory(text.data(), text.size());
  std::string_view token;
  while (first.ReadToken(&token) && token != "Time:") {
  }
  float frameTime = 0.0f;
  ASSERT_TRUE(first.ReadFloat(&frameTime));
  const std::size_t start = first.Offset();
  std::vector<DrvTransform> samples(31 * static_cast<std::size_t>(LongTake::kFrames));
  std::vector<MocapRecord> records(31);
  for (int i = 0; i < 31; ++i) records[i].samples = samples.data() + i * LongTake::kFrames;

  ASSERT_TRUE(BvSecondReader::WorthIt(text.size() - start, LongTake::kFrames));
  BvSecondReader second;
  ASSERT_TRUE(first.Fork(nullptr, start, &second.Cursor()));
  const std::size_t middle = start + (text.size() - start) / 2;
  second.Start(middle, LongTake::kFrames, layout, records.data());
  // The frame whose line is the first to begin after the middle.
  const int expected = LineOf(text, text.find('\n', middle) + 1) - LineOf(text, start + 1);
  BvFrameReader reader(layout, records.data(), LongTake::kFrames);
  int reached = -1;
  for (int f = 0; f < LongTake::kFrames && reached < 0; ++f) {
    if (second.Reached(f)) {
      reached = f;
      EXPECT_TRUE(second.Aligned(first));
    } else {
      ASSERT_EQ(reader.Read(first, f, f + 1).frame, -1);
    }
  }
  EXPECT_EQ(reached, expected);
  EXPECT_EQ(second.Join().frame, -1);
  for (MocapRecord& record : records) record.samples = nullptr;  // owned by `samples`
}

}  // namespace
