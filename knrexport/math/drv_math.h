// Single-precision vectors, quaternions, rigid transforms and matrices for poses and motion.
// Every function writes its result through its first pointer and reads all inputs before
// writing, so an output may alias an input. Angles are radians, except in EnforceContinuity.
// Nothing allocates or fails.
#pragma once

struct DrvVector {
  float x, y, z;
};

// x, y, z, then the scalar part w; rotations are unit quaternions, identity (0, 0, 0, 1).
struct DrvQuaternion {
  float x, y, z, w;
};

// Translation, rotation, scaling: ten floats. The scaling is carried for pose storage only;
// the functions here never read it, so transform arithmetic is rigid.
struct DrvTransform {
  DrvVector translation;
  DrvQuaternion rotation;
  DrvVector scaling;
};

// 4x4, m[4 * row + column]; rows hold the images of the basis axes (row vectors on the left).
struct DrvMatrix {
  float m[16];
};

inline constexpr float kDrvPi = 3.1415927f;
inline constexpr float kDrvTwoPi = 6.2831855f;

void DrvVector_Set(DrvVector* v, float x, float y, float z);
void DrvVector_Add(DrvVector* out, DrvVector* a, DrvVector* b);
void DrvVector_Subtract(DrvVector* out, DrvVector* a, DrvVector* b);
void DrvVector_Multiply(DrvVector* out, DrvVector* a, float s);
float DrvVector_DotProduct(DrvVector* a, DrvVector* b);
// Right-handed a x b.
void DrvVector_CrossProduct(DrvVector* out, DrvVector* a, DrvVector* b);
float DrvVector_Magnitude(DrvVector* v);
// In place; a zero vector gives non-finite components.
void DrvVector_Normalize(DrvVector* v);
// v rotated by q.
void DrvVector_MultiplyQuaternion(DrvVector* out, DrvVector* v, DrvQuaternion* q);
// v rotated by t's rotation, then t's translation added.
void DrvVector_MultiplyTransform(DrvVector* out, DrvVector* v, DrvTransform* t);

// Hamilton product a b: rotating by it rotates by b first, then by a.
void DrvQuaternion_Multiply(DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b);
// (axis sin(angle / 2), cos(angle / 2)); the axis must be unit length.
void DrvQuaternion_FromRotation(DrvQuaternion* q, DrvVector* axis, float angle);
// Rotation about X by rx, then Y by ry, then Z by rz (q = qz qy qx).
void DrvQuaternion_SetEulerAngles(DrvQuaternion* q, float rx, float ry, float rz);
// Rotation about Y by ry, then X by rx, then Z by rz (q = qz qx qy): the BVH composition.
void DrvQuaternion_SetZXY(DrvQuaternion* q, float rx, float ry, float rz);
// The X-then-Y-then-Z angles of q, each in [0, 2 pi): negative angles get 2 pi added, so one
// within about 2.4e-7 below zero rounds to kDrvTwoPi itself. At gimbal lock rz is 0.
void DrvQuaternion_GetEulerAngles(DrvQuaternion* q, DrvVector* out);
// Spherical interpolation from a to b by t, with `spins` extra half turns in quaternion space.
void DrvQuaternion_Interpolate(DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b, float t,
                               int spins);
// The shortest rotation taking the direction of `from` to that of `to`.
void DrvQuaternion_FromTwoVectors(DrvQuaternion* q, DrvVector* from, DrvVector* to);

void DrvMatrix_FromQuaternion(DrvMatrix* m, DrvQuaternion* q);

// Every field zero, scaling included, then rotation w = 1.
void DrvTransform_SetIdentity(DrvTransform* t);
// Applying `out` equals applying b, then a. The output's scaling is a's.
void DrvTransform_Multiply(DrvTransform* out, DrvTransform* a, DrvTransform* b);
// In place.
void DrvTransform_Invert(DrvTransform* t);

// `angle` (degrees) moved by whole turns to within 180 of `reference`; exactly +-180 stays.
float EnforceContinuity(float angle, float reference);
