// The glTF export's figure: matrices as viewers compose them, and thin boxes along bones.
#include "gltf/gltf_figure.h"

#include <algorithm>
#include <cmath>

namespace Zyra::rt {

namespace {

// Bones are boxes this wide: half-width as a share of the bone's length, with a floor so that
// short bones stay visible.
constexpr double kBoneHalfWidth = 0.05;
constexpr double kMinHalfWidth = 0.002;  // metres

}  // namespace

Mat4 MatrixOf(const MATH::CVector3& t, const MATH::CQuaternion& q, const MATH::CVector3& s) {
  const double x = q.GetX(), y = q.GetY(), z = q.GetZ(), w = q.GetW();
  const double r[9] = {1 - 2 * (y * y + z * z), 2 * (x * y + z * w),     2 * (x * z - y * w),
                       2 * (x * y - z * w),     1 - 2 * (x * x + z * z), 2 * (y * z + x * w),
                       2 * (x * z + y * w),     2 * (y * z - x * w),     1 - 2 * (x * x + y * y)};
  const double sc[3] = {s.GetX(), s.GetY(), s.GetZ()};
  Mat4 m{};
  for (int c = 0; c < 3; ++c)
    for (int row = 0; row < 3; ++row) m[c * 4 + row] = r[c * 3 + row] * sc[c];
  m[12] = t.GetX();
  m[13] = t.GetY();
  m[14] = t.GetZ();
  m[15] = 1;
  return m;
}

Mat4 Multiply(const Mat4& a, const Mat4& b) {
  Mat4 m{};
  for (int c = 0; c < 4; ++c)
    for (int row = 0; row < 4; ++row)
      for (int k = 0; k < 4; ++k) m[c * 4 + row] += a[k * 4 + row] * b[c * 4 + k];
  return m;
}

// The inverse of an affine matrix; the identity when it cannot be inverted (a zero scaling).
Mat4 InverseAffine(const Mat4& m) {
  auto at = [&](int row, int c) { return m[c * 4 + row]; };
  const double c00 = at(1, 1) * at(2, 2) - at(1, 2) * at(2, 1);
  const double c01 = at(1, 2) * at(2, 0) - at(1, 0) * at(2, 2);
  const double c02 = at(1, 0) * at(2, 1) - at(1, 1) * at(2, 0);
  const double det = at(0, 0) * c00 + at(0, 1) * c01 + at(0, 2) * c02;
  Mat4 inv{};
  if (!(std::fabs(det) > 1e-300)) {
    for (int i = 0; i < 4; ++i) inv[i * 5] = 1;
    return inv;
  }
  const double d = 1.0 / det;
  double r[3][3] = {
      {c00 * d, (at(0, 2) * at(2, 1) - at(0, 1) * at(2, 2)) * d,
       (at(0, 1) * at(1, 2) - at(0, 2) * at(1, 1)) * d},
      {c01 * d, (at(0, 0) * at(2, 2) - at(0, 2) * at(2, 0)) * d,
       (at(0, 2) * at(1, 0) - at(0, 0) * at(1, 2)) * d},
      {c02 * d, (at(0, 1) * at(2, 0) - at(0, 0) * at(2, 1)) * d,
       (at(0, 0) * at(1, 1) - at(0, 1) * at(1, 0)) * d},
  };
  for (int row = 0; row < 3; ++row) {
    for (int c = 0; c < 3; ++c) inv[c * 4 + row] = r[row][c];
    inv[12 + row] = -(r[row][0] * m[12] + r[row][1] * m[13] + r[row][2] * m[14]);
  }
  inv[15] = 1;
  return inv;
}

// A box from `a` to `b` (metres), weighted to `joint`; a cube of half-size `half` about `a`
// when `b` is null.
void FigureMesh::AddBox(const double a[3], const double* b, double half, int joint) {
  double axis[3][3];  // u, v, d: a right-handed frame
  double ends[2][3];
  if (b) {
    double d[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    const double length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    if (!(length > 1e-9)) return;
    for (double& x : d) x /= length;
    half = std::max(kBoneHalfWidth * length, kMinHalfWidth);
    // u: perpendicular to d, from the world axis least aligned with it.
    const double helper[3] = {std::fabs(d[0]) < 0.9 ? 1.0 : 0.0, std::fabs(d[0]) < 0.9 ? 0 : 1.0,
                              0};
    double u[3] = {helper[1] * d[2] - helper[2] * d[1], helper[2] * d[0] - helper[0] * d[2],
                   helper[0] * d[1] - helper[1] * d[0]};
    const double ul = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
    for (double& x : u) x /= ul;
    const double v[3] = {d[1] * u[2] - d[2] * u[1], d[2] * u[0] - d[0] * u[2],
                         d[0] * u[1] - d[1] * u[0]};
    for (int i = 0; i < 3; ++i) {
      axis[0][i] = u[i];
      axis[1][i] = v[i];
      axis[2][i] = 0;
      ends[0][i] = a[i];
      ends[1][i] = b[i];
    }
  } else {
    for (int i = 0; i < 3; ++i) {
      for (int k = 0; k < 3; ++k) axis[k][i] = k == i ? 1 : 0;
      ends[0][i] = a[i] - half * axis[2][i];
      ends[1][i] = a[i] + half * axis[2][i];
      axis[2][i] = 0;
    }
  }
  const auto base = static_cast<uint32_t>(positions.size() / 3);
  for (int corner = 0; corner < 8; ++corner) {
    const double su = (corner & 1) ? half : -half, sv = (corner & 2) ? half : -half;
    const double* end = ends[(corner & 4) ? 1 : 0];
    for (int i = 0; i < 3; ++i)
      positions.push_back(static_cast<float>(end[i] + su * axis[0][i] + sv * axis[1][i]));
    joints.insert(joints.end(), {static_cast<uint16_t>(joint), 0, 0, 0});
    weights.insert(weights.end(), {1.0f, 0.0f, 0.0f, 0.0f});
  }
  // Outward-facing quads of the corner cube (corner = x + 2y + 4z), as two triangles each.
  static const int kQuads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                   {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (const auto& q : kQuads) {
    for (int k : {q[0], q[1], q[2], q[0], q[2], q[3]})
      indices.push_back(base + static_cast<uint32_t>(k));
  }
}

}  // namespace Zyra::rt
