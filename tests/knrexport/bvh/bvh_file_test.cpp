#include "knrexport/bvh/bvh_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/knrexport/bvh/bvh_test_text.h"

namespace {

// Rotations computed in double, independently of the reader and the Drv math.
struct Qd {
  double x, y, z, w;
};
Qd Mul(const Qd& a, const Qd& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}
Qd About(int axis, double degrees) {
  const double h = degrees * M_PI / 360.0;
  Qd q{0, 0, 0, std::cos(h)};
  (axis == 0 ? q.x : axis == 1 ? q.y : q.z) = std::sin(h);
  return q;
}
// Y first, then X, then Z: the composition BVH rotations get whatever the channel order.
Qd Zxy(double x, double y, double z) { return Mul(About(2, z), Mul(About(0, x), About(1, y))); }
// Applying the result applies b, then a.
void Compose(const DrvTransform& a, const DrvTransform& b, Qd* rotation, double t[3]) {
  const Qd qa{a.rotation.x, a.rotation.y, a.rotation.z, a.rotation.w};
  const Qd qb{b.rotation.x, b.rotation.y, b.rotation.z, b.rotation.w};
  const Qd v{b.translation.x, b.translation.y, b.translation.z, 0};
  const Qd r = Mul(Mul(qa, v), Qd{-qa.x, -qa.y, -qa.z, qa.w});
  t[0] = r.x + a.translation.x;
  t[1] = r.y + a.translation.y;
  t[2] = r.z + a.translation.z;
  *rotation = Mul(qa, qb);
}

// q and -q are the same rotation.
::testing::AssertionResult SameRotation(const DrvQuaternion& q, const Qd& e) {
  const double dot = q.x * e.x + q.y * e.y + q.z * e.z + q.w * e.w;
  if (std::fabs(std::fabs(dot) - 1.0) < 2e-6) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "(" << q.x << ", " << q.y << ", " << q.z << ", " << q.w << ") vs (" << e.x << ", "
         << e.y << ", " << e.z << ", " << e.w << ")";
}

int IndexOf(ZyraBvFile& file, const char* name) {
  const ZyraBvHierarchy* h = file.Hierarchy();
  for (int i = 0; i < h->nodeCount; ++i) {
    if (std::strcmp(h->nodes[i].name, name) == 0) return i;
  }
  return -1;
}

// A root with `joints` chained 3-channel joints and one frame of zeros.
std::string Chain(int joints, int channels = 3) {
  std::string names;
  for (int c = 0; c < channels; ++c) names += " Xrotation";
  std::string text = "HIERARCHY\nROOT J0\n{\nOFFSET 0 0 0\nCHANNELS 0\n";
  for (int j = 1; j < joints; ++j) {
    text += "JOINT J" + std::to_string(j) + "\n{\nOFFSET 0 1 0\nCHANNELS " +
            std::to_string(channels) + names + "\n";
  }
  for (int j = 0; j < joints; ++j) text += "}\n";
  text += "MOTION\nFrames: 1\nFrame Time: 0.1\n";
  for (int j = 1; j < joints; ++j) text += "0 0 0 ";
  return text + "\n";
}

const std::string kSmall =
    "HIERARCHY\nROOT Hips\n{\n  OFFSET 0 0 0\n  CHANNELS 3 Xposition Yposition Zposition\n"
    "  JOINT Arm\n  {\n    OFFSET 1 0 0\n    CHANNELS 1 Zrotation\n"
    "    End Site\n    {\n      OFFSET 0 2 0\n    }\n  }\n}\n"
    "MOTION\nFrames: 2\nFrame Time: 0.5\n1 2 3 90\n4 5 6 -90\n";

struct RealFile {
  const char* name;
  int joints, endSites, frames;
  float frameTime;
  int rootOrder[6], jointOrder[3];
};

TEST(BvhFile, ReadsTheRealFilesValueForValue) {
  const RealFile files[] = {
      {"01_01.bvh", 31, 7, 2752, 0.0083333f, {3, 4, 5, 2, 1, 0}, {2, 1, 0}},
      {"01_03.bvh", 31, 7, 4511, 0.0083333f, {3, 4, 5, 2, 1, 0}, {2, 1, 0}},
      {"Boxing_Toes.bvh", 21, 5, 3069, 0.01f, {3, 4, 5, 2, 0, 1}, {2, 0, 1}},
  };
  for (const RealFile& real : files) {
    SCOPED_TRACE(real.name);
    const std::string path = std::string(KNR_SHARED_DATA_DIR "/bvh/") + real.name;
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(file.Open(Wide(path).c_str(), 0.5f)) << file.LastError();
    ASSERT_TRUE(file.ReadHierarchy()) << file.LastError();
    ASSERT_TRUE(file.ReadMotionData(&data, false)) << file.LastError();
    const ZyraBvHierarchy* h = file.Hierarchy();
    ASSERT_EQ(h->nodeCount, real.joints);
    ASSERT_EQ(data.nodeCount, real.joints);
    EXPECT_FLOAT_EQ(data.frameTime, real.frameTime);
    int leaves = 0;
    for (int i = 0; i < h->nodeCount; ++i) {
      const ZyraBvNode& node = h->nodes[i];
      EXPECT_LT(node.parent, i);
      EXPECT_STREQ(node.name, data.records[i].name);
      EXPECT_EQ(data.records[i].frameCount, real.frames);
      leaves += node.childCount == 0;
      const int* order = i == 0 ? real.rootOrder : real.jointOrder;
      ASSERT_EQ(node.channelCount, i == 0 ? 6 : 3);
      for (int c = 0; c < node.channelCount; ++c) EXPECT_EQ(node.channels[c], order[c]);
    }
    EXPECT_EQ(leaves, real.endSites);

    // The first and last frames against values parsed again from the file's text in double.
    const std::string whole = Slurp(path);
    std::istringstream text(whole.substr(whole.find("MOTION")));
    std::string word;
    int frames = 0;
    text >> word >> word >> frames >> word >> word >> word;
    ASSERT_EQ(frames, real.frames);
    const int perFrame = 6 + 3 * (real.joints - 1);
    std::vector<double> first(perFrame), last(perFrame);
    for (int f = 0; f < frames; ++f) {
      for (double& v : last) ASSERT_TRUE(text >> v) << "frame " << f;
      if (f == 0) first = last;
    }
    for (int f : {0, frames - 1}) {
      const std::vector<double>& values = f == 0 ? first : last;
      int at = 0;
      for (int i = 0; i < h->nodeCount; ++i) {
        const ZyraBvNode& node = h->nodes[i];
        double angle[3] = {0, 0, 0};
        double pos[3] = {node.offset.x, node.offset.y, node.offset.z};
        for (int c = 0; c < node.channelCount; ++c, ++at) {
          const int code = node.channels[c];
          (code < 3 ? angle[code] : pos[code - 3]) = code < 3 ? values[at] : values[at] * 0.5;
        }
        const DrvTransform& s = data.records[i].samples[f];
        EXPECT_NEAR(s.translation.x, pos[0], 1e-4) << node.name << " frame " << f;
        EXPECT_NEAR(s.translation.y, pos[1], 1e-4) << node.name << " frame " << f;
        EXPECT_NEAR(s.translation.z, pos[2], 1e-4) << node.name << " frame " << f;
        EXPECT_TRUE(SameRotation(s.rotation, Zxy(angle[0], angle[1], angle[2])))
            << node.name << " frame " << f;
      }
    }

    // The streamed file and the same bytes in memory give identical samples: the block
    // boundaries of the stream (the files span several blocks) lose or shift nothing.
    ZyraBvFile memory;
    MocapData again;
    ASSERT_TRUE(ReadText(memory, again, whole, 0.5f)) << memory.LastError();
    for (int i = 0; i < h->nodeCount; ++i) {
      ASSERT_EQ(0, std::memcmp(data.records[i].samples, again.records[i].samples,
                               sizeof(DrvTransform) * static_cast<std::size_t>(real.frames)))
          << h->nodes[i].name;
    }
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(file.Hierarchy(), nullptr);
  }
}

TEST(BvhFile, ChannelsOffsetsScaleAndFrames) {
  const std::string path = KNR_TEST_DATA_DIR "/bvh/zxy_order.bvh";
  {  // Channel order does not change the composition; lengths are scaled, angles are not.
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(file.Open(Wide(path).c_str(), 0.5f));
    ASSERT_TRUE(file.ReadHierarchy() && file.ReadMotionData(&data, false)) << file.LastError();
    const int zxy = IndexOf(file, "ListedZXY"), xyz = IndexOf(file, "ListedXYZ"),
              moved = IndexOf(file, "Moved");
    const ZyraBvHierarchy* h = file.Hierarchy();
    EXPECT_EQ(h->nodes[0].channelCount, 0);
    EXPECT_EQ(h->nodes[0].childCount, 3);
    EXPECT_FLOAT_EQ(h->nodes[zxy].offset.y, 2.0f);
    EXPECT_FLOAT_EQ(h->nodes[zxy].endsite.y, 0.5f);
    const double angles[3][3] = {{20, 30, 10}, {0, 0, -90}, {0, 0, 0}};
    for (int f = 0; f < 3; ++f) {
      const DrvTransform& a = data.records[zxy].samples[f];
      const DrvTransform& b = data.records[xyz].samples[f];
      EXPECT_EQ(0, std::memcmp(&a.rotation, &b.rotation, sizeof a.rotation)) << "frame " << f;
      EXPECT_TRUE(SameRotation(a.rotation, Zxy(angles[f][0], angles[f][1], angles[f][2])));
      EXPECT_FLOAT_EQ(a.translation.x, 1.0f);  // no position channels: the scaled offset
      EXPECT_FLOAT_EQ(a.translation.y, 2.0f);
      EXPECT_FLOAT_EQ(a.translation.z, 3.0f);
      EXPECT_FLOAT_EQ(data.records[0].samples[f].translation.z, 1.5f);
    }
    // Yposition 10 -> 5, Xposition -4 -> -2, z keeps the scaled offset.
    const DrvTransform& m = data.records[moved].samples[0];
    EXPECT_FLOAT_EQ(m.translation.x, -2.0f);
    EXPECT_FLOAT_EQ(m.translation.y, 5.0f);
    EXPECT_FLOAT_EQ(m.translation.z, 3.0f);
    EXPECT_TRUE(SameRotation(data.records[moved].samples[1].rotation, Zxy(0, 45, 0)));
    EXPECT_TRUE(SameRotation(data.records[moved].samples[2].rotation, Zxy(180, 0, 0)));
  }
  {  // First frame only: one frame whatever "Frames:" says, the rest of the file unread.
    std::string text = kSmall;
    text.replace(text.find("Frames: 2"), 9, "Frames: 9");
    text += "garbage that is never read\n";
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(ReadText(file, data, text, 1.0f, true)) << file.LastError();
    for (int i = 0; i < data.nodeCount; ++i) EXPECT_EQ(data.records[i].frameCount, 1);
    EXPECT_FLOAT_EQ(data.records[0].samples[0].translation.z, 3.0f);
  }
  {  // "Frames: 0" reads no samples and succeeds.
    std::string text = kSmall.substr(0, kSmall.find("Frames:")) + "Frames: 0\nFrame Time: 1\n";
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(ReadText(file, data, text)) << file.LastError();
    EXPECT_EQ(data.records[1].frameCount, 0);
    EXPECT_EQ(data.records[1].samples, nullptr);
  }
  {  // Reading motion again replaces what the data held.
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(ReadText(file, data, kSmall));
    ZyraBvFile other;
    ASSERT_TRUE(ReadText(other, data, kSmall, 2.0f, true));
    EXPECT_EQ(data.records[0].frameCount, 1);
    EXPECT_FLOAT_EQ(data.records[0].samples[0].translation.y, 4.0f);
  }
}

TEST(BvhFile, NumbersReadAsFormattedInputReadsThem) {
  // Each spelling against sscanf("%f"), the formatted input the reader stands in for; the text
  // uses tabs, CR LF line ends, trailing blanks and numbers that touch ("1-2-3").
  const char* spellings[] = {"+5", "-.5", ".0083333", "5.", "9.27476E-16", "1e30", "-3.4e38", "1e-50",
                             "1e-40", "-0", "3.4028234e38", "-1E+38", "0x1p3", "-0x.8p1", "007", "1.5e+3",
                             "+0.25", "3e0", "1", "-2", "-3", "2.5e-3", "1E5", "0.1",
                             // Around the 24-bit mantissa and ten-digit fraction limits.
                             "16777216", "16777217", "0.16777217", "123456789", "3.14159265358979",
                             "0.0000001", "-0.0000", "0.33333333", "8.8888888"};
  std::string text =
      "HIERARCHY\r\nROOT P\r\n{\r\n\tOFFSET 0 0 0 \r\n\tCHANNELS 3 Xposition Yposition "
      "Zposition\t\r\n}\r\nMOTION\r\nFrames:\t11\r\nFrame Time: \t0.1 \r\n";
  std::string values;
  for (std::size_t i = 0; i < std::size(spellings); i += 3) {
    if (i == 18) {
      text += "1-2-3 \r\n";  // three values without a blank between them
    } else {
      text +=
          std::string(spellings[i]) + "\t" + spellings[i + 1] + "  " + spellings[i + 2] + " \r\n";
    }
  }
  ZyraBvFile file;
  MocapData data;
  ASSERT_TRUE(ReadText(file, data, text)) << file.LastError() << " line " << file.LastErrorLine();
  for (std::size_t i = 0; i < std::size(spellings); ++i) {
    float expected = 0.0f;
    ASSERT_EQ(std::sscanf(spellings[i], "%f", &expected), 1);
    const DrvVector& t = data.records[0].samples[i / 3].translation;
    const float got = i % 3 == 0 ? t.x : i % 3 == 1 ? t.y : t.z;
    EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0)
        << spellings[i] << ": " << got << " vs " << expected;
  }
  {  // Thousands of decimals as motion files write them (up to ten digits, either side of the
     // point, or none), each bit for bit as sscanf reads it; separated by every kind of blank,
     // now and then by more blanks than a number is long, and now and then touching. The values
     // run on from the Frame Time line, so no layout of a frame a line is assumed.
    std::mt19937 random(7);
    std::vector<std::string> numbers;
    std::string many =
        "HIERARCHY ROOT P { CHANNELS 3 Xposition Yposition Zposition } MOTION Frames: 3000 "
        "Frame Time: 1 ";
    const char* blanks[] = {
        " ", " ", " ", "\n", "\t", "\r\n", "  ", "\v\f ", "                     "};
    for (int i = 0; i < 9000; ++i) {
      std::string n = random() % 2 ? "-" : "";
      for (unsigned d = random() % 5; d > 0; --d) n += static_cast<char>('0' + random() % 10);
      if (random() % 8 != 0) n += ".";
      for (unsigned d = random() % 7; d > 0; --d) n += static_cast<char>('0' + random() % 10);
      if (n.empty() || n == "-" || n == "." || n == "-.") n += "5";
      numbers.push_back(n);
      const bool touching = random() % 50 == 0 && i + 1 < 9000;  // the next one starts with '-'
      many += n + (touching ? "" : blanks[random() % std::size(blanks)]);
      if (touching) {
        numbers.push_back("-" + std::to_string(random() % 100) + ".25");
        many += numbers.back() + " ";
        ++i;
      }
    }
    ZyraBvFile manyFile;
    MocapData manyData;
    ASSERT_TRUE(ReadText(manyFile, manyData, many)) << manyFile.LastError();
    for (int i = 0; i < 9000; ++i) {
      float expected = 0.0f;
      ASSERT_EQ(std::sscanf(numbers[i].c_str(), "%f", &expected), 1);
      const DrvVector& t = manyData.records[0].samples[i / 3].translation;
      const float got = i % 3 == 0 ? t.x : i % 3 == 1 ? t.y : t.z;
      ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << numbers[i];
    }
  }
}

struct Broken {
  const char* what;
  std::string text;
  const char* message;  // a part of LastError()
  int line;
};

// kSmall with other frames: `rows` after "Frames: n" and the frame time (line 19 on).
std::string SmallWith(int frames, const std::string& rows) {
  return kSmall.substr(0, kSmall.find("Frames:")) + "Frames: " + std::to_string(frames) +
         "\nFrame Time: 0.5\n" + rows;
}

TEST(BvhFile, RefusesMalformedFilesAndSaysWhereAndWhy) {
  const std::string motion = "MOTION\nFrames: 1\nFrame Time: 0.1\n";
  std::string junk = "HIERARCHY\nROOT A\n{\n";
  for (int i = 0; i < 256; ++i) junk += static_cast<char>((i * 37) & 0xff);
  const Broken cases[] = {
      {"empty file", "", "ends where \"HIERARCHY\"", 1},
      {"lower-case keyword", "HIERARCHY\nROOT A\n{\n  offset 0 0 0\n}\n" + motion,
       "unknown keyword \"offset\"", 4},
      {"unknown channel",
       "HIERARCHY\nROOT A\n{\nOFFSET 0 0 0\nCHANNELS 2 Xrotation Wrotation\n}\n" + motion,
       "unknown channel \"Wrotation\"", 5},
      {"seven channels", Chain(2, 7), "7 channels", 9},
      {"negative channels", Chain(2, -1), "-1 channels", 9},
      {"201 joints", Chain(201), "more than 200 joints", 802},
      {"600-character name", "HIERARCHY\nROOT " + std::string(600, 'n') + "\n{\n}\n", "at most 511",
       2},
      {"missing brace", "HIERARCHY\nROOT A\nOFFSET 0 0 0\n", "expected \"{\"", 3},
      {"missing MOTION", "HIERARCHY\nROOT A\n{\n}\nFrames: 1\n", "expected \"MOTION\"", 5},
      {"OFFSET short of numbers", "HIERARCHY\nROOT A\n{\nOFFSET 0 0\n}\n", "three OFFSET", 5},
      {"bad End Site", "HIERARCHY\nROOT A\n{\nEnd Site\n{\nOFFSET 1 2\n}\n}\n", "End Site", 7},
      {"negative frames", kSmall.substr(0, kSmall.find("Frames:")) + "Frames: -3\nFrame Time: 1",
       "negative frame count", 17},
      {"huge frame count",
       kSmall.substr(0, kSmall.find("Frames:")) + "Frames: 2000000000\n" +
           "Frame Time: 0.1\n1 2 3 4\n",
       "holds at most 1 frames of 4 values", 17},
      {"one value short", kSmall.substr(0, kSmall.find("4 5 6")) + "4 5 6\n",
       "frame 2, joint \"Arm\", Zrotation: the file ends", 20},
      {"word among values", kSmall.substr(0, kSmall.find("4 5 6")) + "4 five 6 7\n",
       "found \"five\"", 20},
      {"doubled sign", kSmall.substr(0, kSmall.find("4 5 6")) + "4 +-5 6 7\n", "found \"+-5\"", 20},
      {"truncated block", kSmall.substr(0, kSmall.find("End Site")), "ends where \"}\"", 9},
      {"binary junk", junk, "joint \"A\"", 4},
      // One frame a line: a row short of values or with one too many is refused at that row.
      {"first row a value short", SmallWith(3, "1 2 3\n4 5 6 -90\n7 8 9 0\n"),
       "frame 1: its line holds 3 values, a frame has 4", 19},
      {"later row a value short", SmallWith(3, "1 2 3 90\n4 5 6\n7 8 9 0\n"),
       "frame 2: its line holds 3 values, a frame has 4", 20},
      {"first row a value too many", SmallWith(2, "1 2 3 90 5\n4 5 6 -90\n"),
       "frame 1: its line holds more than the 4 values of a frame", 19},
      {"last row a value too many", SmallWith(2, "1 2 3 90\n4 5 6 -90 7\n"),
       "frame 2: its line holds more than the 4 values of a frame", 20},
      {"nan", SmallWith(2, "1 2 3 90\n4 nan 6 -90\n"),
       "frame 2, joint \"Hips\", Yposition: not a finite number", 20},
      {"out of the float range", SmallWith(2, "1 2 3 90\n4 5 6 -1e400\n"),
       "frame 2, joint \"Arm\", Zrotation: not a finite number", 20},
      {"infinite offset", "HIERARCHY\nROOT A\n{\nOFFSET 0 -inf 0\n}\n" + motion,
       "joint \"A\": not a finite number", 4},
      {"infinite frame time", SmallWith(1, "").replace(SmallWith(1, "").find("0.5"), 3, "inf"),
       "MOTION: not a finite number", 18},
  };
  for (const Broken& c : cases) {
    SCOPED_TRACE(c.what);
    ZyraBvFile file;
    MocapData data;
    EXPECT_FALSE(ReadText(file, data, c.text));
    EXPECT_NE(std::string(file.LastError()).find(c.message), std::string::npos) << file.LastError();
    EXPECT_EQ(file.LastErrorLine(), c.line) << file.LastError();
    EXPECT_TRUE(file.Close());
  }
  {  // A bad value deep in a streamed file: the line is counted across the blocks read.
    std::string text = Slurp(KNR_SHARED_DATA_DIR "/bvh/01_03.bvh");
    std::size_t at = 0;
    int line = 1;
    while (line < 4000) at = text.find('\n', at) + 1, ++line;
    text.replace(text.find(' ', at), 1, " x");
    const std::string path = ::testing::TempDir() + "bvh_bad_line.bvh";
    std::ofstream(path, std::ios::binary) << text;
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(file.Open(Wide(path).c_str(), 1.0f));
    ASSERT_TRUE(file.ReadHierarchy());
    EXPECT_FALSE(file.ReadMotionData(&data, false));
    EXPECT_EQ(file.LastErrorLine(), 4000) << file.LastError();
    EXPECT_NE(std::string(file.LastError()).find("found \"x"), std::string::npos);
    std::remove(path.c_str());
  }
}

TEST(BvhFile, OpenCloseAndReadInTheirOrderOnly) {
  ZyraBvFile file;
  MocapData data;
  EXPECT_FALSE(file.Close());
  EXPECT_FALSE(file.ReadHierarchy());
  EXPECT_FALSE(file.Open(L"/nonexistent/dir/motion.bvh", 1.0f));
  EXPECT_NE(std::string(file.LastError()).find("/nonexistent/dir/motion.bvh"), std::string::npos);
  EXPECT_FALSE(file.Open(Wide(KNR_TEST_DATA_DIR).c_str(), 1.0f));  // a directory
  ASSERT_TRUE(file.OpenMemory(kSmall.data(), kSmall.size(), 1.0f));
  EXPECT_FALSE(file.OpenMemory(kSmall.data(), kSmall.size(), 1.0f));
  EXPECT_FALSE(file.ReadMotionData(&data, false));  // no hierarchy yet
  ASSERT_TRUE(file.ReadHierarchy());
  EXPECT_FALSE(file.ReadHierarchy());
  ASSERT_TRUE(file.ReadMotionData(&data, false));
  EXPECT_STREQ(file.LastError(), "");
  EXPECT_TRUE(file.Close());
  EXPECT_TRUE(file.OpenMemory(kSmall.data(), kSmall.size(), 1.0f));  // reusable after Close
  EXPECT_EQ(data.records[1].frameCount, 2);  // the data outlives the reader's state
  FreeMocapData(data);
  EXPECT_EQ(data.records, nullptr);
  EXPECT_EQ(data.nodeCount, 0);
  {  // Only a regular file is read; a FIFO is refused at once rather than waited on.
    const std::string fifo = ::testing::TempDir() + "bvh_fifo.bvh";
    std::remove(fifo.c_str());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {fifo, std::string("/dev/null")}) {
      ZyraBvFile other;
      EXPECT_FALSE(other.Open(Wide(path).c_str(), 1.0f));
      EXPECT_NE(std::string(other.LastError()).find("is not a regular file"), std::string::npos)
          << path;
    }
    std::remove(fifo.c_str());
  }
  {  // A UTF-8 byte-order mark before the first keyword is skipped, with or without a blank.
    for (const char* mark : {"\xEF\xBB\xBF", "\xEF\xBB\xBF\n"}) {
      ZyraBvFile other;
      MocapData read;
      EXPECT_TRUE(ReadText(other, read, mark + kSmall)) << other.LastError();
      EXPECT_EQ(read.nodeCount, 2);
    }
  }
}

TEST(BvhFile, FrameTimesCloseToAWholeRateAreThatRate) {
  const struct {
    float frameTime;
    double rate;
  } cases[] = {
      {0.0083333f, 120.0}, {0.0333333f, 30.0}, {0.0416667f, 24.0}, {0.01f, 100.0},
      {0.00833f, 1.0 / static_cast<double>(0.00833f)},  // 0.04% off 120: kept as it is
      {0.011f, 1.0 / static_cast<double>(0.011f)},
      {0.0f, 0.0}, {-0.5f, 0.0}, {INFINITY, 0.0},
  };
  for (const auto& c : cases) EXPECT_EQ(ExactFrameRate(c.frameTime), c.rate) << c.frameTime;
}

TEST(BvhFile, RemoveNodesFoldsMotionIntoChildren) {
  const std::string text = Slurp(KNR_TEST_DATA_DIR "/bvh/prune_chain.bvh");
  ZyraBvFile file;
  MocapData data;
  ASSERT_TRUE(ReadText(file, data, text)) << file.LastError();
  // Expected: LeftHand = LeftNub x LeftNubTip x LeftHand at every frame, under Spine.
  std::vector<DrvTransform> nub, tip, hand;
  for (int f = 0; f < 2; ++f) {
    nub.push_back(data.records[IndexOf(file, "LeftNub")].samples[f]);
    tip.push_back(data.records[IndexOf(file, "LeftNubTip")].samples[f]);
    hand.push_back(data.records[IndexOf(file, "LeftHand")].samples[f]);
  }
  const DrvTransform head = data.records[IndexOf(file, "Head")].samples[1];
  ASSERT_TRUE(file.RemoveNodes("Nub", &data));
  const ZyraBvHierarchy* h = file.Hierarchy();
  ASSERT_EQ(h->nodeCount, 5);
  ASSERT_EQ(data.nodeCount, 5);
  const char* names[] = {"Hips", "Spine", "Neck", "Head", "LeftHand"};
  const int parents[] = {-1, 0, 1, 2, 1};
  for (int i = 0; i < 5; ++i) {
    EXPECT_STREQ(h->nodes[i].name, names[i]);
    EXPECT_STREQ(data.records[i].name, names[i]);
    EXPECT_EQ(h->nodes[i].parent, parents[i]) << names[i];
  }
  EXPECT_EQ(h->nodes[1].childCount, 2);         // as read: the adopted hand is not counted
  EXPECT_FLOAT_EQ(h->nodes[4].offset.x, 3.0f);  // offsets unchanged
  EXPECT_FLOAT_EQ(h->nodes[4].endsite.x, 2.0f);
  EXPECT_EQ(0, std::memcmp(&data.records[3].samples[1], &head, sizeof head));
  for (int f = 0; f < 2; ++f) {
    Qd r1, r2;
    double t1[3], t2[3];
    Compose(tip[f], hand[f], &r1, t1);
    DrvTransform inner = hand[f];
    inner.translation = DrvVector{float(t1[0]), float(t1[1]), float(t1[2])};
    inner.rotation = DrvQuaternion{float(r1.x), float(r1.y), float(r1.z), float(r1.w)};
    Compose(nub[f], inner, &r2, t2);
    const DrvTransform& got = data.records[4].samples[f];
    EXPECT_TRUE(SameRotation(got.rotation, r2)) << "frame " << f;
    EXPECT_NEAR(got.translation.x, t2[0], 1e-4) << "frame " << f;
    EXPECT_NEAR(got.translation.y, t2[1], 1e-4) << "frame " << f;
    EXPECT_NEAR(got.translation.z, t2[2], 1e-4) << "frame " << f;
  }
  ASSERT_TRUE(file.RemoveNodes("NoSuchTag", &data));
  EXPECT_EQ(file.Hierarchy()->nodeCount, 5);
  MocapData mismatched;
  EXPECT_FALSE(file.RemoveNodes("Nub", &mismatched));
}

TEST(BvhFile, RemoveTreeWithAndWithoutItsRoot) {
  const std::string text = Slurp(KNR_TEST_DATA_DIR "/bvh/prune_chain.bvh");
  for (bool keepRoot : {true, false}) {
    SCOPED_TRACE(keepRoot ? "keep root" : "drop root");
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(ReadText(file, data, text)) << file.LastError();
    const DrvTransform hand = data.records[IndexOf(file, "LeftHand")].samples[1];
    ASSERT_TRUE(file.RemoveTree("Neck", &data, keepRoot));
    const ZyraBvHierarchy* h = file.Hierarchy();
    const std::vector<std::string> names =
        keepRoot
            ? std::vector<std::string>{"Hips", "Spine", "Neck", "LeftNub", "LeftNubTip", "LeftHand"}
            : std::vector<std::string>{"Hips", "Spine", "LeftNub", "LeftNubTip", "LeftHand"};
    ASSERT_EQ(h->nodeCount, static_cast<int>(names.size()));
    ASSERT_EQ(data.nodeCount, h->nodeCount);
    for (int i = 0; i < h->nodeCount; ++i) {
      EXPECT_EQ(names[i], h->nodes[i].name);
      EXPECT_EQ(names[i], data.records[i].name);
      EXPECT_EQ(data.records[i].frameCount, 2);
      EXPECT_EQ(h->nodes[i].childCount, 0);  // not carried over
    }
    const int last = h->nodeCount - 1;
    EXPECT_EQ(h->nodes[last].parent, last - 1);
    EXPECT_EQ(h->nodes[last - 2].parent, 1);  // LeftNub under Spine
    EXPECT_EQ(0, std::memcmp(&data.records[last].samples[1], &hand, sizeof hand));
    ASSERT_TRUE(file.RemoveTree("NoSuchJoint", &data, false));  // nothing to remove
    EXPECT_EQ(file.Hierarchy()->nodeCount, static_cast<int>(names.size()));
  }
}

TEST(BvhFile, EndsitesAreTheMeanOfTheChildren) {
  {  // Two children at (0, 10, 0) and (0, 20, 0) in frame 0 put the end site at their mean.
    const std::string text =
        "HIERARCHY\nROOT R\n{\nOFFSET 0 0 0\nCHANNELS 0\n"
        "JOINT A\n{\nOFFSET 0 10 0\nCHANNELS 0\nEnd Site\n{\nOFFSET 0 0 30\n}\n}\n"
        "JOINT B\n{\nOFFSET 0 20 0\nCHANNELS 0\nEnd Site\n{\nOFFSET 0 0 -4\n}\n}\n"
        "End Site\n{\nOFFSET 9 9 9\n}\n}\nMOTION\nFrames: 1\nFrame Time: 0.1\n\n";
    ZyraBvFile file;
    MocapData data;
    ASSERT_TRUE(ReadText(file, data, text)) << file.LastError();
    float longest = 1.0f;
    UpdateEndsite(file.Hierarchy(), data, &longest);
    const ZyraBvHierarchy* h = file.Hierarchy();
    EXPECT_FLOAT_EQ(h->nodes[0].endsite.x, 0.0f);
    EXPECT_FLOAT_EQ(h->nodes[0].endsite.y, 15.0f);
    EXPECT_FLOAT_EQ(h->nodes[0].endsite.z, 0.0f);
    EXPECT_FLOAT_EQ(h->nodes[1].endsite.z, 30.0f);  // leaves keep the file's end site
    EXPECT_FLOAT_EQ(longest, 30.0f);
    UpdateEndsite(file.Hierarchy(), data, nullptr);
    float big = 100.0f;
    UpdateEndsite(file.Hierarchy(), data, &big);  // only ever raised
    EXPECT_FLOAT_EQ(big, 100.0f);
  }
  {  // Without frames there are no first-frame positions: every end site stays as read.
    ZyraBvFile file;
    MocapData data;
    const std::string text = kSmall.substr(0, kSmall.find("Frames:")) + "Frames: 0 Frame Time: 1";
    ASSERT_TRUE(ReadText(file, data, text)) << file.LastError();
    file.Hierarchy()->nodes[0].endsite = DrvVector{1, 2, 3};
    UpdateEndsite(file.Hierarchy(), data, nullptr);
    EXPECT_FLOAT_EQ(file.Hierarchy()->nodes[0].endsite.z, 3.0f);
  }
}

}  // namespace
