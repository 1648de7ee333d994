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

void DrvVector_Multiply(DrvVector* out, DrvVector* a, float s) {
  const DrvVector va = *a;
  out->x = va.x * s;
  out->y = va.y * s;
  out->z = va.z * s;
}

float DrvVector_DotProduct(DrvVector* a, DrvVector* b) {
  return a->x * b->x + a->y * b->y + a->z * b->z;
}

void DrvVector_CrossProduct(DrvVector* out, DrvVector* a, DrvVector* b) {
  const DrvVector va = *a;
  const DrvVector vb = *b;
  out->x = va.y * vb.z - va.z * vb.y;
  out->y = va.z * vb.x - va.x * vb.z;
  out->z = va.x * vb.y - va.y * vb.x;
}

float DrvVector_Magnitude(DrvVector* v) { return std::sqrt(DrvVector_DotProduct(v, v)); }

void DrvVector_Normalize(DrvVector* v) {
  // No zero guard: callers check lengths where a zero vector can occur.
  const float inverse = 1.0f / DrvVector_Magnitude(v);
  DrvVector_Multiply(v, v, inverse);
}

void DrvVector_MultiplyQuaternion(DrvVector* out, DrvVector* v, DrvQuaternion* q) {
  // v' = (w^2 - u.u) v + 2 (u.v) u + 2 w (u x v), u the vector part: no matrix needed.
  DrvVector u = {q->x, q->y, q->z};
  DrvVector p = *v;
  const float w = q->w;
  const float scale_v = w * w - DrvVector_DotProduct(&u, &u);
  const float scale_u = 2.0f * DrvVector_DotProduct(&u, &p);
  DrvVector cross;
  DrvVector_CrossProduct(&cross, &u, &p);
  const float scale_cross = 2.0f * w;
  out->x = scale_v * p.x + scale_u * u.x + scale_cross * cross.x;
  out->y = scale_v * p.y + scale_u * u.y + scale_cross * cross.y;
  out->z = scale_v * p.z + scale_u * u.z + scale_cross * cross.z;
}

void DrvVector_MultiplyTransform(DrvVector* out, DrvVector* v, DrvTransform* t) {
  DrvVector translation = t->translation;
  DrvQuaternion rotation = t->rotation;
  DrvVector rotated;
  DrvVector_MultiplyQuaternion(&rotated, v, &rotation);
  DrvVector_Add(out, &rotated, &translation);
}

void DrvQuaternion_Multiply(DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b) {
  const DrvQuaternion qa = *a;
  const DrvQuaternion qb = *b;
  out->x = qa.w * qb.x + qa.x * qb.w + qa.y * qb.z - qa.z * qb.y;
  out->y = qa.w * qb.y - qa.x * qb.z + qa.y * qb.w + qa.z * qb.x;
  out->z = qa.w * qb.z + qa.x * qb.y - qa.y * qb.x + qa.z * qb.w;
  out->w = qa.w * qb.w - qa.x * qb.x - qa.y * qb.y - qa.z * qb.z;
}

void DrvQuaternion_FromRotation(DrvQuaternion* q, DrvVector* axis, float angle) {
  const DrvVector a = *axis;
  const float s = std::sin(angle * 0.5f);
  q->x = a.x * s;
  q->y = a.y * s;
  q->z = a.z * s;
  q->w = std::cos(angle * 0.5f);
}

void DrvQuaternion_SetEulerAngles(DrvQuaternion* q, float rx, float ry, float rz) {
  // The expanded product qz qy qx: X is applied first.
  const float sx = std::sin(rx * 0.5f), cx = std::cos(rx * 0.5f);
  const float sy = std::sin(ry * 0.5f), cy = std::cos(ry * 0.5f);
  const float sz = std::sin(rz * 0.5f), cz = std::cos(rz * 0.5f);
  q->x = sx * cy * cz - cx * sy * sz;
  q->y = cx * sy * cz + sx * cy * sz;
  q->z = cx * cy * sz - sx * sy * cz;
  q->w = cx * cy * cz + sx * sy * sz;
}

void DrvQuaternion_SetZXY(DrvQuaternion* q, float rx, float ry, float rz) {
  DrvQuaternion qx, qy, qz;
  DrvQuaternion_SetEulerAngles(&qx, rx, 0.0f, 0.0f);
  DrvQuaternion_SetEulerAngles(&qy, 0.0f, ry, 0.0f);
  DrvQuaternion_SetEulerAngles(&qz, 0.0f, 0.0f, rz);
  DrvQuaternion_Multiply(q, &qx, &qy);
  DrvQuaternion_Multiply(q, &qz, q);
}

void DrvQuaternion_GetEulerAngles(DrvQuaternion* q, DrvVector* out) {
  DrvMatrix matrix;
  DrvMatrix_FromQuaternion(&matrix, q);
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
  DrvVector f = *from;
  DrvVector g = *to;
  const DrvQuaternion identity = {0.0f, 0.0f, 0.0f, 1.0f};
  // Strict: a length of exactly kDirectionEpsilon still has a direction.
  if (DrvVector_Magnitude(&f) < kDirectionEpsilon || DrvVector_Magnitude(&g) < kDirectionEpsilon) {
    *q = identity;
    return;
  }
  DrvVector_Normalize(&f);
  DrvVector_Normalize(&g);
  const float d = DrvVector_DotProduct(&f, &g);
  if (d > kParallelDot) {
    *q = identity;
    return;
  }
  if (d < -kParallelDot) {
    // Opposite directions: any half turn about an axis perpendicular to `from` will do. The
    // (normalized) direction is tested for components near zero. Along X or Z (y and one other
    // component near zero) the axis is Y; with x near zero the axis is X. Otherwise neither fixed
    // axis is perpendicular, so the axis is from x X or from x Y, whichever is longer (the
    // longer one is well conditioned: its squared length is at least 1/2).
    const bool x_zero = std::fabs(f.x) < kDirectionEpsilon;
    const bool y_zero = std::fabs(f.y) < kDirectionEpsilon;
    const bool z_zero = std::fabs(f.z) < kDirectionEpsilon;
    DrvVector axis;
    if (y_zero && (x_zero || z_zero)) {
      DrvVector_Set(&axis, 0.0f, 1.0f, 0.0f);
    } else if (x_zero) {
      DrvVector_Set(&axis, 1.0f, 0.0f, 0.0f);
    } else {
      DrvVector unit_x = {1.0f, 0.0f, 0.0f};
      DrvVector unit_y = {0.0f, 1.0f, 0.0f};
      DrvVector across_x, across_y;
      DrvVector_CrossProduct(&across_x, &f, &unit_x);
      DrvVector_CrossProduct(&across_y, &f, &unit_y);
      axis =
          DrvVector_DotProduct(&across_x, &across_x) >= DrvVector_DotProduct(&across_y, &across_y)
              ? across_x
              : across_y;
      DrvVector_Normalize(&axis);
    }
    DrvQuaternion_FromRotation(q, &axis, kDrvPi);
    return;
  }
  DrvVector axis;
  DrvVector_CrossProduct(&axis, &f, &g);
  DrvVector_Normalize(&axis);
  DrvQuaternion_FromRotation(q, &axis, std::acos(d));
}

void DrvMatrix_FromQuaternion(DrvMatrix* m, DrvQuaternion* q) {
  const float x = q->x, y = q->y, z = q->z, w = q->w;
  float* o = m->m;
  o[0] = 1.0f - 2.0f * (y * y + z * z);
  o[1] = 2.0f * (x * y + z * w);
  o[2] = 2.0f * (x * z - y * w);
  o[3] = 0.0f;
  o[4] = 2.0f * (x * y - z * w);
  o[5] = 1.0f - 2.0f * (z * z + x * x);
  o[6] = 2.0f * (y * z + x * w);
  o[7] = 0.0f;
  o[8] = 2.0f * (x * z + y * w);
  o[9] = 2.0f * (y * z - x * w);
  o[10] = 1.0f - 2.0f * (x * x + y * y);
  o[11] = 0.0f;
  o[12] = 0.0f;
  o[13] = 0.0f;
  o[14] = 0.0f;
  o[15] = 1.0f;
}

void DrvTransform_SetIdentity(DrvTransform* t) {
  t->translation = {0.0f, 0.0f, 0.0f};
  t->rotation = {0.0f, 0.0f, 0.0f, 1.0f};
  t->scaling = {0.0f, 0.0f, 0.0f};
}

void DrvTransform_Multiply(DrvTransform* out, DrvTransform* a, DrvTransform* b) {
  DrvTransform ta = *a;
  DrvTransform tb = *b;
  DrvVector_MultiplyTransform(&out->translation, &tb.translation, &ta);
  DrvQuaternion_Multiply(&out->rotation, &ta.rotation, &tb.rotation);
  // Nothing here reads the scaling; keep a's so the field is at least defined.
  out->scaling = ta.scaling;
}

void DrvTransform_Invert(DrvTransform* t) {
  // The inverse of p -> R p + T is p -> R^-1 p - R^-1 T.
  DrvQuaternion conjugate = {-t->rotation.x, -t->rotation.y, -t->rotation.z, t->rotation.w};
  DrvVector negated = {-t->translation.x, -t->translation.y, -t->translation.z};
  DrvVector_MultiplyQuaternion(&t->translation, &negated, &conjugate);
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
