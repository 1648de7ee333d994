// Finding the COG and the feet by name, then by shape (rules in feet_finder.h).
#include "feet_finder.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace knrconvert {
namespace {

const std::set<std::string> kLeftWords = {"left", "l", "lt"};
const std::set<std::string> kRightWords = {"right", "r", "rt"};
const std::set<std::string> kFootWords = {"foot", "ankle"};
const std::set<std::string> kNotFootWords = {"toe", "toes", "toebase", "end", "site",
                                             "nub", "ball", "heel",    "tip"};
const std::set<std::string> kCogWords = {"hips", "hip", "pelvis", "root", "cog"};

bool HasAny(const std::vector<std::string>& words, const std::set<std::string>& wanted) {
  return std::any_of(words.begin(), words.end(),
                     [&](const std::string& w) { return wanted.count(w) > 0; });
}

int Depth(const std::vector<SkeletonJoint>& joints, int index) {
  int depth = 0;
  for (int i = joints[static_cast<size_t>(index)].parent; i >= 0;
       i = joints[static_cast<size_t>(i)].parent)
    ++depth;
  return depth;
}

bool IsBelow(const std::vector<SkeletonJoint>& joints, int index, int ancestor) {
  for (int i = index; i >= 0; i = joints[static_cast<size_t>(i)].parent) {
    if (i == ancestor) return true;
  }
  return false;
}

// The joint of a foot found by name: matching words, nearest the root on ties.
int FootByName(const std::vector<SkeletonJoint>& joints, const std::set<std::string>& side) {
  int best = -1;
  for (int i = 0; i < static_cast<int>(joints.size()); ++i) {
    const auto words = NameWords(joints[static_cast<size_t>(i)].name);
    if (!HasAny(words, side) || !HasAny(words, kFootWords) || HasAny(words, kNotFootWords))
      continue;
    if (best < 0 || Depth(joints, i) < Depth(joints, best)) best = i;
  }
  return best;
}

// The child of `top` on the way down to `index`.
int BranchOf(const std::vector<SkeletonJoint>& joints, int index, int top) {
  int branch = index;
  for (int i = index; i >= 0 && i != top; i = joints[static_cast<size_t>(i)].parent) branch = i;
  return branch;
}

// Walks up from an end joint to the joint where the shin ends (see the header).
int FootOfLeg(const std::vector<SkeletonJoint>& joints, int end, int cog) {
  std::vector<int> chain;  // end first, up to (not including) the COG
  for (int i = end; i >= 0 && i != cog; i = joints[static_cast<size_t>(i)].parent)
    chain.push_back(i);
  double largest = 0;
  auto drop = [&](int i) {
    const SkeletonJoint& joint = joints[static_cast<size_t>(i)];
    return joint.parent < 0 ? 0.0 : joints[static_cast<size_t>(joint.parent)].y - joint.y;
  };
  for (int i : chain) largest = std::max(largest, drop(i));
  for (int i : chain) {
    if (largest > 0 && drop(i) >= 0.5 * largest) return i;
  }
  return end;
}

}  // namespace

std::vector<std::string> NameWords(const std::string& name) {
  std::vector<std::string> words;
  std::string word;
  auto flush = [&] {
    if (!word.empty()) words.push_back(word);
    word.clear();
  };
  for (size_t i = 0; i < name.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    if (!std::isalnum(c)) {
      flush();
      continue;
    }
    const bool upper = std::isupper(c) != 0;
    if (upper && i > 0) {
      const unsigned char before = static_cast<unsigned char>(name[i - 1]);
      const bool nextLower =
          i + 1 < name.size() && std::islower(static_cast<unsigned char>(name[i + 1]));
      // "LeftFoot" splits before F; "LFoot" splits after the L (an upper run ends before the
      // capital that starts a lower-case word).
      if (std::islower(before) || std::isdigit(before) || (std::isupper(before) && nextLower))
        flush();
    }
    word.push_back(static_cast<char>(std::tolower(c)));
  }
  flush();
  return words;
}

FoundFeet FindFeet(const std::vector<SkeletonJoint>& joints) {
  FoundFeet found;
  if (joints.empty()) {
    found.error = "the take has no joints";
    return found;
  }
  // The top joint is the COG (the only joint the COG tag accepts).
  const int cog = 0;
  const auto cogWords = NameWords(joints[0].name);
  found.cog = {cog, HasAny(cogWords, kCogWords) && !HasAny(cogWords, kLeftWords) &&
                            !HasAny(cogWords, kRightWords)
                        ? "name"
                        : "shape"};

  int left = FootByName(joints, kLeftWords);
  int right = FootByName(joints, kRightWords);
  if (left >= 0) found.left = {left, "name"};
  if (right >= 0) found.right = {right, "name"};
  if (left >= 0 && right >= 0 && left != right) return found;

  // By shape: the two lowest ends on different branches of the COG.
  std::vector<int> ends;
  for (int i = 1; i < static_cast<int>(joints.size()); ++i) {
    const bool hasChild = std::any_of(joints.begin(), joints.end(),
                                      [&](const SkeletonJoint& j) { return j.parent == i; });
    if (!hasChild && IsBelow(joints, i, cog)) ends.push_back(i);
  }
  std::sort(ends.begin(), ends.end(), [&](int a, int b) {
    return joints[static_cast<size_t>(a)].y < joints[static_cast<size_t>(b)].y;
  });
  int legA = -1, legB = -1;
  for (int end : ends) {
    if (legA < 0) {
      legA = end;
    } else if (BranchOf(joints, end, cog) != BranchOf(joints, legA, cog)) {
      legB = end;
      break;
    }
  }
  if (legA < 0 || legB < 0) {
    found.error =
        "no feet found: no joint is named like a left and a right foot or ankle, and the "
        "skeleton has no two legs (two lowest end joints on different branches)";
    found.left = found.right = {};
    return found;
  }
  int footA = FootOfLeg(joints, legA, cog), footB = FootOfLeg(joints, legB, cog);
  const SkeletonJoint& top = joints[0];
  auto side = [&](int i) {
    const SkeletonJoint& j = joints[static_cast<size_t>(i)];
    return (j.x - top.x) * top.localX[0] + (j.y - top.y) * top.localX[1] +
           (j.z - top.z) * top.localX[2];
  };
  if (side(footA) < side(footB)) std::swap(footA, footB);
  auto sameLeg = [&](int a, int b) { return BranchOf(joints, a, cog) == BranchOf(joints, b, cog); };
  if (left >= 0 && right < 0) {
    found.right = {sameLeg(left, footA) ? footB : footA, "shape"};
  } else if (right >= 0 && left < 0) {
    found.left = {sameLeg(right, footB) ? footA : footB, "shape"};
  } else {
    found.left = {footA, "shape"};
    found.right = {footB, "shape"};
  }
  return found;
}

}  // namespace knrconvert
