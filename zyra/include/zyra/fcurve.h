// Function curves: the keyed animation of a parameter or of an action source item.
#pragma once

#include "zyra/object.h"

namespace Zyra {

// The value that stands for "not given" in tangent and time arguments.
inline constexpr double kUnsetValue = 1.7976931348623157e308;

// Curve interpolation codes; key interpolation 0 means "the curve's".
enum siFCurveInterpolation : int {
  siDefaultInterpolation = 0,
  siConstantInterpolation = 1,
  siLinearInterpolation = 2,
  siCubicInterpolation = 3,
};

// Keys (frame, value, interpolation, optional tangents) sorted by frame, one per frame.
// Evaluation is constant before the first and after the last key and follows the left key's
// interpolation in between; cubic segments use the keys' tangents when they were given and
// Catmull-Rom slopes otherwise. A handle to a deleted curve is invalid; its calls fail.
class ZYRA_API FCurve : public ProjectItem {
 public:
  FCurve() = default;
  FCurve(const CRef& ref);  // NOLINT: handles convert freely
  ZYRA_HANDLE_FROM_OBJECT(FCurve)

  // 0 for an invalid handle.
  long GetKeyCount() const;
  // Frame, value and interpolation code (0..3) of key `index`; frame 0, an empty value and -1
  // when there is no such key.
  CTime GetKeyTime(long index) const;
  CValue GetKeyValue(long index) const;
  int GetKeyInterpolation(long index) const;
  // The index of the key at exactly `time`, or -1.
  long GetKeyIndex(const CTime& time) const;

  // Adds a key, or replaces the key (value, interpolation, tangents) at a frame that has one.
  // Tangents are (frame offset, value offset) handles and count only when all four are given.
  // `index` receives the key's index (-1 between BeginEdit and EndEdit). Fails with
  // InvalidArgument on a non-finite time or value, a value that is not a number, or an
  // interpolation outside 0..3; the curve is then unchanged.
  CStatus AddKey(const CTime& time, const CValue& value, int keyInterpolation = 0,
                 double lTanX = kUnsetValue, double lTanY = kUnsetValue, double rTanX = kUnsetValue,
                 double rTanY = kUnsetValue, long* index = nullptr);
  // Removes the keys with from <= frame <= to; an unset bound is open. Nothing is removed when
  // from > to.
  CStatus RemoveKeys(const CTime& from = CTime(kUnsetValue), const CTime& to = CTime(kUnsetValue));
  // Fails with InvalidArgument when there is no key `index`.
  CStatus RemoveKeyAtIndex(long index);

  // The value at `time` (CTime::Current(): the current frame); 0 for an invalid handle or a curve
  // without keys.
  double Eval(const CTime& time = CTime::Current()) const;
  // The values at the frames first, first + 1, ..., first + count - 1, into out[0 .. count - 1]:
  // Eval at each of them, in one call (a sampler of a long take pays for the handle once). False,
  // and `out` untouched, for an invalid handle.
  bool EvalFrames(double first, int count, double* out) const;

  // Curve interpolation: 1 constant, 2 linear, 3 cubic. Other codes fail with InvalidArgument.
  int GetInterpolation() const;
  CStatus PutInterpolation(int interpolation);

  // Between BeginEdit and EndEdit, AddKey appends without keeping the order; EndEdit sorts and
  // keeps the last key added at each frame. Edits nest; the outermost EndEdit settles the keys.
  // Replaces every key by one key per frame, all with `keyInterpolation`: the fast way to key a
  // long take. The frames must be finite and strictly increasing and the two arrays of one size;
  // otherwise it fails with InvalidArgument and the curve is unchanged.
  CStatus SetKeys(const CDoubleArray& frames, const CDoubleArray& values, int keyInterpolation = 0);
  CStatus BeginEdit();
  CStatus EndEdit();
};

}  // namespace Zyra
