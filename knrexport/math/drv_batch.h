// Drv math over many values at once, for the loops that run per joint and frame of a motion.
#pragma once

#include "knrexport/math/drv_math.h"

// out[i] = DrvQuaternion_SetZXY of (rx[i], ry[i], rz[i]) for i < count. The half-angle sines and
// cosines come from one polynomial evaluated four angles at a time instead of the library's
// sine and cosine; they stay within two units in the last place of the exact values, so each
// component is within 4e-7 of SetZXY's. Angles beyond 8192 radians and non-finite ones take
// SetZXY itself. `out` must not overlap the angle arrays.
void DrvQuaternion_SetZXYMany(DrvQuaternion* out, const float* rx, const float* ry, const float* rz,
                              int count);

// out[i] = DrvQuaternion_GetEulerAngles of q[i] for i < count, bit for bit: four at a time with
// the C library's own arc tangent done in vector lanes where it is known to match the library;
// gimbal lock, unusual operands and the last count % 4 take GetEulerAngles itself.
void DrvQuaternion_GetEulerAnglesMany(DrvVector* out, const DrvQuaternion* q, int count);
