// Four lanes at a time through the compiler's vector types (SSE on x86-64, NEON on ARM); no
// intrinsics, so the same source builds everywhere the compiler does.
#include "knrexport/math/drv_batch.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

using Float4 = float __attribute__((vector_size(16)));
using Bits4 = std::uint32_t __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));

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

// ---- Arc tangents for DrvQuaternion_GetEulerAnglesMany ------------------------------------------
// The C library's single-precision atan2, as the GNU C library computes it, done four lanes at a
// time with the same operations in the same order: |y / x| reduced to one of five intervals
// (around 0, 1/2, 1, 3/2, infinity), an odd polynomial in two halves, then the quadrant. Each
// lane's result is therefore the library's, bit for bit. Lanes outside the plain case (a zero,
// subnormal, infinite or NaN operand, or |y / x| beyond 2^+-20) are left to the library: they are
// flagged in `other`. Whether the library computes this way is checked once (AtanMatchesLibrary);
// when it does not, no lane is done here.

constexpr float kAtanHi[4] = {4.6364760399e-01f, 7.8539812565e-01f, 9.8279368877e-01f,
                              1.5707962513e+00f};
constexpr float kAtanLo[4] = {5.0121582440e-09f, 3.7748947079e-08f, 3.4473217170e-08f,
                              7.5497894159e-08f};
constexpr float kAtanT[11] = {3.3333334327e-01f,  -2.0000000298e-01f, 1.4285714924e-01f,
                              -1.1111110449e-01f, 9.0908870101e-02f,  -7.6918758452e-02f,
                              6.6610731184e-02f,  -5.8335702866e-02f, 4.9768779427e-02f,
                              -3.6531571299e-02f, 1.6285819933e-02f};
constexpr float kAtanPi = 3.1415927410e+00f;
constexpr float kAtanPiLo = -8.7422776573e-08f;

inline Float4 Select(Bits4 mask, Float4 a, Float4 b) {
  return reinterpret_cast<Float4>((reinterpret_cast<Bits4>(a) & mask) |
                                  (reinterpret_cast<Bits4>(b) & ~mask));
}

inline __attribute__((always_inline)) Float4 Atan2(Float4 y, Float4 x, Bits4* other) {
  const Bits4 hx = reinterpret_cast<Bits4>(x), hy = reinterpret_cast<Bits4>(y);
  const Bits4 ix = hx & 0x7FFFFFFFu, iy = hy & 0x7FFFFFFFu;
  const Int4 k = (reinterpret_cast<Int4>(iy) - reinterpret_cast<Int4>(ix)) >> 23;
  // (A zero y over a positive x is the plain case too: the result is y itself.)
  const Bits4 yZero = reinterpret_cast<Bits4>(iy == 0u) &
                      reinterpret_cast<Bits4>(hx - 0x00800000u < 0x7F000000u - 0x00800000u);
  const Bits4 plain = reinterpret_cast<Bits4>(ix - 0x00800000u < 0x7F000000u) &
                      reinterpret_cast<Bits4>(iy - 0x00800000u < 0x7F000000u) &
                      reinterpret_cast<Bits4>(k <= 20) & reinterpret_cast<Bits4>(k >= -20);
  *other = ~(plain | yZero);
  // atan(a) for a = |y / x|.
  const Float4 a = reinterpret_cast<Float4>(reinterpret_cast<Bits4>(y / x) & 0x7FFFFFFFu);
  const Bits4 ia = reinterpret_cast<Bits4>(a);
  const Bits4 small = reinterpret_cast<Bits4>(ia < 0x3EE00000u);         // < 7/16
  const Bits4 id0 = reinterpret_cast<Bits4>(ia < 0x3F300000u) & ~small;  // < 11/16
  const Bits4 below1875 = reinterpret_cast<Bits4>(ia < 0x3F980000u);     // < 19/16
  const Bits4 id1 = below1875 & ~(small | id0);
  const Bits4 below24375 = reinterpret_cast<Bits4>(ia < 0x401C0000u);  // < 39/16
  const Bits4 id2 = below24375 & ~below1875;
  const Bits4 id3 = ~below24375;
  const Float4 one = {1.0f, 1.0f, 1.0f, 1.0f};
  Float4 num = Select(id0, 2.0f * a - 1.0f, a);
  num = Select(id1, a - 1.0f, num);
  num = Select(id2, a - 1.5f, num);
  num = Select(id3, -one, num);
  Float4 den = Select(id0, 2.0f + a, one);
  den = Select(id1, a + 1.0f, den);
  den = Select(id2, 1.0f + 1.5f * a, den);
  den = Select(id3, a, den);
  const Float4 r = num / den;
  const Float4 z = r * r;
  const Float4 w = z * z;
  const Float4 s1 =
      z * (kAtanT[0] +
           w * (kAtanT[2] + w * (kAtanT[4] + w * (kAtanT[6] + w * (kAtanT[8] + w * kAtanT[10])))));
  const Float4 s2 =
      w * (kAtanT[1] + w * (kAtanT[3] + w * (kAtanT[5] + w * (kAtanT[7] + w * kAtanT[9]))));
  Float4 hi = Select(id0, Float4{} + kAtanHi[0], Float4{} + kAtanHi[3]);
  hi = Select(id1, Float4{} + kAtanHi[1], hi);
  hi = Select(id2, Float4{} + kAtanHi[2], hi);
  Float4 lo = Select(id0, Float4{} + kAtanLo[0], Float4{} + kAtanLo[3]);
  lo = Select(id1, Float4{} + kAtanLo[1], lo);
  lo = Select(id2, Float4{} + kAtanLo[2], lo);
  const Float4 atan = Select(small, r - r * (s1 + s2), hi - ((r * (s1 + s2) - lo) - r));
  // The quadrant from the signs of y and x.
  const Bits4 yNegative = reinterpret_cast<Bits4>(reinterpret_cast<Int4>(hy) < 0);
  const Bits4 xNegative = reinterpret_cast<Bits4>(reinterpret_cast<Int4>(hx) < 0);
  const Float4 right = Select(yNegative, -atan, atan);
  const Float4 left = Select(yNegative, (atan - kAtanPiLo) - kAtanPi, kAtanPi - (atan - kAtanPiLo));
  return Select(yZero, y, Select(xNegative, left, right));
}

// Whether Atan2 gives the library's results: probes over every interval and quadrant.
bool AtanMatchesLibrary() {
  std::uint32_t seed = 12345u;
  for (int probe = 0; probe < 1024; ++probe) {
    Float4 y, x;
    for (int lane = 0; lane < 4; ++lane) {
      seed = seed * 1664525u + 1013904223u;
      const float u = static_cast<float>(seed >> 8) * (1.0f / 16777216.0f);  // [0, 1)
      seed = seed * 1664525u + 1013904223u;
      const float v = static_cast<float>(seed >> 8) * (1.0f / 16777216.0f);
      y[lane] = (lane & 1) ? -u : u;
      x[lane] = ((lane & 2) ? -v : v) * static_cast<float>(1 + probe % 5);
    }
    Bits4 other;
    const Float4 mine = Atan2(y, x, &other);
    for (int lane = 0; lane < 4; ++lane) {
      const float library = std::atan2(y[lane], x[lane]);
      // A lane of a vector has no address under clang: compare a copy of it, bit for bit.
      const float laneValue = mine[lane];
      if (other[lane] == 0 && std::memcmp(&laneValue, &library, sizeof library) != 0) {
        return false;
      }
    }
  }
  return true;
}

bool UseAtan2() {
  static const bool matches = AtanMatchesLibrary();
  return matches;
}

}  // namespace

void DrvQuaternion_GetEulerAnglesMany(DrvVector* out, const DrvQuaternion* q, int count) {
  int i = 0;
  if (UseAtan2()) {
    for (; i + 4 <= count; i += 4) {
      Float4 x, y, z, w;
      for (int lane = 0; lane < 4; ++lane) {
        x[lane] = q[i + lane].x;
        y[lane] = q[i + lane].y;
        z[lane] = q[i + lane].z;
        w[lane] = q[i + lane].w;
      }
      // The entries of DrvMatrix_FromQuaternion that the angles use, written as it writes them
      // (the others serve only at gimbal lock, which the one-at-a-time path handles).
      const Float4 m0 = 1.0f - 2.0f * (y * y + z * z);
      const Float4 m1 = 2.0f * (x * y + z * w);
      const Float4 m2 = 2.0f * (x * z - y * w);
      const Float4 m6 = 2.0f * (y * z + x * w);
      const Float4 m10 = 1.0f - 2.0f * (x * x + y * y);
      const Float4 squares = m0 * m0 + m1 * m1;
      Float4 root;
      for (int lane = 0; lane < 4; ++lane) root[lane] = std::sqrt(squares[lane]);
      Bits4 otherY, otherZ, otherX;
      Float4 ry = Atan2(-m2, root, &otherY);
      ry = Select(reinterpret_cast<Bits4>(ry < 0.0f), ry + kDrvTwoPi, ry);
      Float4 k;
      for (int lane = 0; lane < 4; ++lane) k[lane] = std::cos(ry[lane]);
      const Float4 rz = Atan2(m1 / k, m0 / k, &otherZ);
      const Float4 rx = Atan2(m6 / k, m10 / k, &otherX);
      // Gimbal lock, and every lane the library has to do, take the one-at-a-time path.
      const Float4 magnitude = reinterpret_cast<Float4>(reinterpret_cast<Bits4>(k) & 0x7FFFFFFFu);
      const Bits4 scalar = otherY | otherZ | otherX | ~reinterpret_cast<Bits4>(magnitude > 0.001f);
      for (int lane = 0; lane < 4; ++lane) {
        if (scalar[lane] != 0) {
          DrvQuaternion_GetEulerAngles(const_cast<DrvQuaternion*>(&q[i + lane]), &out[i + lane]);
        } else {
          out[i + lane].x = rx[lane] < 0.0f ? rx[lane] + kDrvTwoPi : rx[lane];
          out[i + lane].y = ry[lane];
          out[i + lane].z = rz[lane] < 0.0f ? rz[lane] + kDrvTwoPi : rz[lane];
        }
      }
    }
  }
  for (; i < count; ++i) DrvQuaternion_GetEulerAngles(const_cast<DrvQuaternion*>(&q[i]), &out[i]);
}

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
