// Jumping end frames of a take (rules in take_trim.h).
#include "take_trim.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "stance.h"

namespace knrconvert {
namespace {

double SquaredDistance(const Vec3f& a, const Vec3f& b) {
  const double x = a.x - b.x, y = a.y - b.y, z = a.z - b.z;
  return x * x + y * y + z * z;
}

// The largest move of any joint between frames a and b (the root of the largest square: the
// same double as the largest root, a correctly rounded root being monotonic).
double Step(const PoseSeries& poses, int a, int b) {
  double most = 0;
  for (int j = 0; j < poses.Joints(); ++j)
    most = std::max(most, SquaredDistance(poses.At(a, j), poses.At(b, j)));
  return std::sqrt(most);
}

double Reach(const PoseSeries& poses, int frame) {
  double most = 0;
  for (int j = 0; j < poses.Joints(); ++j)
    most = std::max(most, SquaredDistance(poses.At(frame, j), poses.At(frame, 0)));
  return std::sqrt(most);
}

// The largest joint move per frame that the take reaches at its kJumpPercentile.
double UsualLargeStep(const PoseSeries& poses) {
  if (poses.frames < 2) return 0;
  std::vector<double> steps(static_cast<size_t>(poses.frames - 1));
  ForFrameRanges(poses.frames - 1, static_cast<size_t>(poses.Joints()), [&](int begin, int end) {
    for (int f = begin; f < end; ++f) steps[f] = Step(poses, f, f + 1);
  });
  return Percentile(std::move(steps), kJumpPercentile);
}

// Whether the end frame `end` jumps from its neighbour `end + inward`.
bool Jumps(const PoseSeries& poses, int end, int inward, double usual) {
  const double jump = Step(poses, end, end + inward);
  return jump > kJumpFactor * usual && jump > kJumpFloorShare * Reach(poses, end);
}

void DropFrame(BvhTake& take, PoseSeries& poses, int frame) {
  const auto columns = static_cast<std::ptrdiff_t>(take.columns);
  const auto joints = static_cast<std::ptrdiff_t>(poses.Joints());
  take.values.erase(take.values.begin() + frame * columns,
                    take.values.begin() + (frame + 1) * columns);
  poses.positions.erase(poses.positions.begin() + frame * joints,
                        poses.positions.begin() + (frame + 1) * joints);
  poses.topRotation.erase(poses.topRotation.begin() + frame);
  --take.frames;
  --poses.frames;
}

}  // namespace

int DropJumpingEndFrames(BvhTake& take, PoseSeries& poses, std::vector<std::string>& notes) {
  const double usual = UsualLargeStep(poses);
  const int most = std::max(1, static_cast<int>(kMaxDroppedSeconds / poses.frameTime));
  int first = 0, last = 0;
  while (first < most && poses.frames > 2 && Jumps(poses, 0, +1, usual)) {
    DropFrame(take, poses, 0);
    ++first;
  }
  while (last < most && poses.frames > 2 && Jumps(poses, poses.frames - 1, -1, usual)) {
    DropFrame(take, poses, poses.frames - 1);
    ++last;
  }
  auto say = [&notes](int count, const char* where) {
    if (count == 0) return;
    notes.push_back(count == 1 ? std::string("the ") + where +
                                     " frame dropped: its pose jumps to the next (a calibration "
                                     "pose)"
                               : std::string("the ") + std::to_string(count) + " " + where +
                                     " frames dropped: their poses jump faster than a body "
                                     "moves (a calibration pose blended in)");
  };
  say(first, "first");
  say(last, "last");
  return first + last;
}

}  // namespace knrconvert
