#include "bvh_take.h"

#include <gtest/gtest.h>

#include <fstream>

namespace knrconvert {
namespace {

std::string Save(const std::string& name, const std::string& text) {
  const std::string path = ::testing::TempDir() + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

const char kHeader[] =
    "HIERARCHY\r\nROOT Hips\r\n{\r\n\tOFFSET 0 0 0\r\n\tCHANNELS 3 Xposition Yposition "
    "Zposition\r\n"
    "\tJOINT Arm\r\n\t{\r\n\t\tOFFSET 0 10 0\r\n\t\tCHANNELS 3 Zrotation Xrotation Yposition\r\n"
    "\t\tEnd Site\r\n\t\t{\r\n\t\t\tOFFSET 0 10 0\r\n\t\t}\r\n\t}\r\n}\r\nMOTION\r\n";

TEST(BvhTake, ReadsWritesAndPoses) {
  BvhTake take;
  std::string error;
  const std::string text =
      std::string(kHeader) +
      "Frames:\t2\r\nFrame Time: .5\r\n1 2 3 90 90 10\r\n\r\n+.5 -.5 0 0 0 .5e1\n";
  ASSERT_TRUE(ParseBvhTake(Save("good.bvh", text), take, error)) << error;
  EXPECT_EQ(take.columns, 6);
  EXPECT_EQ(take.frameTime, 0.5);
  EXPECT_EQ(take.values, (std::vector<float>{1, 2, 3, 90, 90, 10, 0.5, -0.5, 0, 0, 0, 5}));

  // Z then X as listed: the end of the arm (child offset 0 10 0) turns to +z; the arm's
  // position channel replaces its OFFSET's y.
  const std::string copy = ::testing::TempDir() + "copy.bvh";
  ASSERT_TRUE(WriteBvhTake(take, copy, error)) << error;
  BvhTake again;
  ASSERT_TRUE(ParseBvhTake(copy, again, error)) << error;
  EXPECT_EQ(again.values, take.values);
  EXPECT_EQ(again.joints[1].endSite[1], 10);
  BvhJoint tip;
  tip.name = "Tip", tip.parent = 1, tip.offset[1] = 10;
  again.joints.push_back(tip);
  const PoseSeries poses = ComputePoses(again);
  const struct {
    int frame, joint;
    float x, y, z;
  } cases[] = {{0, 0, 1, 2, 3},
               {0, 1, 1, 12, 3},
               {0, 2, 1, 12, 13},
               {1, 1, 0.5f, 4.5f, 0},
               {1, 2, 0.5f, 14.5f, 0}};
  for (const auto& c : cases) {
    const Vec3f& p = poses.At(c.frame, c.joint);
    EXPECT_NEAR(p.x, c.x, 1e-5) << c.frame << " " << c.joint;
    EXPECT_NEAR(p.y, c.y, 1e-5) << c.frame << " " << c.joint;
    EXPECT_NEAR(p.z, c.z, 1e-5) << c.frame << " " << c.joint;
  }
}

TEST(BvhTake, BrokenFilesFailWithFileAndLine) {
  const struct {
    const char* name;
    std::string text;
    const char* where;      // ":<line>:" expected in the message
    const char* what = "";  // and this text after it
  } cases[] = {
      {"truncated row",
       std::string(kHeader) + "Frames: 2\r\nFrame Time: 0.1\r\n10 20 30 40 50 60\r\n10 20 30\r\n",
       ":20:"},
      {"bad number", std::string(kHeader) + "Frames: 1\r\nFrame Time: 0.1\r\n1 2 x3 4 5 6\r\n",
       ":19:"},
      {"nan", std::string(kHeader) + "Frames: 1\r\nFrame Time: 0.1\r\n1 2 nan 4 5 6\r\n", ":19:"},
      {"huge frame count",
       std::string(kHeader) + "Frames: 1000000000\r\nFrame Time: 0.1\r\n" +
           "1 2 3 4 5 6\n1 2 3 4 5 6\n1 2 3 4 5 6\n",
       ":17:"},
      {"too few frames",
       std::string(kHeader) + "Frames: 3\r\nFrame Time: 0.1\r\n" +
           "1000.5 2000.5 3000.5 4000.5 5000.5 6000.5\r\n",
       ":20:"},
      {"missing brace", std::string(kHeader).replace(std::string(kHeader).find("\t}\r\n}"), 4, ""),
       ":15:"},
      {"unknown channel",
       std::string(kHeader).replace(std::string(kHeader).find("Yposition\r\n\t"), 9, "Wposition"),
       ":9:"},
      {"empty", "", ":1:"},
      {"frame count with exponent", std::string(kHeader) + "Frames: 1e9\nFrame Time: 0.1\n",
       ":17:", "bad frame count '1e9'"},
      {"fractional frame count", std::string(kHeader) + "Frames: 3.5\nFrame Time: 0.1\n",
       ":17:", "bad frame count '3.5'"},
      {"empty frame time", std::string(kHeader) + "Frames: 1\nFrame Time:\n0.5 2 3 4 5 6\n",
       ":18:", "no frame time on the line"},
      {"frame time of a day", std::string(kHeader) + "Frames: 1\nFrame Time: 100000\n1 2 3 4 5 6\n",
       ":18:", "Frame Time: 100000 is not a motion-capture frame time"},
      {"milliseconds as seconds",
       std::string(kHeader) + "Frames: 1\nFrame Time: 8.3333\n1 2 3 4 5 6\n",
       ":18:", "Frame Time: 8.3333 is not"},
      {"joint without a name",
       std::string(kHeader).replace(std::string(kHeader).find("JOINT Arm"), 9, "JOINT"),
       ":6:", "a joint without a name"},
  };
  for (const auto& c : cases) {
    BvhTake take;
    std::string error;
    const std::string path = Save("broken.bvh", c.text);
    EXPECT_FALSE(ParseBvhTake(path, take, error)) << c.name;
    EXPECT_EQ(error.rfind(path + c.where + " " + c.what, 0), 0u) << c.name << ": " << error;
    EXPECT_TRUE(take.values.empty()) << c.name;
  }
}

}  // namespace
}  // namespace knrconvert
