// Function curves: every interpolation against hand-computed values or an independent Bezier
// evaluation, extrapolation, key replacement, batch edits, removal ranges, range copies and the
// SDK handle's refusals.
#include "zyra/fcurve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace {

using Zyra::CRef;
using Zyra::CStatus;
using Zyra::CTime;
using Zyra::CValue;
using Zyra::FCurve;
using Zyra::kUnsetValue;
namespace rt = Zyra::rt;

rt::FCurveKey Key(double frame, double value, int interpolation = 0) {
  rt::FCurveKey k;
  k.frame = frame;
  k.value = value;
  k.interpolation = interpolation;
  return k;
}

std::shared_ptr<rt::FCurveObject> Curve(const std::vector<std::pair<double, double>>& keys,
                                        int interpolation) {
  auto c = std::make_shared<rt::FCurveObject>();
  c->interpolation = interpolation;
  for (auto [f, v] : keys) c->AddKey(Key(f, v));
  return c;
}

// Catmull-Rom spline evaluated as a Bezier curve by de Casteljau's construction: the slope at an
// inner key is the chord of its neighbours, one-sided at the ends; control points sit a third of
// the segment along those slopes.
double CatmullRomOracle(const std::vector<std::pair<double, double>>& k, double x) {
  if (x <= k.front().first) return k.front().second;
  if (x >= k.back().first) return k.back().second;
  size_t i = 0;
  while (k[i + 1].first <= x) ++i;
  auto slope = [&](size_t j) {
    size_t a = j == 0 ? 0 : j - 1;
    size_t b = j + 1 == k.size() ? j : j + 1;
    return (k[b].second - k[a].second) / (k[b].first - k[a].first);
  };
  double h = k[i + 1].first - k[i].first;
  double p[4] = {k[i].second, k[i].second + slope(i) * h / 3,
                 k[i + 1].second - slope(i + 1) * h / 3, k[i + 1].second};
  double t = (x - k[i].first) / h;
  for (int level = 3; level > 0; --level) {
    for (int j = 0; j < level; ++j) p[j] = p[j] + t * (p[j + 1] - p[j]);
  }
  return p[0];
}

TEST(FCurveObject, InterpolationsMatchHandComputedValues) {
  {  // Constant holds the left key's value up to the next key.
    auto cPtr = Curve({{0, 1}, {10, 5}}, 1);
    auto& c = *cPtr;
    EXPECT_DOUBLE_EQ(c.Evaluate(5), 1);
    EXPECT_DOUBLE_EQ(c.Evaluate(9.999), 1);
    EXPECT_DOUBLE_EQ(c.Evaluate(10), 5);
  }
  {  // Linear, over segments of different lengths and directions.
    auto cPtr = Curve({{0, 0}, {10, 5}, {14, -3}}, 2);
    auto& c = *cPtr;
    EXPECT_DOUBLE_EQ(c.Evaluate(2.5), 1.25);
    EXPECT_DOUBLE_EQ(c.Evaluate(12), 1);
    EXPECT_DOUBLE_EQ(c.Evaluate(13), -1);
  }
  {  // Two cubic keys: both one-sided slopes equal the chord, so the segment is a straight line.
    auto cPtr = Curve({{0, 0}, {10, 10}}, 3);
    auto& c = *cPtr;
    EXPECT_NEAR(c.Evaluate(3), 3, 1e-12);
    EXPECT_NEAR(c.Evaluate(7.5), 7.5, 1e-12);
  }
  {  // Cubic on uneven keys against the Bezier oracle, including the end segments.
    std::vector<std::pair<double, double>> keys = {{-4, 2}, {1, -1}, {2.5, 6}, {9, 0}, {20, 3}};
    auto cPtr = Curve(keys, 3);
    auto& c = *cPtr;
    for (double x = -4; x <= 20; x += 0.37) {
      EXPECT_NEAR(c.Evaluate(x), CatmullRomOracle(keys, x), 1e-9) << "frame " << x;
    }
    // Keys are hit exactly.
    for (auto [f, v] : keys) EXPECT_DOUBLE_EQ(c.Evaluate(f), v);
  }
  {  // Key codes override the curve's; code 0 follows the curve and changes with it.
    rt::FCurveObject c;
    c.interpolation = 2;
    c.AddKey(Key(0, 0, 1));    // constant segment 0..10
    c.AddKey(Key(10, 10, 0));  // curve's interpolation, 10..20
    c.AddKey(Key(20, 0, 0));
    EXPECT_DOUBLE_EQ(c.Evaluate(5), 0);
    EXPECT_DOUBLE_EQ(c.Evaluate(15), 5);
    c.interpolation = 1;
    EXPECT_DOUBLE_EQ(c.Evaluate(15), 10);
    EXPECT_DOUBLE_EQ(c.Evaluate(5), 0);
  }
  {  // Given tangents: flat handles at both ends make the smoothstep 3t^2 - 2t^3.
    rt::FCurveObject c;
    rt::FCurveKey a = Key(0, 0, 3), b = Key(10, 10, 3);
    a.hasTangents = b.hasTangents = true;
    a.rightTanX = 3;
    b.leftTanX = -3;
    c.AddKey(a);
    c.AddKey(b);
    EXPECT_NEAR(c.Evaluate(2.5), 10 * (3 * 0.0625 - 2 * 0.015625), 1e-12);
    EXPECT_NEAR(c.Evaluate(5), 5, 1e-12);
    // Only the slope of a handle counts, not its length: (2, 4) and (0.5, 1) both mean slope 2.
    c.keys[0].rightTanX = 2;
    c.keys[0].rightTanY = 4;
    double longHandle = c.Evaluate(3);
    c.keys[0].rightTanX = 0.5;
    c.keys[0].rightTanY = 1;
    EXPECT_DOUBLE_EQ(c.Evaluate(3), longHandle);
    // Hermite with m0 = 2 (per frame), m1 = 0 over h = 10, at t = 0.3.
    double t = 0.3;
    double expected = (t * t * t - 2 * t * t + t) * 20 + (-2 * t * t * t + 3 * t * t) * 10;
    EXPECT_NEAR(longHandle, expected, 1e-12);
  }
}

TEST(FCurveObject, ExtrapolationIsConstant) {
  {
    rt::FCurveObject empty;
    EXPECT_EQ(empty.Evaluate(3), 0);
  }
  {
    auto singlePtr = Curve({{5, 7}}, 3);
    auto& single = *singlePtr;
    EXPECT_EQ(single.Evaluate(-100), 7);
    EXPECT_EQ(single.Evaluate(5), 7);
    EXPECT_EQ(single.Evaluate(1e9), 7);
  }
  {
    auto cPtr = Curve({{0, 1}, {10, 4}, {20, -2}}, 3);
    auto& c = *cPtr;
    EXPECT_EQ(c.Evaluate(-1e300), 1);
    EXPECT_EQ(c.Evaluate(-0.001), 1);
    EXPECT_EQ(c.Evaluate(20.001), -2);
    EXPECT_EQ(c.Evaluate(std::numeric_limits<double>::infinity()), -2);
    EXPECT_EQ(c.Evaluate(std::nan("")), 1);
  }
}

TEST(FCurveObject, AddKeyKeepsOrderAndReplacesAtTheSameFrame) {
  rt::FCurveObject c;
  EXPECT_EQ(c.AddKey(Key(10, 1)), 0);
  EXPECT_EQ(c.AddKey(Key(30, 3)), 1);
  EXPECT_EQ(c.AddKey(Key(20, 2)), 1);     // inserted in the middle
  EXPECT_EQ(c.AddKey(Key(-5, 0)), 0);     // inserted at the front
  EXPECT_EQ(c.AddKey(Key(20, 9, 2)), 2);  // replaces: same index, no new key
  ASSERT_EQ(c.keys.size(), 4u);
  EXPECT_EQ(c.keys[2].value, 9);
  EXPECT_EQ(c.keys[2].interpolation, 2);
  for (size_t i = 1; i < c.keys.size(); ++i) EXPECT_LT(c.keys[i - 1].frame, c.keys[i].frame);
  EXPECT_EQ(c.FindKey(30), 3);
  EXPECT_EQ(c.FindKey(25), -1);
  EXPECT_EQ(c.FindKey(100), -1);
  // A frame that cannot be ordered is refused.
  EXPECT_EQ(c.AddKey(Key(std::nan(""), 1)), -1);
  EXPECT_EQ(c.AddKey(Key(std::numeric_limits<double>::infinity(), 1)), -1);
  EXPECT_EQ(c.keys.size(), 4u);
}

TEST(FCurveObject, BatchEditsGiveTheSameCurveAsSingleAdds) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> frame(0, 60);
  std::uniform_real_distribution<double> value(-5, 5);
  std::vector<rt::FCurveKey> adds;
  for (int i = 0; i < 300; ++i) adds.push_back(Key(frame(rng), value(rng), i % 4));  // many repeats

  rt::FCurveObject single, batch;
  single.AddKey(Key(30, 100));  // keys present before the edit take part as well
  batch.AddKey(Key(30, 100));
  for (const auto& k : adds) single.AddKey(k);
  batch.BeginEdit();
  for (const auto& k : adds) EXPECT_EQ(batch.AddKey(k), -1);
  batch.EndEdit();
  ASSERT_EQ(batch.keys.size(), single.keys.size());
  for (size_t i = 0; i < single.keys.size(); ++i) {
    EXPECT_EQ(batch.keys[i].frame, single.keys[i].frame);
    EXPECT_EQ(batch.keys[i].value, single.keys[i].value);
    EXPECT_EQ(batch.keys[i].interpolation, single.keys[i].interpolation);
  }
  {  // The last key appended at a frame wins, also against one from before the edit.
    rt::FCurveObject c;
    c.AddKey(Key(5, 1));
    c.BeginEdit();
    c.AddKey(Key(9, 2));
    c.AddKey(Key(5, 3));
    c.AddKey(Key(9, 4));
    c.AddKey(Key(1, 5));
    EXPECT_EQ(c.keys[static_cast<size_t>(c.FindKey(9))].value, 4);  // visible while editing
    c.EndEdit();
    ASSERT_EQ(c.keys.size(), 3u);
    EXPECT_EQ(c.keys[0].value, 5);
    EXPECT_EQ(c.keys[1].value, 3);
    EXPECT_EQ(c.keys[2].value, 4);
  }
  {  // Edits nest: only the outermost EndEdit settles the keys.
    rt::FCurveObject c;
    c.BeginEdit();
    c.BeginEdit();
    c.AddKey(Key(2, 0));
    c.AddKey(Key(1, 0));
    c.EndEdit();
    EXPECT_EQ(c.keys[0].frame, 2);
    c.EndEdit();
    EXPECT_EQ(c.keys[0].frame, 1);
    EXPECT_EQ(c.editDepth, 0);
  }
  {  // A clone taken during an edit is already settled.
    rt::FCurveObject c;
    c.BeginEdit();
    c.AddKey(Key(3, 1));
    c.AddKey(Key(1, 2));
    c.AddKey(Key(3, 7));
    auto copy = c.Clone();
    ASSERT_EQ(copy->keys.size(), 2u);
    EXPECT_EQ(copy->keys[1].value, 7);
    EXPECT_EQ(copy->editDepth, 0);
  }
}

TEST(FCurveObject, RemoveKeysTakesInclusiveRanges) {
  auto make = [] { return Curve({{0, 0}, {10, 1}, {20, 2}, {30, 3}, {40, 4}}, 2); };
  auto frames = [](const rt::FCurveObject& c) {
    std::vector<double> out;
    for (const auto& k : c.keys) out.push_back(k.frame);
    return out;
  };
  {
    auto cPtr = make();
    auto& c = *cPtr;
    c.RemoveKeys(10, 30);  // both ends inclusive
    EXPECT_EQ(frames(c), (std::vector<double>{0, 40}));
  }
  {
    auto cPtr = make();
    auto& c = *cPtr;
    c.RemoveKeys(11, 19);  // between keys: nothing
    c.RemoveKeys(30, 20);  // reversed: nothing
    c.RemoveKeys(std::nan(""), 50);
    EXPECT_EQ(c.keys.size(), 5u);
  }
  {
    auto cPtr = make();
    auto& c = *cPtr;
    c.RemoveKeys(20, 20);
    EXPECT_EQ(frames(c), (std::vector<double>{0, 10, 30, 40}));
    c.RemoveKeys(35, 1e9);
    EXPECT_EQ(frames(c), (std::vector<double>{0, 10, 30}));
  }
  {
    auto cPtr = make();
    auto& c = *cPtr;
    c.RemoveKeys();
    EXPECT_TRUE(c.keys.empty());
  }
  {  // During an edit, unordered keys are removed by frame as well.
    auto cPtr = make();
    auto& c = *cPtr;
    c.BeginEdit();
    c.AddKey(Key(25, 9));
    c.AddKey(Key(5, 9));
    c.RemoveKeys(5, 25);
    c.EndEdit();
    EXPECT_EQ(frames(c), (std::vector<double>{0, 30, 40}));
  }
}

TEST(FCurveObject, RangeCopyEvaluatesLikeTheCurveInsideTheRange) {
  rt::FCurveObject c;
  c.interpolation = 3;
  c.AddKey(Key(0, 0));
  c.AddKey(Key(4, 3));
  c.AddKey(Key(7, -2, 2));
  c.AddKey(Key(11, 1, 1));
  c.AddKey(Key(15, 6));
  rt::FCurveKey tangent = Key(22, 2, 3);
  tangent.hasTangents = true;
  tangent.leftTanX = -1;
  tangent.leftTanY = 4;
  tangent.rightTanX = 1;
  tangent.rightTanY = -4;
  c.AddKey(tangent);
  c.AddKey(Key(30, 0));
  struct Range {
    double from, to;
  };
  for (Range r : {Range{0, 30}, Range{4, 15}, Range{2, 26}, Range{5, 6}, Range{8, 8}, Range{12, 24},
                  Range{-10, 3}, Range{31, 40}, Range{-5, -1}}) {
    auto copy = c.CloneRange(r.from, r.to);
    ASSERT_FALSE(copy->keys.empty()) << r.from << ".." << r.to;
    for (const auto& k : copy->keys) {
      EXPECT_GE(k.frame, r.from);
      EXPECT_LE(k.frame, r.to);
    }
    for (size_t i = 1; i < copy->keys.size(); ++i)
      EXPECT_LT(copy->keys[i - 1].frame, copy->keys[i].frame);
    for (double x = r.from; x <= r.to; x += 0.25) {
      EXPECT_NEAR(copy->Evaluate(x), c.Evaluate(x), 1e-9)
          << "range " << r.from << ".." << r.to << " frame " << x;
    }
  }
  // A range that holds every key copies the curve unchanged.
  auto whole = c.CloneRange(-100, 100);
  ASSERT_EQ(whole->keys.size(), c.keys.size());
  for (size_t i = 0; i < c.keys.size(); ++i) {
    EXPECT_EQ(whole->keys[i].frame, c.keys[i].frame);
    EXPECT_EQ(whole->keys[i].hasTangents, c.keys[i].hasTangents);
  }
  EXPECT_TRUE(c.CloneRange(5, 1)->keys.empty());
  EXPECT_TRUE(rt::FCurveObject().CloneRange(0, 10)->keys.empty());
}

TEST(FCurveHandle, ChecksItsArgumentsAndFollowsItsCurve) {
  rt::Host::Get().NewScene();
  auto null = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Ball");
  Zyra::Parameter posy(CRef(null->local->FindParam(L"posy")->shared_from_this()));
  FCurve curve;
  ASSERT_TRUE(posy.AddFCurve(Zyra::siDefaultFCurve, curve).Succeeded());
  ASSERT_TRUE(curve.IsValid());
  EXPECT_EQ(curve.GetFullName(), Zyra::CString(L"Ball.kine.local.posy.fcrv"));

  long index = -2;
  EXPECT_TRUE(curve
                  .AddKey(CTime(10), CValue(4.0), 2, kUnsetValue, kUnsetValue, kUnsetValue,
                          kUnsetValue, &index)
                  .Succeeded());
  EXPECT_EQ(index, 0);
  EXPECT_TRUE(curve
                  .AddKey(CTime(0), CValue(L"2.5"), 0, kUnsetValue, kUnsetValue, kUnsetValue,
                          kUnsetValue, &index)
                  .Succeeded());  // numeric text is a number
  EXPECT_EQ(index, 0);
  EXPECT_EQ(curve.GetKeyCount(), 2);
  EXPECT_EQ(curve.GetKeyTime(1).GetTime(), 10);
  EXPECT_EQ(curve.GetKeyValue(0).AsDouble(), 2.5);
  EXPECT_EQ(curve.GetKeyInterpolation(1), 2);
  EXPECT_EQ(curve.GetKeyIndex(CTime(10)), 1);
  EXPECT_DOUBLE_EQ(posy.GetValue(CTime(5)).AsDouble(), curve.Eval(CTime(5)));
  {  // A range of frames, before, inside and after the keys, as Eval gives each.
    double values[14];
    ASSERT_TRUE(curve.EvalFrames(-2, 14, values));
    for (int i = 0; i < 14; ++i) EXPECT_EQ(values[i], curve.Eval(CTime(i - 2))) << i;
    EXPECT_FALSE(FCurve().EvalFrames(0, 1, values));
  }
  {  // Refusals leave the curve as it was.
    EXPECT_EQ(curve.AddKey(CTime(std::nan("")), CValue(1.0)).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.AddKey(CTime(3), CValue(L"tall")).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.AddKey(CTime(3), CValue()).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.AddKey(CTime(3), CValue(std::numeric_limits<double>::infinity())).GetCode(),
              CStatus::InvalidArgument);
    EXPECT_EQ(curve.AddKey(CTime(3), CValue(1.0), 4).GetCode(), CStatus::InvalidArgument);
    CStatus bad = curve.AddKey(CTime(3), CValue(1.0), -1);
    EXPECT_NE(bad.GetMessage().Wide().find(L"Ball.kine.local.posy"), std::wstring::npos);
    EXPECT_EQ(curve.PutInterpolation(0).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.PutInterpolation(4).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.GetInterpolation(), 3);
    EXPECT_EQ(curve.RemoveKeyAtIndex(2).GetCode(), CStatus::InvalidArgument);
    EXPECT_EQ(curve.RemoveKeyAtIndex(-1).GetCode(), CStatus::InvalidArgument);
    EXPECT_FALSE(curve.EndEdit().Succeeded());
    EXPECT_EQ(curve.GetKeyCount(), 2);
    EXPECT_TRUE(curve.GetKeyValue(2).IsEmpty());
    EXPECT_EQ(curve.GetKeyInterpolation(7), -1);
  }
  {  // Tangents count only when all four are given.
    ASSERT_TRUE(curve.AddKey(CTime(20), CValue(0.0), 3, -1, 0, 1, kUnsetValue).Succeeded());
    rt::FCurveObject& raw = *null->local->FindParam(L"posy")->fcurve;
    EXPECT_FALSE(raw.keys.back().hasTangents);
    ASSERT_TRUE(curve.AddKey(CTime(20), CValue(0.0), 3, -1, 0, 1, 0).Succeeded());
    EXPECT_TRUE(raw.keys.back().hasTangents);
    EXPECT_EQ(curve.GetKeyCount(), 3);
  }
  {  // Open and closed removal bounds.
    ASSERT_TRUE(curve.RemoveKeys(CTime(kUnsetValue), CTime(0)).Succeeded());
    EXPECT_EQ(curve.GetKeyCount(), 2);
    ASSERT_TRUE(curve.RemoveKeys(CTime(15)).Succeeded());
    EXPECT_EQ(curve.GetKeyCount(), 1);
    ASSERT_TRUE(curve.RemoveKeys().Succeeded());
    EXPECT_EQ(curve.GetKeyCount(), 0);
  }
  {  // Batch edit through the handle.
    ASSERT_TRUE(curve.BeginEdit().Succeeded());
    for (int f : {5, 3, 5, 1})
      ASSERT_TRUE(curve.AddKey(CTime(f), CValue(f * 2.0 + (f == 5 ? 1 : 0))).Succeeded());
    ASSERT_TRUE(curve.EndEdit().Succeeded());
    ASSERT_EQ(curve.GetKeyCount(), 3);
    EXPECT_EQ(curve.GetKeyTime(0).GetTime(), 1);
    EXPECT_EQ(curve.GetKeyValue(2).AsDouble(), 11);
  }
  {  // Removing the animation invalidates the handle; its calls fail without harm.
    ASSERT_TRUE(posy.RemoveAnimation().Succeeded());
    EXPECT_FALSE(curve.IsValid());
    EXPECT_EQ(curve.GetKeyCount(), 0);
    EXPECT_EQ(curve.Eval(CTime(1)), 0);
    EXPECT_FALSE(curve.AddKey(CTime(1), CValue(1.0)).Succeeded());
    EXPECT_FALSE(curve.RemoveKeys().Succeeded());
    EXPECT_FALSE(FCurve(CRef(null)).IsValid());  // another class gives an invalid handle
  }
}

}  // namespace

TEST(FCurveHandle, SetKeysReplacesTheKeysOrRefusesAndKeepsThem) {
  rt::Host::Get().NewScene();
  auto null = rt::CreateX3D(rt::Host::Get().scene().root, Zyra::siX3DObjectID, L"null", L"Take");
  Zyra::Parameter rotx(CRef(null->local->FindParam(L"rotx")->shared_from_this()));
  FCurve curve;
  ASSERT_TRUE(rotx.AddFCurve(Zyra::siValueFCurve, curve).Succeeded());
  ASSERT_TRUE(curve.AddKey(CTime(50), CValue(9.0)).Succeeded());
  Zyra::CDoubleArray frames(std::vector<double>{0, 2, 4}), values(std::vector<double>{1, 3, 5});
  ASSERT_TRUE(curve.SetKeys(frames, values, 2).Succeeded());
  ASSERT_EQ(curve.GetKeyCount(), 3) << "the earlier key is replaced";
  EXPECT_DOUBLE_EQ(curve.Eval(CTime(3)), 4.0);
  EXPECT_EQ(curve.GetKeyInterpolation(2), 2);
  const Zyra::CDoubleArray bad[][2] = {
      {Zyra::CDoubleArray(std::vector<double>{0, 1}), values},
      {Zyra::CDoubleArray(std::vector<double>{0, 4, 4}), values},
      {Zyra::CDoubleArray(std::vector<double>{0, 1, std::nan("")}), values},
  };
  for (const auto& b : bad) {
    EXPECT_FALSE(curve.SetKeys(b[0], b[1]).Succeeded());
    EXPECT_EQ(curve.GetKeyCount(), 3);
    EXPECT_DOUBLE_EQ(curve.GetKeyValue(0).AsDouble(), 1.0);
  }
  EXPECT_FALSE(curve.SetKeys(frames, values, 4).Succeeded());
}
