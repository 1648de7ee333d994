// The SDK's FCurve handle over rt::FCurveObject.
#include "zyra/fcurve.h"

#include <cmath>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra {

static_assert(kUnsetValue == rt::kUnsetTangent, "the SDK and the runtime must agree on 'unset'");

namespace {

bool IsFCurveClass(siClassID id) { return id == siFCurveID; }

std::shared_ptr<rt::FCurveObject> CurveOf(const CRef& ref) {
  auto object = ref.Get();
  if (!object || object->classId != siFCurveID) return nullptr;
  return std::static_pointer_cast<rt::FCurveObject>(object);
}

CStatus Deleted() {
  return CStatus(CStatus::InvalidArgument, L"The fcurve was deleted or is invalid.");
}

double FrameOf(const CTime& time) {
  return time.IsCurrent() ? rt::Host::Get().CurrentFrame() : time.GetTime();
}

// A finite number from a numeric, bool or numeric-text value; numbers skip the conversion copy.
bool ToNumber(const CValue& value, double& out) {
  switch (value.GetType()) {
    case siDouble:
    case siFloat:
    case siInt4:
    case siBool:
      out = value.AsDouble();
      break;
    case siString: {
      CValue converted;
      if (!value.ChangeType(siDouble, converted).Succeeded()) return false;
      out = converted.AsDouble();
      break;
    }
    default:
      return false;
  }
  return std::isfinite(out);
}

std::wstring Number(double value) { return CValue(value).GetAsText().Wide(); }

}  // namespace

FCurve::FCurve(const CRef& ref) : ProjectItem(ref, IsFCurveClass) {}

long FCurve::GetKeyCount() const {
  auto curve = CurveOf(ref_);
  return curve ? static_cast<long>(curve->keys.size()) : 0;
}

CTime FCurve::GetKeyTime(long index) const {
  auto curve = CurveOf(ref_);
  if (!curve || index < 0 || index >= static_cast<long>(curve->keys.size())) return CTime(0.0);
  return CTime(curve->keys.Frame(static_cast<size_t>(index)));
}

CValue FCurve::GetKeyValue(long index) const {
  auto curve = CurveOf(ref_);
  if (!curve || index < 0 || index >= static_cast<long>(curve->keys.size())) return CValue();
  return CValue(curve->keys.Value(static_cast<size_t>(index)));
}

int FCurve::GetKeyInterpolation(long index) const {
  auto curve = CurveOf(ref_);
  if (!curve || index < 0 || index >= static_cast<long>(curve->keys.size())) return -1;
  return curve->keys.Interpolation(static_cast<size_t>(index));
}

long FCurve::GetKeyIndex(const CTime& time) const {
  auto curve = CurveOf(ref_);
  return curve ? curve->FindKey(FrameOf(time)) : -1;
}

CStatus FCurve::AddKey(const CTime& time, const CValue& value, int keyInterpolation, double lTanX,
                       double lTanY, double rTanX, double rTanY, long* index) {
  if (index) *index = -1;
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  // Built only on failure: keying must stay cheap for long in-order batches.
  auto where = [&curve] { return L"Cannot key " + curve->FullName() + L": "; };
  double frame = FrameOf(time);
  if (!std::isfinite(frame)) {
    return CStatus(CStatus::InvalidArgument,
                   where() + L"the frame " + Number(frame) + L" is not finite.");
  }
  double number = 0;
  if (!ToNumber(value, number)) {
    return CStatus(CStatus::InvalidArgument, where() + L"the value \"" + value.GetAsText().Wide() +
                                                 L"\" is not a finite number.");
  }
  if (keyInterpolation < siDefaultInterpolation || keyInterpolation > siCubicInterpolation) {
    return CStatus(CStatus::InvalidArgument,
                   where() + L"key interpolation " + std::to_wstring(keyInterpolation) +
                       L" is not one of 0 (curve's), 1 constant, 2 linear, 3 cubic.");
  }
  rt::FCurveKey key;
  key.frame = frame;
  key.value = number;
  key.interpolation = keyInterpolation;
  const double tangents[] = {lTanX, lTanY, rTanX, rTanY};
  bool allSet = true;
  for (double t : tangents) {
    if (t == kUnsetValue) {
      allSet = false;
    } else if (!std::isfinite(t)) {
      return CStatus(CStatus::InvalidArgument, where() + L"a tangent is not finite.");
    }
  }
  if (allSet) {
    key.leftTanX = lTanX;
    key.leftTanY = lTanY;
    key.rightTanX = rTanX;
    key.rightTanY = rTanY;
    key.hasTangents = true;
  }
  long at = curve->AddKey(key);
  if (index) *index = at;
  return CStatus::OK;
}

CStatus FCurve::RemoveKeys(const CTime& from, const CTime& to) {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  double lo = from.GetTime() == kUnsetValue ? -kUnsetValue : FrameOf(from);
  double hi = to.GetTime() == kUnsetValue ? kUnsetValue : FrameOf(to);
  curve->RemoveKeys(lo, hi);
  return CStatus::OK;
}

CStatus FCurve::RemoveKeyAtIndex(long index) {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  if (index < 0 || index >= static_cast<long>(curve->keys.size())) {
    return CStatus(CStatus::InvalidArgument, curve->FullName() + L" has no key " +
                                                 std::to_wstring(index) + L" (it has " +
                                                 std::to_wstring(curve->keys.size()) + L").");
  }
  curve->keys.Erase(static_cast<size_t>(index), static_cast<size_t>(index) + 1);
  return CStatus::OK;
}

double FCurve::Eval(const CTime& time) const {
  auto curve = CurveOf(ref_);
  return curve ? curve->Evaluate(FrameOf(time)) : 0.0;
}

bool FCurve::EvalFrames(double first, int count, double* out) const {
  auto curve = CurveOf(ref_);
  if (!curve) return false;
  for (int i = 0; i < count; ++i) out[i] = curve->Evaluate(first + i);
  return true;
}

int FCurve::GetInterpolation() const {
  auto curve = CurveOf(ref_);
  return curve ? curve->interpolation : 0;
}

CStatus FCurve::PutInterpolation(int interpolation) {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  if (interpolation < siConstantInterpolation || interpolation > siCubicInterpolation) {
    return CStatus(CStatus::InvalidArgument,
                   L"Cannot set the interpolation of " + curve->FullName() + L" to " +
                       std::to_wstring(interpolation) + L": use 1 constant, 2 linear or 3 cubic.");
  }
  curve->interpolation = interpolation;
  return CStatus::OK;
}

CStatus FCurve::SetKeys(const CDoubleArray& frames, const CDoubleArray& values, int keyInterpolation) {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  auto refuse = [&curve](const std::wstring& why) {
    return CStatus(CStatus::InvalidArgument, L"Cannot key " + curve->FullName() + L": " + why);
  };
  if (frames.GetCount() != values.GetCount()) {
    return refuse(std::to_wstring(frames.GetCount()) + L" frames for " + std::to_wstring(values.GetCount()) +
                  L" values.");
  }
  if (keyInterpolation < siDefaultInterpolation || keyInterpolation > siCubicInterpolation) {
    return refuse(L"key interpolation " + std::to_wstring(keyInterpolation) +
                  L" is not one of 0 (curve's), 1 constant, 2 linear, 3 cubic.");
  }
  if (curve->editDepth > 0) return refuse(L"the curve is being edited.");
  const long n = frames.GetCount();
  for (long i = 0; i < n; ++i) {
    if (!std::isfinite(frames[i]) || !std::isfinite(values[i])) {
      return refuse(L"key " + std::to_wstring(i) + L" is not finite.");
    }
    if (i > 0 && !(frames[i] > frames[i - 1])) {
      return refuse(L"the frames are not increasing at key " + std::to_wstring(i) + L".");
    }
  }
  // Straight into the curve's columns: a take keyed every frame is stored as start, step and
  // one float a key.
  curve->keys.Assign(frames.GetArray(), values.GetArray(), static_cast<size_t>(n),
                     keyInterpolation);
  return CStatus::OK;
}

CStatus FCurve::BeginEdit() {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  curve->BeginEdit();
  return CStatus::OK;
}

CStatus FCurve::EndEdit() {
  auto curve = CurveOf(ref_);
  if (!curve) return Deleted();
  if (curve->editDepth == 0) {
    return CStatus(CStatus::Fail, L"EndEdit on " + curve->FullName() + L" without BeginEdit.");
  }
  curve->EndEdit();
  return CStatus::OK;
}

}  // namespace Zyra
