#include "feet_finder.h"

#include <gtest/gtest.h>

namespace knrconvert {
namespace {

// Hips with a spine and two legs (upper leg, foot, optionally a toe) standing at the origin,
// left leg on +x. Names come from `names`: hips, left up, left foot, left toe, right up, right
// foot, right toe.
std::vector<SkeletonJoint> Legs(const std::vector<std::string>& n, bool toes, double footY = 8) {
  std::vector<SkeletonJoint> j;
  auto add = [&](const std::string& name, int parent, double x, double y, double z) {
    SkeletonJoint joint;
    joint.name = name;
    joint.parent = parent;
    joint.x = x;
    joint.y = y;
    joint.z = z;
    j.push_back(joint);
    return static_cast<int>(j.size()) - 1;
  };
  const int hips = add(n[0], -1, 0, 90, 0);
  add("Spine", hips, 0, 100, 0);
  for (int side = 0; side < 2; ++side) {
    const double x = side == 0 ? 10 : -10;
    const int up = add(n[1 + 3 * side], hips, x, 90, 0);
    const int knee = add("Knee" + std::to_string(side), up, x, 50, 0);
    const int foot = add(n[2 + 3 * side], knee, x, footY, 0);
    if (toes) add(n[3 + 3 * side], foot, x, footY - 7, 12);
  }
  return j;
}

TEST(FeetFinder, NamingStylesOfStudios) {
  struct Case {
    std::vector<std::string> names;
    bool toes;
    std::string left, right;
  } cases[] = {
      {{"Hips", "LeftUpLeg", "LeftFoot", "LeftToeBase", "RightUpLeg", "RightFoot", "RightToeBase"},
       true,
       "LeftFoot",
       "RightFoot"},
      {{"Hips", "LeftHip", "LeftAnkle", "LeftToes", "RightHip", "RightAnkle", "RightToes"},
       true,
       "LeftAnkle",
       "RightAnkle"},
      {{"pelvis", "l_thigh", "l_foot", "", "r_thigh", "r_foot", ""}, false, "l_foot", "r_foot"},
      {{"mixamorig:Hips", "mixamorig:LeftUpLeg", "mixamorig:LeftFoot", "mixamorig:LeftToe_End",
        "mixamorig:RightUpLeg", "mixamorig:RightFoot", "mixamorig:RightToe_End"},
       true,
       "mixamorig:LeftFoot",
       "mixamorig:RightFoot"},
      {{"root", "Thigh.L", "Foot.L", "Toe.L", "Thigh.R", "Foot.R", "Toe.R"},
       true,
       "Foot.L",
       "Foot.R"},
      {{"Hips", "LThigh", "LFoot", "LFootToe", "RThigh", "RFoot", "RFootToe"},
       true,
       "LFoot",
       "RFoot"},
  };
  for (const Case& c : cases) {
    const auto joints = Legs(c.names, c.toes);
    const FoundFeet found = FindFeet(joints);
    ASSERT_TRUE(found.error.empty()) << c.left << ": " << found.error;
    EXPECT_EQ(joints[found.left.index].name, c.left);
    EXPECT_EQ(joints[found.right.index].name, c.right);
    EXPECT_EQ(found.left.how, "name") << c.left;
    EXPECT_EQ(found.right.how, "name") << c.left;
    EXPECT_EQ(found.cog.index, 0);
  }
}

TEST(FeetFinder, ShapeWhenNamesSayNothing) {
  // Toes or not, knees straight or bent (a shin dropping three quarters of the thigh's drop), the
  // foot is the joint where the shin ends, and left lies on +x.
  for (const auto& [toes, footY] : {std::pair{true, 8.0}, {false, 8.0}, {true, 20.0}}) {
    const auto joints =
        Legs({"Bone0", "Bone1", "Bone2", "Bone3", "Bone4", "Bone5", "Bone6"}, toes, footY);
    const FoundFeet found = FindFeet(joints);
    ASSERT_TRUE(found.error.empty()) << found.error;
    EXPECT_EQ(joints[found.left.index].name, "Bone2");
    EXPECT_EQ(joints[found.right.index].name, "Bone5");
    EXPECT_EQ(found.left.how, "shape");
    EXPECT_EQ(found.cog.how, "shape");
  }
  // One foot named, the other found as the lowest leg on another branch.
  const auto joints = Legs({"Hips", "a", "LeftFoot", "b", "c", "d", "e"}, true);
  const FoundFeet found = FindFeet(joints);
  EXPECT_EQ(found.left.how, "name");
  EXPECT_EQ(joints[found.right.index].name, "d");
  EXPECT_EQ(found.right.how, "shape");
}

TEST(FeetFinder, NoLegsIsAnError) {
  std::vector<SkeletonJoint> chain(3);
  chain[0].name = "A";
  chain[1] = {"B", 0, 0, 50, 0, {1, 0, 0}};
  chain[2] = {"C", 1, 0, 0, 0, {1, 0, 0}};
  const FoundFeet found = FindFeet(chain);
  EXPECT_FALSE(found.error.empty());
  EXPECT_EQ(found.left.index, -1);
  EXPECT_FALSE(FindFeet({}).error.empty());
}

TEST(FeetFinder, NameWords) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"mixamorig:LeftFoot", {"mixamorig", "left", "foot"}},
      {"LFoot", {"l", "foot"}},
      {"l_foot", {"l", "foot"}},
      {"RightToeBase", {"right", "toe", "base"}},
      {"Foot.R", {"foot", "r"}},
      {"FOOT_L", {"foot", "l"}},
      {"FootL", {"foot", "l"}},
      {"lfoot", {"lfoot"}},
  };
  for (const auto& [name, words] : cases) EXPECT_EQ(NameWords(name), words) << name;
}

}  // namespace
}  // namespace knrconvert
