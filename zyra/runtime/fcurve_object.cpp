// Function curves: key storage, batch edits, evaluation and range copies.
//
// Keys stay sorted by frame with one key per frame, except between BeginEdit and EndEdit where
// AddKey only appends; EndEdit restores the order. Cubic segments are Hermite segments whose end
// slopes come from the keys' own tangents when they have them and from their neighbours
// (Catmull-Rom, one-sided at the curve's ends) otherwise.
#include <algorithm>
#include <cmath>

#include "model.h"

namespace Zyra::rt {

namespace {

enum Kind : int { kConstant = 1, kLinear = 2, kCubic = 3 };

bool FrameLess(const FCurveKey& a, const FCurveKey& b) { return a.frame < b.frame; }

// The interpolation of the segment that starts at `key`; unknown codes fall back to cubic.
int SegmentKind(const FCurveObject& curve, const FCurveKey& key) {
  int kind = key.interpolation == 0 ? curve.interpolation : key.interpolation;
  return kind == kConstant || kind == kLinear ? kind : kCubic;
}

// The Catmull-Rom slope at key i: the chord between its neighbours, or the one-sided chord at
// either end of the curve.
double AutoSlope(const std::vector<FCurveKey>& keys, size_t i) {
  size_t n = keys.size();
  if (n < 2) return 0.0;
  size_t a = i == 0 ? 0 : i - 1;
  size_t b = i + 1 == n ? i : i + 1;
  return (keys[b].value - keys[a].value) / (keys[b].frame - keys[a].frame);
}

// Slope leaving key i to the right, and arriving at key i from the left. A handle without frame
// extent has no slope, so the key falls back to its neighbours for it.
double OutSlope(const std::vector<FCurveKey>& keys, size_t i) {
  const FCurveKey& k = keys[i];
  if (k.hasTangents && k.rightTanX != 0.0) return k.rightTanY / k.rightTanX;
  return AutoSlope(keys, i);
}

double InSlope(const std::vector<FCurveKey>& keys, size_t i) {
  const FCurveKey& k = keys[i];
  if (k.hasTangents && k.leftTanX != 0.0) return k.leftTanY / k.leftTanX;
  return AutoSlope(keys, i);
}

struct Sample {
  double value;
  double slope;  // d value / d frame
};

// Value and slope at `frame` inside the segment from key i to key i + 1.
Sample EvaluateSegment(const FCurveObject& curve, size_t i, double frame) {
  const FCurveKey& k0 = curve.keys[i];
  const FCurveKey& k1 = curve.keys[i + 1];
  double h = k1.frame - k0.frame;
  double t = (frame - k0.frame) / h;
  switch (SegmentKind(curve, k0)) {
    case kConstant:
      return {k0.value, 0.0};
    case kLinear:
      return {k0.value + t * (k1.value - k0.value), (k1.value - k0.value) / h};
    default: {
      double m0 = OutSlope(curve.keys, i) * h;
      double m1 = InSlope(curve.keys, i + 1) * h;
      double t2 = t * t;
      double t3 = t2 * t;
      double value = (2 * t3 - 3 * t2 + 1) * k0.value + (t3 - 2 * t2 + t) * m0 +
                     (-2 * t3 + 3 * t2) * k1.value + (t3 - t2) * m1;
      double derivative = (6 * t2 - 6 * t) * k0.value + (3 * t2 - 4 * t + 1) * m0 +
                          (-6 * t2 + 6 * t) * k1.value + (3 * t2 - 2 * t) * m1;
      return {value, derivative / h};
    }
  }
}

// Sorts keys appended during an edit and keeps the last key appended at each frame. Keys that
// arrived in frame order are only checked, so in-order batches stay linear.
void Normalise(std::vector<FCurveKey>& keys) {
  if (!std::is_sorted(keys.begin(), keys.end(), FrameLess)) {
    std::stable_sort(keys.begin(), keys.end(), FrameLess);
  }
  size_t kept = 0;
  for (size_t r = 0; r < keys.size(); ++r) {
    if (kept > 0 && keys[kept - 1].frame == keys[r].frame) {
      keys[kept - 1] = keys[r];
    } else {
      keys[kept++] = keys[r];
    }
  }
  keys.resize(kept);
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
    keys.push_back(key);
    return -1;
  }
  if (keys.empty() || key.frame > keys.back().frame) {
    keys.push_back(key);
    return static_cast<long>(keys.size()) - 1;
  }
  auto it = std::lower_bound(keys.begin(), keys.end(), key, FrameLess);
  if (it->frame == key.frame) {
    *it = key;
  } else {
    it = keys.insert(it, key);
  }
  return static_cast<long>(it - keys.begin());
}

void FCurveObject::RemoveKeys(double from, double to) {
  if (!(from <= to)) return;
  if (editDepth > 0) {  // keys are not in order yet
    keys.erase(std::remove_if(keys.begin(), keys.end(),
                              [&](const FCurveKey& k) { return from <= k.frame && k.frame <= to; }),
               keys.end());
    return;
  }
  auto first = std::lower_bound(keys.begin(), keys.end(), from,
                                [](const FCurveKey& k, double f) { return k.frame < f; });
  auto last = std::upper_bound(first, keys.end(), to,
                               [](double f, const FCurveKey& k) { return f < k.frame; });
  keys.erase(first, last);
}

long FCurveObject::FindKey(double frame) const {
  if (editDepth > 0) {  // the last key appended at a frame is the one that will stay
    for (size_t i = keys.size(); i-- > 0;) {
      if (keys[i].frame == frame) return static_cast<long>(i);
    }
    return -1;
  }
  auto it = std::lower_bound(keys.begin(), keys.end(), frame,
                             [](const FCurveKey& k, double f) { return k.frame < f; });
  if (it == keys.end() || it->frame != frame) return -1;
  return static_cast<long>(it - keys.begin());
}

double FCurveObject::Evaluate(double frame) const {
  if (keys.empty()) return 0.0;
  if (!(frame > keys.front().frame)) return keys.front().value;  // also NaN frames
  if (frame >= keys.back().frame) return keys.back().value;
  auto next = std::upper_bound(keys.begin(), keys.end(), frame,
                               [](double f, const FCurveKey& k) { return f < k.frame; });
  size_t i = static_cast<size_t>(next - keys.begin()) - 1;
  return EvaluateSegment(*this, i, frame).value;
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
  auto byFrame = [](const FCurveKey& k, double f) { return k.frame < f; };
  const size_t lo =
      static_cast<size_t>(std::lower_bound(keys.begin(), keys.end(), from, byFrame) - keys.begin());
  const size_t hi = static_cast<size_t>(
      std::upper_bound(keys.begin(), keys.end(), to,
                       [](double f, const FCurveKey& k) { return f < k.frame; }) -
      keys.begin());
  const bool trimmedLeft = lo > 0;
  const bool trimmedRight = hi < n;
  const bool cutLeft = trimmedLeft && lo < n && keys[lo].frame != from;
  const bool cutRight = trimmedRight && hi > 0 && keys[hi - 1].frame != to;

  // Keys of the copy with the slopes they must keep; handles are written once the neighbours
  // of each key in the copy are known.
  struct Pending {
    FCurveKey key;
    bool fix = false;
    double inSlope = 0, outSlope = 0;
  };
  std::vector<Pending> out;
  auto cut = [&](double frame, size_t segment) {
    Sample s = EvaluateSegment(*this, segment, frame);
    Pending p;
    p.key.frame = frame;
    p.key.value = s.value;
    p.key.interpolation = keys[segment].interpolation;
    p.fix = SegmentKind(*this, keys[segment]) == kCubic;
    p.inSlope = p.outSlope = s.slope;
    out.push_back(p);
  };
  if (cutLeft) cut(from, lo - 1);
  for (size_t i = lo; i < hi; ++i) {
    Pending p;
    p.key = keys[i];
    // An end key that lost a neighbour would get another automatic slope: keep the old one.
    bool end = (i == lo && trimmedLeft) || (i + 1 == hi && trimmedRight);
    if (end && !keys[i].hasTangents) {
      p.fix = true;
      p.inSlope = InSlope(keys, i);
      p.outSlope = OutSlope(keys, i);
    }
    out.push_back(p);
  }
  if (cutRight && (out.empty() || out.back().key.frame != to)) cut(to, hi - 1);
  if (out.empty()) {  // the range lies beside the keys, where the curve is flat
    Pending p;
    p.key.frame = from;
    p.key.value = Evaluate(from);
    out.push_back(p);
  }

  copy->keys.reserve(out.size());
  for (size_t i = 0; i < out.size(); ++i) {
    FCurveKey key = out[i].key;
    if (out[i].fix) {
      double leftSpan = i > 0 ? key.frame - out[i - 1].key.frame : 0.0;
      double rightSpan = i + 1 < out.size() ? out[i + 1].key.frame - key.frame : 0.0;
      WriteTangents(key, out[i].inSlope, out[i].outSlope, leftSpan, rightSpan);
    }
    copy->keys.push_back(key);
  }
  return copy;
}

}  // namespace Zyra::rt
