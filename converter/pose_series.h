// The global pose of every joint of a take at every frame, computed by the converter from the
// take's own channels (forward kinematics that honours each joint's channel order), so that the
// analysis (travel, stance, loop windows) works on the motion itself, apart from the scene.
//
// Frames are the take's frames, 0 .. frames - 1; joints are in file order (parents first).
// Positions are in the take's own length units, in the take's world (Y up once the take is
// conditioned). Only the top joint's rotation is kept: the other joints' orientations show in
// their children's positions.
#pragma once

#include <string>
#include <vector>

namespace knrconvert {

struct Vec3f {
  float x = 0, y = 0, z = 0;
};

// A unit quaternion, x, y, z, w (w the scalar part); it rotates v as q v q*.
struct Quatf {
  float x = 0, y = 0, z = 0, w = 1;
};

struct PoseSeries {
  double frameTime = 0;  // seconds per frame
  int frames = 0;
  std::vector<std::string> names;  // per joint
  std::vector<int> parents;        // per joint; -1 for the top joint
  std::vector<Vec3f> positions;    // global position of joint j at frame f: [f * joints + j]
  std::vector<Quatf> topRotation;  // global rotation of the top joint, per frame

  int Joints() const { return static_cast<int>(names.size()); }
  const Vec3f& At(int frame, int joint) const {
    return positions[static_cast<size_t>(frame) * names.size() + static_cast<size_t>(joint)];
  }
  // The joint named `name`, or -1.
  int Find(const std::string& name) const {
    for (size_t j = 0; j < names.size(); ++j)
      if (names[j] == name) return static_cast<int>(j);
    return -1;
  }
};

}  // namespace knrconvert
