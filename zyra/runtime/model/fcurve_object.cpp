// Function curves: key storage, batch edits, evaluation and range copies.
//
// Keys stay sorted by frame with one key per frame, except between BeginEdit and EndEdit where
// AddKey only appends; EndEdit restores the order. On evenly spaced keys the segment of a frame
// is found by a division, otherwise by a binary search (see FCurveKeys). Cubic segments are Hermite
// segments whose end slopes come from the keys' own tangents when they have them and from their
// neighbours (Catmull-Rom, one-sided at the curve's ends) otherwise.
#include <algorithm>
#include <cmath>

#include "model/model.h"

namespace Zyra::rt {

namespace {

enum Kind : int { kConstant = 1, kLinear = 2, kCubic = 3 };

// The interpolation of the segment that starts at key i; unknown codes fall back to cubic.
int SegmentKind(const FCurveObject& curve, size_t i) {
  int code = curve.keys.Interpolation(i);
  int kind = code == 0 ? curve.interpolation : code;
  return kind == kConstant || kind == kLinear ? kind : kCubic;
}

// The Catmull-Rom slope at key i: the chord between its neighbours, or the one-sided chord at
// either end of the curve.
double AutoSlope(const FCurveKeys& keys, size_t i) {
  size_t n = keys.size();
  if (n < 2) return 0.0;
  size_t a = i == 0 ? 0 : i - 1;
  size_t b = i + 1 == n ? i : i + 1;
  return (keys.Value(b) - keys.Value(a)) / (keys.Frame(b) - keys.Frame(a));
}

// Slope leaving key i to the right, and arriving at key i from the left. A handle without frame
// extent has no slope, so the key falls back to its neighbours for it.
double OutSlope(const FCurveKeys& keys, size_t i) {
  const KeyTangents* t = keys.TangentsOf(i);
  if (t && t->rightX != 0.0) return t->rightY / t->rightX;
  return AutoSlope(keys, i);
}

double InSlope(const FCurveKeys& keys, size_t i) {
  const KeyTangents* t = keys.TangentsOf(i);
  if (t && t->leftX != 0.0) return t->leftY / t->leftX;
  return AutoSlope(keys, i);
}

struct Sample {
  double value;
  double slope;  // d value / d frame
};

// Value and slope at `frame` inside the segment from key i to key i + 1.
Sample EvaluateSegment(const FCurveObject& curve, size_t i, double frame) {
  const FCurveKeys& keys = curve.keys;
  const double f0 = keys.Frame(i), v0 = keys.Value(i);
  const double v1 = keys.Value(i + 1);
  double h = keys.Frame(i + 1) - f0;
  double t = (frame - f0) / h;
  switch (SegmentKind(curve, i)) {
    case kConstant:
      return {v0, 0.0};
    case kLinear:
      return {v0 + t * (v1 - v0), (v1 - v0) / h};
    default: {
      double m0 = OutSlope(keys, i) * h;
      double m1 = InSlope(keys, i + 1) * h;
      double t2 = t * t;
      double t3 = t2 * t;
      double value = (2 * t3 - 3 * t2 + 1) * v0 + (t3 - 2 * t2 + t) * m0 + (-2 * t3 + 3 * t2) * v1 +
                     (t3 - t2) * m1;
      double derivative = (6 * t2 - 6 * t) * v0 + (3 * t2 - 4 * t + 1) * m0 +
                          (-6 * t2 + 6 * t) * v1 + (3 * t2 - 2 * t) * m1;
      return {value, derivative / h};
    }
  }
}

// Sorts keys appended during an edit and keeps the last key appended at each frame. Keys that
// arrived in strictly increasing frame order are only checked (evenly spaced ones not even
// that), so in-order batches stay linear.
void Normalise(FCurveKeys& keys) {
  double start = 0, step = 0;
  if (keys.EvenFrames(start, step)) return;
  bool strict = true;
  for (size_t i = 1; strict && i < keys.size(); ++i) strict = keys.Frame(i - 1) < keys.Frame(i);
  if (strict) return;
  std::vector<FCurveKey> all = keys;
  std::stable_sort(all.begin(), all.end(),
                   [](const FCurveKey& a, const FCurveKey& b) { return a.frame < b.frame; });
  size_t kept = 0;
  for (size_t r = 0; r < all.size(); ++r) {
    if (kept > 0 && all[kept - 1].frame == all[r].frame) {
      all[kept - 1] = all[r];
    } else {
      all[kept++] = all[r];
    }
  }
  all.resize(kept);
  keys = all;
}

// Gives a key explicit handles of the given slopes, a third of the neighbouring interval long
// (one frame where there is no neighbour).
void WriteTangents(FCurveKey& key, double inSlope, double outSlope, double leftSpan,
                   double rightSpan) {
  double left = leftSpan > 0 ? leftSpan / 3.0 : 1.0;
  double right = rightSpan > 0 ? rightSpan / 3.0 : 1.0;
  key.leftTanX = -left;
  key.leftTanY = -left * inSlope;
  key.rightTanX = right;
  key.rightTanY = right * outSlope;
  key.hasTangents = true;
}

}  // namespace

long FCurveObject::AddKey(const FCurveKey& key) {
  if (!std::isfinite(key.frame)) return -1;  // such a key could never be ordered
  if (editDepth > 0) {
    keys.PushBack(key);
    return -1;
  }
  const size_t n = keys.size();
  if (n == 0 || key.frame > keys.Frame(n - 1)) {
    keys.PushBack(key);
    return static_cast<long>(n);
  }
  size_t at = keys.LowerBound(key.frame);
  if (keys.Frame(at) == key.frame) {
    keys.Set(at, key);
  } else {
    keys.Insert(at, key);
  }
  return static_cast<long>(at);
}

void FCurveObject::RemoveKeys(double from, double to) {
  if (!(from <= to)) return;
  if (editDepth > 0) {  // keys are not in order yet: one pass over all of them
    std::vector<FCurveKey> kept = keys;
    const auto removed = std::remove_if(kept.begin(), kept.end(), [&](const FCurveKey& key) {
      return from <= key.frame && key.frame <= to;
    });
    if (removed == kept.end()) return;
    kept.erase(removed, kept.end());
    keys = kept;
    return;
  }
  keys.Erase(keys.LowerBound(from), keys.UpperBound(to));
}

long FCurveObject::FindKey(double frame) const {
  if (editDepth > 0) {  // the last key appended at a frame is the one that will stay
    for (size_t i = keys.size(); i-- > 0;) {
      if (keys.Frame(i) == frame) return static_cast<long>(i);
    }
    return -1;
  }
  size_t at = keys.LowerBound(frame);
  if (at == keys.size() || keys.Frame(at) != frame) return -1;
  return static_cast<long>(at);
}

double FCurveObject::Evaluate(double frame) const {
  const size_t n = keys.size();
  if (n == 0) return 0.0;
  if (!(frame > keys.Frame(0))) return keys.Value(0);  // also NaN frames
  if (frame >= keys.Frame(n - 1)) return keys.Value(n - 1);
  return EvaluateSegment(*this, keys.UpperBound(frame) - 1, frame).value;
}

void FCurveObject::EndEdit() {
  if (editDepth > 0) --editDepth;
  if (editDepth == 0) Normalise(keys);
}

std::shared_ptr<FCurveObject> FCurveObject::Clone() const {
  auto copy = std::make_shared<FCurveObject>();
  copy->interpolation = interpolation;
  copy->keys = keys;
  if (editDepth > 0) Normalise(copy->keys);
  return copy;
}

std::shared_ptr<FCurveObject> FCurveObject::CloneRange(double from, double to) const {
  if (editDepth > 0) return Clone()->CloneRange(from, to);
  auto copy = std::make_shared<FCurveObject>();
  copy->interpolation = interpolation;
  if (keys.empty() || !(from <= to)) return copy;

  const size_t n = keys.size();
  const size_t lo = keys.LowerBound(from);
  const size_t hi = keys.UpperBound(to);
  const bool trimmedLeft = lo > 0;
  const bool trimmedRight = hi < n;
  const bool cutLeft = trimmedLeft && lo < n && keys.Frame(lo) != from;
  const bool cutRight = trimmedRight && hi > 0 && keys.Frame(hi - 1) != to;

  // Keys that need handles written get them once their neighbours in the copy are known: a key
  // made where a bound cuts a cubic segment, and an end key that lost a neighbour (it would get
  // another automatic slope).
  struct Fix {
    size_t at;  // index in the copy
    double inSlope, outSlope;
  };
  std::vector<Fix> fixes;
  FCurveKeys& out = copy->keys;
  out.Reserve(hi - lo + 2);
  auto cut = [&](double frame, size_t segment) {
    Sample s = EvaluateSegment(*this, segment, frame);
    FCurveKey key;
    key.frame = frame;
    key.value = s.value;
    key.interpolation = keys.Interpolation(segment);
    if (SegmentKind(*this, segment) == kCubic) fixes.push_back({out.size(), s.slope, s.slope});
    out.PushBack(key);
  };
  if (cutLeft) cut(from, lo - 1);
  for (size_t i = lo; i < hi; ++i) {
    bool end = (i == lo && trimmedLeft) || (i + 1 == hi && trimmedRight);
    if (end && !keys.TangentsOf(i))
      fixes.push_back({out.size(), InSlope(keys, i), OutSlope(keys, i)});
    out.PushBack(keys.Get(i));
  }
  if (cutRight && (out.empty() || out.Frame(out.size() - 1) != to)) cut(to, hi - 1);
  if (out.empty()) {  // the range lies beside the keys, where the curve is flat
    FCurveKey key;
    key.frame = from;
    key.value = Evaluate(from);
    out.PushBack(key);
  }

  for (const Fix& f : fixes) {
    FCurveKey key = out.Get(f.at);
    double leftSpan = f.at > 0 ? key.frame - out.Frame(f.at - 1) : 0.0;
    double rightSpan = f.at + 1 < out.size() ? out.Frame(f.at + 1) - key.frame : 0.0;
    WriteTangents(key, f.inSlope, f.outSlope, leftSpan, rightSpan);
    out.Set(f.at, key);
  }
  return copy;
}

}  // namespace Zyra::rt
