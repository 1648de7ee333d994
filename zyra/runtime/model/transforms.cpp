// Transforms of 3D objects: local transforms read from and written to the nine "kine.local"
// parameters, global transforms composed up the parent chain.
#include <cmath>

#include "model/model.h"

namespace Zyra::rt {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegToRad = kPi / 180.0;
constexpr double kRadToDeg = 180.0 / kPi;

// Channel order of the local state (kLocalChannels): translation, rotation (degrees), scaling.
constexpr int kChannelCount = 9;
constexpr double kChannelDefaults[kChannelCount] = {0, 0, 0, 0, 0, 0, 1, 1, 1};

// The parameter of a channel. The local state is built with its channels first and in order,
// so the by-index guess almost always hits; a search covers states built any other way.
Parameter* ChannelParam(const Property& state, int channel) {
  const auto index = static_cast<size_t>(channel);
  if (index < state.params.size() && state.params[index]->name == kLocalChannels[channel]) {
    return state.params[index].get();
  }
  return state.FindParam(kLocalChannels[channel]);
}

// The XYZ angles (degrees) of `canonical` written the way nearest to the angles already there,
// so that rotx/roty/rotz stay continuous: an unchanged rotation put back keeps 350 as 350 rather
// than -10, and (180, 200, 180) as it is rather than (0, -20, 0). Every rotation has two angle
// families, (x, y, z) and (x + 180, 180 - y, z + 180); the one whose Y turn points the same way
// as the previous Y angle is kept, then each angle is moved by whole turns towards its old value.
MATH::CVector3 NearestAngles(const MATH::CVector3& canonical, const double previous[3]) {
  for (int a = 0; a < 3; ++a) {
    if (!std::isfinite(previous[a])) return canonical;
  }
  double v[3] = {canonical.GetX(), canonical.GetY(), canonical.GetZ()};
  if (std::cos(previous[1] * kDegToRad) < 0) {
    v[0] += 180.0;
    v[1] = 180.0 - v[1];
    v[2] += 180.0;
  }
  for (int a = 0; a < 3; ++a) v[a] += 360.0 * std::round((previous[a] - v[a]) / 360.0);
  return {v[0], v[1], v[2]};
}

}  // namespace

MATH::CTransformation X3D::LocalTransform(double frame) const {
  double v[kChannelCount];
  for (int c = 0; c < kChannelCount; ++c) {
    const Parameter* p = local ? ChannelParam(*local, c) : nullptr;
    v[c] = p ? p->Evaluate(frame).AsDouble() : kChannelDefaults[c];
  }
  MATH::CTransformation t;
  t.SetTranslationFromValues(v[0], v[1], v[2])
      .SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad)
      .SetScalingFromValues(v[6], v[7], v[8]);
  return t;
}

CStatus X3D::PutLocalTransform(const MATH::CTransformation& t, double frame) {
  if (!local) return CStatus(CStatus::Fail, FullName() + L" has no local kinematic state.");
  Parameter* params[kChannelCount];
  for (int c = 0; c < kChannelCount; ++c) {
    params[c] = ChannelParam(*local, c);
    if (!params[c]) {
      return CStatus(CStatus::MemberNotFound,
                     FullName() + L".kine.local has no parameter " + kLocalChannels[c] + L".");
    }
  }
  double previous[3];
  for (int a = 0; a < 3; ++a) previous[a] = params[3 + a]->Evaluate(frame).AsDouble();
  const MATH::CVector3 angles = NearestAngles(t.GetRotationXYZAngles() * kRadToDeg, previous);
  const double v[kChannelCount] = {t.GetTranslation().GetX(),
                                   t.GetTranslation().GetY(),
                                   t.GetTranslation().GetZ(),
                                   angles.GetX(),
                                   angles.GetY(),
                                   angles.GetZ(),
                                   t.GetScaling().GetX(),
                                   t.GetScaling().GetY(),
                                   t.GetScaling().GetZ()};
  CStatus result;
  for (int c = 0; c < kChannelCount; ++c) {
    CStatus status = params[c]->Put(CValue(v[c]), frame);
    if (!status.Succeeded() && result.Succeeded()) result = status;
  }
  return result;
}

MATH::CTransformation X3D::GlobalTransform(double frame) const {
  // Collect the chain up to the root, then compose downwards.
  std::vector<const X3D*> chain;
  for (const X3D* o = this; o;) {
    chain.push_back(o);
    auto parent = o->Owner();
    o = dynamic_cast<const X3D*>(parent.get());
  }
  MATH::CTransformation global = chain.back()->LocalTransform(frame);
  for (auto it = chain.rbegin() + 1; it != chain.rend(); ++it) {
    global = MATH::CTransformation::Compose(global, (*it)->LocalTransform(frame));
  }
  return global;
}

CStatus X3D::PutGlobalTransform(const MATH::CTransformation& t, double frame) {
  auto parent = Parent();
  if (!parent) return PutLocalTransform(t, frame);
  return PutLocalTransform(MATH::CTransformation::LocalFrom(parent->GlobalTransform(frame), t),
                           frame);
}

}  // namespace Zyra::rt
