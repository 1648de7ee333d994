// Four lanes at a time through the compiler's vector types (SSE on x86-64, NEON on ARM); no
// intrinsics, so the same source builds everywhere the compiler does.
#include "knrexport/math/drv_batch.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

using Float4 = float __attribute__((vector_size(16)));
using Bits4 = std::uint32_t __attribute__((vector_size(16)));

// Beyond this the three-part reduction below loses bits: k * kPio2Part2 is no longer exact.
constexpr float kReductionLimit = 8192.0f;

struct SinCos4 {
  Float4 sin, cos;
};

// Sine and cosine of four angles: reduction to r in [-pi/4, pi/4] by k quarter turns (pi/2 in
// three parts, the first two short enough that k times them is exact), a minimax polynomial for
// each of sin r and cos r, then the quadrant k mod 4 swaps them and sets their signs.
inline __attribute__((always_inline)) SinCos4 SinCos(Float4 x) {
  constexpr float kRound = 12582912.0f;  // 1.5 * 2^23: adding it rounds to an integer
  constexpr float kTwoOverPi = 0.63661977f;
  constexpr float kPio2Part1 = 1.5703125f;
  constexpr float kPio2Part2 = 4.837512969970703125e-4f;
  constexpr float kPio2Part3 = 7.54978995489188216e-8f;
  const Float4 shifted = x * kTwoOverPi + kRound;
  const Float4 k = shifted - kRound;
  // The low bits of the sum's representation are k's: its mantissa holds 2^22 + k.
  const Bits4 quadrant = reinterpret_cast<Bits4>(shifted);
  const Float4 r = ((x - k * kPio2Part1) - k * kPio2Part2) - k * kPio2Part3;
  const Float4 z = r * r;
  const Float4 s = r + r * z * (-1.6666654611e-1f + z * (8.3321608736e-3f + z * -1.9515295891e-4f));
  const Float4 c =
      1.0f - 0.5f * z +
      z * z * (4.166664568298827e-2f + z * (-1.388731625493765e-3f + z * 2.443315711809948e-5f));
  const Bits4 odd = reinterpret_cast<Bits4>((quadrant & 1) != 0);  // lanes of all ones or zeros
  const Bits4 sBits = reinterpret_cast<Bits4>(s);
  const Bits4 cBits = reinterpret_cast<Bits4>(c);
  const Bits4 sinBits = ((cBits & odd) | (sBits & ~odd)) ^ ((quadrant & 2) << 30);
  const Bits4 cosBits = ((sBits & odd) | (cBits & ~odd)) ^ (((quadrant + 1) & 2) << 30);
  return {reinterpret_cast<Float4>(sinBits), reinterpret_cast<Float4>(cosBits)};
}

// `count` values (1 to 4) and zeros after them.
Float4 Load(const float* values, int count) {
  Float4 v = {0.0f, 0.0f, 0.0f, 0.0f};
  if (count == 4) {
    std::memcpy(&v, values, sizeof v);
  } else {
    for (int lane = 0; lane < count; ++lane) v[lane] = values[lane];
  }
  return v;
}

// All ones in the lanes whose angle the reduction handles (not for NaN).
Bits4 Reducible(Float4 angle) {
  const Float4 magnitude = reinterpret_cast<Float4>(reinterpret_cast<Bits4>(angle) & 0x7FFFFFFFu);
  return reinterpret_cast<Bits4>(magnitude <= kReductionLimit);
}

}  // namespace

void DrvQuaternion_SetZXYMany(DrvQuaternion* out, const float* rx, const float* ry, const float* rz,
                              int count) {
  for (int i = 0; i < count; i += 4) {
    const int lanes = count - i < 4 ? count - i : 4;
    const Float4 ax = Load(rx + i, lanes), ay = Load(ry + i, lanes), az = Load(rz + i, lanes);
    const SinCos4 x = SinCos(ax * 0.5f);
    const SinCos4 y = SinCos(ay * 0.5f);
    const SinCos4 z = SinCos(az * 0.5f);
    // qz (qx qy), as DrvQuaternion_SetZXY writes it out.
    const Float4 px = x.sin * y.cos, py = x.cos * y.sin, pz = x.sin * y.sin, pw = x.cos * y.cos;
    const Float4 qx = z.cos * px - z.sin * py, qy = z.cos * py + z.sin * px;
    const Float4 qz = z.cos * pz + z.sin * pw, qw = z.cos * pw - z.sin * pz;
    // Components per lane to quaternions per lane: a 4 x 4 transpose.
    const Float4 xy01 = __builtin_shufflevector(qx, qy, 0, 4, 1, 5);
    const Float4 zw01 = __builtin_shufflevector(qz, qw, 0, 4, 1, 5);
    const Float4 xy23 = __builtin_shufflevector(qx, qy, 2, 6, 3, 7);
    const Float4 zw23 = __builtin_shufflevector(qz, qw, 2, 6, 3, 7);
    const Float4 quaternions[4] = {__builtin_shufflevector(xy01, zw01, 0, 1, 4, 5),
                                   __builtin_shufflevector(xy01, zw01, 2, 3, 6, 7),
                                   __builtin_shufflevector(xy23, zw23, 0, 1, 4, 5),
                                   __builtin_shufflevector(xy23, zw23, 2, 3, 6, 7)};
    static_assert(sizeof(DrvQuaternion) == sizeof(Float4));
    if (lanes == 4) {
      std::memcpy(out + i, quaternions, sizeof quaternions);
    } else {
      std::memcpy(out + i, quaternions, sizeof(DrvQuaternion) * static_cast<std::size_t>(lanes));
    }
    const Bits4 fine = Reducible(ax) & Reducible(ay) & Reducible(az);
    std::uint64_t halves[2];
    std::memcpy(halves, &fine, sizeof halves);
    if ((halves[0] & halves[1]) != ~0ULL) {
      for (int lane = 0; lane < lanes; ++lane) {
        if (fine[lane] != 0) continue;
        DrvQuaternion_SetZXY(&out[i + lane], rx[i + lane], ry[i + lane], rz[i + lane]);
      }
    }
  }
}
