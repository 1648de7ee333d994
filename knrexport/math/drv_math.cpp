// Single-precision vector, quaternion and rigid-transform math. Every function copies its inputs
// into locals before it writes the output, so callers may pass the same object as input and output.
#include "knrexport/math/drv_math.h"

#include <cmath>

namespace {

// Magnitudes below this count as "no direction" in DrvQuaternion_FromTwoVectors, and components
// within it of zero count as zero when choosing a half-turn axis.
constexpr float kDirectionEpsilon = 1e-5f;
// Cosines beyond this mean two directions are (anti)parallel.
constexpr float kParallelDot = 0.99999f;
// |cos(pitch)| at or below this is treated as gimbal lock when extracting Euler angles.
constexpr float kGimbalCos = 0.001f;
// Pitch above this (radians, after wrapping into [0, 2 pi)) is the downward lock at 3 pi / 2.
constexpr float kGimbalPitchSplit = 1.6f;
// Slerp falls back to a linear blend when 1 - cos is below this, and treats the pair as opposite
// when 1 + cos is at or below it.
constexpr float kSlerpMargin = 0.05f;

// Differences (degrees) beyond which EnforceContinuity first removes whole turns in double: past
// 2^24 a float loop of 360-degree steps gets slow, and past about 2^33 a step no longer moves.
constexpr float kContinuityLoopLimit = 16777216.0f;

float WrapNegative(float angle) { return angle < 0.0f ? angle + kDrvTwoPi : angle; }

// Value-based kernels shared by the public functions. The public names have external linkage
// in position-independent code, so calling them from each other would stay an out-of-line call;
// these internal ones inline, and taking and returning values makes aliasing a non-issue.
float Dot(const DrvVector& a, const DrvVector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

DrvVector Cross(const DrvVector& a, const DrvVector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

DrvVector Scaled(const DrvVector& v, float s) { return {v.x * s, v.y * s, v.z * s}; }

DrvVector Normalized(const DrvVector& v) { return Scaled(v, 1.0f / std::sqrt(Dot(v, v))); }

// v' = (w^2 - u.u) v + 2 (u.v) u + 2 w (u x v), u the vector part: no matrix needed.
DrvVector Rotate(const DrvQuaternion& q, const DrvVector& v) {
  const DrvVector u = {q.x, q.y, q.z};
  const float scale_v = q.w * q.w - Dot(u, u);
  const float scale_u = 2.0f * Dot(u, v);
  const float scale_cross = 2.0f * q.w;
  const DrvVector c = Cross(u, v);
  return {scale_v * v.x + scale_u * u.x + scale_cross * c.x,
          scale_v * v.y + scale_u * u.y + scale_cross * c.y,
          scale_v * v.z + scale_u * u.z + scale_cross * c.z};
}

DrvQuaternion Hamilton(const DrvQuaternion& a, const DrvQuaternion& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

DrvQuaternion AxisAngle(const DrvVector& axis, float angle) {
  const float s = std::sin(angle * 0.5f);
  return {axis.x * s, axis.y * s, axis.z * s, std::cos(angle * 0.5f)};
}

// The expanded product qz qy qx: X is applied first.
DrvQuaternion EulerXYZ(float rx, float ry, float rz) {
  const float sx = std::sin(rx * 0.5f), cx = std::cos(rx * 0.5f);
  const float sy = std::sin(ry * 0.5f), cy = std::cos(ry * 0.5f);
  const float sz = std::sin(rz * 0.5f), cz = std::cos(rz * 0.5f);
  return {sx * cy * cz - cx * sy * sz, cx * sy * cz + sx * cy * sz, cx * cy * sz - sx * sy * cz,
          cx * cy * cz + sx * sy * sz};
}

DrvMatrix MatrixOf(const DrvQuaternion& q) {
  const float x = q.x, y = q.y, z = q.z, w = q.w;
  DrvMatrix m;
  m.m[0] = 1.0f - 2.0f * (y * y + z * z);
  m.m[1] = 2.0f * (x * y + z * w);
  m.m[2] = 2.0f * (x * z - y * w);
  m.m[3] = 0.0f;
  m.m[4] = 2.0f * (x * y - z * w);
  m.m[5] = 1.0f - 2.0f * (z * z + x * x);
  m.m[6] = 2.0f * (y * z + x * w);
  m.m[7] = 0.0f;
  m.m[8] = 2.0f * (x * z + y * w);
  m.m[9] = 2.0f * (y * z - x * w);
  m.m[10] = 1.0f - 2.0f * (x * x + y * y);
  m.m[11] = 0.0f;
  m.m[12] = 0.0f;
  m.m[13] = 0.0f;
  m.m[14] = 0.0f;
  m.m[15] = 1.0f;
  return m;
}

}  // namespace

void DrvVector_Set(DrvVector* v, float x, float y, float z) {
  v->x = x;
  v->y = y;
  v->z = z;
}

void DrvVector_Add(DrvVector* out, DrvVector* a, DrvVector* b) {
  const DrvVector va = *a;
  const DrvVector vb = *b;
  out->x = va.x + vb.x;
  out->y = va.y + vb.y;
  out->z = va.z + vb.z;
}

void DrvVector_Subtract(DrvVector* out, DrvVector* a, DrvVector* b) {
  const DrvVector va = *a;
  const DrvVector vb = *b;
  out->x = va.x - vb.x;
  out->y = va.y - vb.y;
  out->z = va.z - vb.z;
}

void DrvVector_Multiply(DrvVector* out, DrvVector* a, float s) { *out = Scaled(*a, s); }

float DrvVector_DotProduct(DrvVector* a, DrvVector* b) { return Dot(*a, *b); }

void DrvVector_CrossProduct(DrvVector* out, DrvVector* a, DrvVector* b) { *out = Cross(*a, *b); }

float DrvVector_Magnitude(DrvVector* v) { return std::sqrt(Dot(*v, *v)); }

// No zero guard: callers check lengths where a zero vector can occur.
void DrvVector_Normalize(DrvVector* v) { *v = Normalized(*v); }

void DrvVector_MultiplyQuaternion(DrvVector* out, DrvVector* v, DrvQuaternion* q) {
  *out = Rotate(*q, *v);
}

void DrvVector_MultiplyTransform(DrvVector* out, DrvVector* v, DrvTransform* t) {
  const DrvVector translation = t->translation;
  const DrvVector r = Rotate(t->rotation, *v);
  *out = {r.x + translation.x, r.y + translation.y, r.z + translation.z};
}

void DrvQuaternion_Multiply(DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b) {
  *out = Hamilton(*a, *b);
}

void DrvQuaternion_FromRotation(DrvQuaternion* q, DrvVector* axis, float angle) {
  *q = AxisAngle(*axis, angle);
}

void DrvQuaternion_SetEulerAngles(DrvQuaternion* q, float rx, float ry, float rz) {
  *q = EulerXYZ(rx, ry, rz);
}

void DrvQuaternion_SetZXY(DrvQuaternion* q, float rx, float ry, float rz) {
  // qz (qx qy) written out: the single-axis quaternions have two zero components each, so the
  // products reduce to these terms (the same values as the full products). One sine and cosine
  // per half angle: this runs once per joint and frame of every BVH file read.
  const float sx = std::sin(rx * 0.5f), cx = std::cos(rx * 0.5f);
  const float sy = std::sin(ry * 0.5f), cy = std::cos(ry * 0.5f);
  const float sz = std::sin(rz * 0.5f), cz = std::cos(rz * 0.5f);
  const float px = sx * cy, py = cx * sy, pz = sx * sy, pw = cx * cy;  // qx qy
  *q = {cz * px - sz * py, cz * py + sz * px, cz * pz + sz * pw, cz * pw - sz * pz};
}

void DrvQuaternion_GetEulerAngles(DrvQuaternion* q, DrvVector* out) {
  const DrvMatrix matrix = MatrixOf(*q);
  const float* m = matrix.m;
  const float ry = WrapNegative(std::atan2(-m[2], std::sqrt(m[0] * m[0] + m[1] * m[1])));
  const float k = std::cos(ry);
  float rx, rz;
  if (std::fabs(k) > kGimbalCos) {
    rz = std::atan2(m[1] / k, m[0] / k);
    rx = std::atan2(m[6] / k, m[10] / k);
  } else {
    // Gimbal lock: only rx - rz (pitch up) or rx + rz (pitch down) is determined, so all of it
    // goes into rx. Row 1 then holds (sin, cos) of that combined angle, with the sign flipped
    // when pitching down.
    rz = 0.0f;
    rx = ry > kGimbalPitchSplit ? -std::atan2(m[4], m[5]) : std::atan2(m[4], m[5]);
  }
  out->x = WrapNegative(rx);
  out->y = ry;
  out->z = WrapNegative(rz);
}

void DrvQuaternion_Interpolate(DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b, float t,
                               int spins) {
  DrvQuaternion qa = *a;
  DrvQuaternion qb = *b;
  float d = qa.x * qb.x + qa.y * qb.y + qa.z * qb.z + qa.w * qb.w;
  if (d < 0.0f) {
    // q and -q are the same rotation: start from the one on b's side to take the short way.
    qa = {-qa.x, -qa.y, -qa.z, -qa.w};
    d = -d;
  }
  float wa, wb;
  if (d + 1.0f > kSlerpMargin) {
    if (1.0f - d >= kSlerpMargin) {
      const float theta = std::acos(d);
      const float s = std::sin(theta);
      // Each spin adds pi to the blend angle: one full turn of the rotated object.
      const float phi = (static_cast<float>(spins) * kDrvPi + theta) * t;
      wa = std::sin(theta - phi) / s;
      wb = std::sin(phi) / s;
    } else {
      // Nearly equal: sin(theta) is too small to divide by; blend linearly.
      wa = 1.0f - t;
      wb = t;
    }
  } else {
    // Nearly opposite (after the flip above only non-finite input gets here): blend towards a
    // quaternion perpendicular to a.
    qb = {-qa.y, qa.x, -qa.w, qa.z};
    wa = std::sin((0.5f - t) * kDrvPi);
    wb = std::sin(t * kDrvPi);
  }
  out->x = wa * qa.x + wb * qb.x;
  out->y = wa * qa.y + wb * qb.y;
  out->z = wa * qa.z + wb * qb.z;
  out->w = wa * qa.w + wb * qb.w;
}

void DrvQuaternion_FromTwoVectors(DrvQuaternion* q, DrvVector* from, DrvVector* to) {
  const DrvVector f_in = *from;
  const DrvVector g_in = *to;
  const DrvQuaternion identity = {0.0f, 0.0f, 0.0f, 1.0f};
  // Strict: a length of exactly kDirectionEpsilon still has a direction.
  if (std::sqrt(Dot(f_in, f_in)) < kDirectionEpsilon ||
      std::sqrt(Dot(g_in, g_in)) < kDirectionEpsilon) {
    *q = identity;
    return;
  }
  const DrvVector f = Normalized(f_in);
  const DrvVector g = Normalized(g_in);
  const float d = Dot(f, g);
  if (d > kParallelDot) {
    *q = identity;
    return;
  }
  if (d < -kParallelDot) {
    // Opposite directions: any half turn about an axis perpendicular to `from` will do. The
    // (normalized) direction is tested for components near zero. Along X or Z (y and one other
    // component near zero) the axis is Y; with x near zero the axis is X. Otherwise neither fixed
    // axis need be perpendicular, so the axis is from x X = (0, z, -y): y and z are not both
    // near zero here, and the cross product with a basis axis is exact.
    const bool x_zero = std::fabs(f.x) < kDirectionEpsilon;
    const bool y_zero = std::fabs(f.y) < kDirectionEpsilon;
    const bool z_zero = std::fabs(f.z) < kDirectionEpsilon;
    DrvVector axis;
    if (y_zero && (x_zero || z_zero)) {
      axis = {0.0f, 1.0f, 0.0f};
    } else if (x_zero) {
      axis = {1.0f, 0.0f, 0.0f};
    } else {
      axis = Normalized(Cross(f, {1.0f, 0.0f, 0.0f}));
    }
    *q = AxisAngle(axis, kDrvPi);
    return;
  }
  *q = AxisAngle(Normalized(Cross(f, g)), std::acos(d));
}

void DrvMatrix_FromQuaternion(DrvMatrix* m, DrvQuaternion* q) { *m = MatrixOf(*q); }

void DrvTransform_SetIdentity(DrvTransform* t) {
  t->translation = {0.0f, 0.0f, 0.0f};
  t->rotation = {0.0f, 0.0f, 0.0f, 1.0f};
  t->scaling = {0.0f, 0.0f, 0.0f};
}

void DrvTransform_Multiply(DrvTransform* out, DrvTransform* a, DrvTransform* b) {
  const DrvTransform ta = *a;
  const DrvTransform tb = *b;
  const DrvVector r = Rotate(ta.rotation, tb.translation);
  out->translation = {r.x + ta.translation.x, r.y + ta.translation.y, r.z + ta.translation.z};
  out->rotation = Hamilton(ta.rotation, tb.rotation);
  // Nothing here reads the scaling; keep a's so the field is at least defined.
  out->scaling = ta.scaling;
}

void DrvTransform_Invert(DrvTransform* t) {
  // The inverse of p -> R p + T is p -> R^-1 p - R^-1 T.
  const DrvQuaternion conjugate = {-t->rotation.x, -t->rotation.y, -t->rotation.z, t->rotation.w};
  const DrvVector negated = {-t->translation.x, -t->translation.y, -t->translation.z};
  t->translation = Rotate(conjugate, negated);
  t->rotation = conjugate;
}

float EnforceContinuity(float angle, float reference) {
  const float difference = angle - reference;
  if (!std::isfinite(difference)) return angle;  // Whole turns cannot fix it; do not loop forever.
  if (std::fabs(difference) > kContinuityLoopLimit) {
    // Remove the bulk of the turns in double so the loops below run a few steps at most.
    const double turns = std::round(static_cast<double>(difference) / 360.0);
    angle = static_cast<float>(static_cast<double>(angle) - 360.0 * turns);
  }
  // At magnitudes where a 360-degree step rounds away entirely, stop instead of spinning.
  while (angle - reference > 180.0f) {
    const float next = angle - 360.0f;
    if (next == angle) break;
    angle = next;
  }
  while (angle - reference < -180.0f) {
    const float next = angle + 360.0f;
    if (next == angle) break;
    angle = next;
  }
  return angle;
}
