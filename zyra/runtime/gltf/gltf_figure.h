// The glTF export's figure (rules in gltf_export.h): 4x4 matrices composed as glTF viewers compose
// node transforms, and a mesh of thin boxes, one along each bone, each weighted wholly to one
// joint.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "zyra/math.h"

namespace Zyra::rt {

// A 4x4 matrix, column-major as glTF stores it.
using Mat4 = std::array<double, 16>;

// Translation x rotation x scaling.
Mat4 MatrixOf(const MATH::CVector3& t, const MATH::CQuaternion& q, const MATH::CVector3& s);
Mat4 Multiply(const Mat4& a, const Mat4& b);
// The inverse of an affine matrix; the identity when it cannot be inverted (a zero scaling).
Mat4 InverseAffine(const Mat4& m);

// Triangles with the vertex attributes a skinned glTF primitive needs.
struct FigureMesh {
  std::vector<float> positions;  // x, y, z per vertex, metres
  std::vector<uint16_t> joints;  // JOINTS_0: four per vertex, the first the joint
  std::vector<float> weights;    // WEIGHTS_0: 1, 0, 0, 0 per vertex
  std::vector<uint32_t> indices;

  // A box from `a` to `b` (metres), its width a share of its length, weighted to `joint`; a cube
  // of half-size `half` about `a` when `b` is null. A box of no length adds nothing.
  void AddBox(const double a[3], const double* b, double half, int joint);
};

}  // namespace Zyra::rt
