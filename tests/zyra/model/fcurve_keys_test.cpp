// FCurve key columns: every key reads back exactly whatever the storage form, edits that break a
// compact form widen it without losing a key (checked against a plain vector of keys), compact
// forms cost what they promise, and the searches agree with a binary search over the frames.
#include "model/fcurve_keys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

using Zyra::rt::FCurveKey;
using Zyra::rt::FCurveKeys;

FCurveKey Key(double frame, double value, int code = 0) {
  FCurveKey k;
  k.frame = frame;
  k.value = value;
  k.interpolation = code;
  return k;
}

FCurveKey WithTangents(FCurveKey k, double s) {
  k.hasTangents = true;
  k.leftTanX = -s;
  k.leftTanY = 2 * s;
  k.rightTanX = s;
  k.rightTanY = -0.1 * s;
  return k;
}

void ExpectSame(const FCurveKeys& keys, const std::vector<FCurveKey>& model, const char* step) {
  ASSERT_EQ(keys.size(), model.size()) << step;
  for (size_t i = 0; i < model.size(); ++i) {
    FCurveKey a = keys.Get(i), b = model[i];
    EXPECT_TRUE(a.frame == b.frame && a.value == b.value && a.interpolation == b.interpolation &&
                a.hasTangents == b.hasTangents)
        << step << ", key " << i;
    if (b.hasTangents) {
      EXPECT_TRUE(a.leftTanX == b.leftTanX && a.leftTanY == b.leftTanY &&
                  a.rightTanX == b.rightTanX && a.rightTanY == b.rightTanY)
          << step << ", key " << i;
    }
  }
}

TEST(FCurveKeys, EachFormHoldsItsKeysExactlyAtItsSize) {
  const size_t n = 50;
  struct Case {
    const char* name;
    std::function<FCurveKey(size_t)> key;
    size_t bytes;  // key data held for n keys
  };
  const size_t tangent = sizeof(Zyra::rt::KeyTangents);
  for (const Case& c : {
           Case{"sampled take", [](size_t i) { return Key(2 + 0.5 * i, 0.25f * i - 3.1f); }, 4 * n},
           Case{"doubles", [](size_t i) { return Key(1 + 1.0 * i, 0.1 * i); }, 8 * n},
           Case{"irregular frames", [](size_t i) { return Key(i * i, 1.5); }, 12 * n},
           Case{"mixed interpolation", [](size_t i) { return Key(i, 1, static_cast<int>(i % 4)); },
                5 * n},
           Case{"tangents on every tenth key",
                [](size_t i) { return i % 10 ? Key(i, 2) : WithTangents(Key(i, 2), 1.0 / 3); },
                4 * n + n / 10 * tangent},
       }) {
    std::vector<FCurveKey> model;
    FCurveKeys pushed;
    for (size_t i = 0; i < n; ++i) {
      model.push_back(c.key(i));
      pushed.PushBack(model.back());
    }
    ExpectSame(pushed, model, c.name);
    EXPECT_EQ(pushed.Bytes(), c.bytes) << c.name;
    FCurveKeys assigned;
    assigned = model;
    ExpectSame(assigned, model, c.name);
    EXPECT_EQ(assigned.Bytes(), c.bytes) << c.name;
  }
}

// Random edits on a sampled take, mirrored on a vector: values that are no float, frames off
// the grid, codes, tangents added and dropped, inserts and erases anywhere.
TEST(FCurveKeys, EditsWidenColumnsWithoutLosingAKey) {
  std::mt19937 rng(17);
  for (int round = 0; round < 40; ++round) {
    std::vector<FCurveKey> model;
    for (int i = 0; i < 30; ++i) model.push_back(Key(10 + 2.0 * i, static_cast<float>(i) / 8));
    FCurveKeys keys;
    keys = model;
    for (int edit = 0; edit < 25; ++edit) {
      size_t i = rng() % model.size();
      FCurveKey k = model[i];
      switch (rng() % 6) {
        case 0:
          k.value = 0.1 * static_cast<double>(rng() % 100);
          break;
        case 1:
          k.interpolation = static_cast<int>(rng() % 4);
          break;
        case 2:
          k = rng() % 2 ? WithTangents(k, 1 + static_cast<double>(rng() % 5))
                        : Key(k.frame, k.value, k.interpolation);
          break;
        case 3: {  // a key just before key i, off the grid
          FCurveKey inserted = WithTangents(Key(model[i].frame - 0.25, -1), 0.5);
          model.insert(model.begin() + static_cast<long>(i), inserted);
          keys.Insert(i, inserted);
          continue;
        }
        case 4: {
          size_t last = std::min(model.size(), i + 1 + rng() % 3);
          if (last - i == model.size()) continue;
          model.erase(model.begin() + static_cast<long>(i),
                      model.begin() + static_cast<long>(last));
          keys.Erase(i, last);
          continue;
        }
        default:
          model.push_back(Key(model.back().frame + 2.0, 3.0));
          keys.PushBack(model.back());
          continue;
      }
      model[i] = k;
      keys[i] = k;
    }
    ExpectSame(keys, model, "after the edits");
    if (HasFailure()) return;
  }
}

TEST(FCurveKeys, SearchesAgreeWithABinarySearch) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  struct Grid {
    double start, step;
  };
  for (Grid g : {Grid{0, 1}, Grid{-3, 0.1}, Grid{1.0 / 3, 1.0 / 3}, Grid{1e9, 1.0 / 120}}) {
    // The step as the frames themselves give it, so that the grid is exact far from 0 too.
    const double step = (g.start + g.step) - g.start;
    std::vector<double> frames, values(200, 1.0);
    for (size_t i = 0; i < 200; ++i) frames.push_back(g.start + step * static_cast<double>(i));
    FCurveKeys keys;
    keys.Assign(frames.data(), values.data(), frames.size(), 0);
    double start = 0, even = 0;
    ASSERT_TRUE(keys.EvenFrames(start, even));
    std::vector<double> probes = {nan, inf, -inf, g.start - g.step, frames.back() + g.step};
    for (size_t i = 0; i < frames.size(); i += 7) {
      for (double d : {-0.5, 0.0, 0.5}) probes.push_back(frames[i] + d * g.step);
      probes.push_back(std::nextafter(frames[i], -inf));
      probes.push_back(std::nextafter(frames[i], inf));
    }
    for (double f : probes) {
      size_t lower =
          static_cast<size_t>(std::lower_bound(frames.begin(), frames.end(), f) - frames.begin());
      size_t upper =
          static_cast<size_t>(std::upper_bound(frames.begin(), frames.end(), f) - frames.begin());
      EXPECT_EQ(keys.LowerBound(f), lower) << "start " << g.start << " frame " << f;
      EXPECT_EQ(keys.UpperBound(f), upper) << "start " << g.start << " frame " << f;
    }
  }
}

}  // namespace
