// Host commands that pose objects: "Rotate" and "ResetTransform".
#include <cmath>
#include <string>
#include <vector>

#include "host/args.h"
#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegToRad = kPi / 180.0;

const wchar_t* const kChannelNames[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                         L"rotz", L"sclx", L"scly", L"sclz"};

// A numeric argument; an empty (missing) argument gives `fallback`.
bool NumberOr(const CValue& arg, double fallback, double& out) {
  if (arg.IsEmpty()) {
    out = fallback;
    return true;
  }
  return ArgNumber(arg, out);
}

// An integer argument; an empty (missing) argument gives `fallback`.
bool IntegerOr(const CValue& arg, int fallback, int& out) {
  if (arg.IsEmpty()) {
    out = fallback;
    return true;
  }
  return ArgInteger(arg, out);
}

// The 3D objects an argument names; an empty argument means the selection. Fails naming the
// command and the first thing that is not a 3D object.
CStatus ArgX3DObjects(std::wstring_view command, const CValue& arg,
                      std::vector<std::shared_ptr<X3D>>& out) {
  std::vector<std::shared_ptr<Object>> objects;
  if (arg.IsEmpty()) {
    for (const auto& weak : Host::Get().scene().selection) {
      if (auto o = weak.lock(); o && o->alive) objects.push_back(o);
    }
  } else {
    CStatus status = ArgObjects(arg, objects);
    if (!status.Succeeded()) return ArgError(command, status.GetMessage().Wide());
  }
  if (objects.empty()) return ArgError(command, L"no object given and nothing is selected.");
  out.clear();
  for (const auto& o : objects) {
    auto x3d = std::dynamic_pointer_cast<X3D>(o);
    if (!x3d) return ArgError(command, o->FullName() + L" is not a 3D object.");
    out.push_back(std::move(x3d));
  }
  return CStatus::OK;
}

// ---- Rotate -----------------------------------------------------------------------------------

enum RotateRef : int { kRefGlobal = 1, kRefLocal = 2 };

// Rotate(objects, x, y, z, delta, refmode): angles in degrees (XYZ order). delta 0 sets the
// rotation, 1 adds to it; refmode 1 works in global space (a relative turn about the world axes,
// through the object's centre), 2 in the object's local space (an absolute value goes straight to
// rotx/roty/rotz, a relative turn is about the object's own axes). Without delta and refmode the
// turn is relative and global. Children follow their parent.
CStatus RotateCommand(const CValueArray& args, CValue& /*result*/) {
  constexpr std::wstring_view kName = L"Rotate";

  double angles[3];
  for (int a = 0; a < 3; ++a) {
    if (!NumberOr(Arg(args, 1 + a), 0.0, angles[a])) {
      return ArgError(kName, L"the angle " + Quoted(Arg(args, 1 + a)) + L" is not a number.");
    }
  }
  int delta = 0, refmode = 0;
  if (!IntegerOr(Arg(args, 4), 1, delta) || (delta != 0 && delta != 1)) {
    return ArgError(
        kName, L"delta must be 0 (absolute) or 1 (relative), got " + Quoted(Arg(args, 4)) + L".");
  }
  if (!IntegerOr(Arg(args, 5), kRefGlobal, refmode) ||
      (refmode != kRefGlobal && refmode != kRefLocal)) {
    return ArgError(kName,
                    L"refmode must be 1 (global) or 2 (local), got " + Quoted(Arg(args, 5)) + L".");
  }
  std::vector<std::shared_ptr<X3D>> objects;
  CStatus status = ArgX3DObjects(kName, Arg(args, 0), objects);
  if (!status.Succeeded()) return status;

  const double frame = Host::Get().CurrentFrame();
  const MATH::CQuaternion turn = MATH::CQuaternion::FromXYZAngles(
      angles[0] * kDegToRad, angles[1] * kDegToRad, angles[2] * kDegToRad);
  for (const auto& object : objects) {
    if (delta == 0 && refmode == kRefLocal) {
      // The angles as given, without going through a quaternion (200 stays 200).
      for (int a = 0; a < 3; ++a) {
        Parameter* p = object->local->FindParam(kChannelNames[3 + a]);
        if (p) status = p->Put(CValue(angles[a]), frame);
        if (!p || !status.Succeeded()) {
          return ArgError(kName, L"cannot set the rotation of " + object->FullName() + L".");
        }
      }
      continue;
    }
    if (refmode == kRefLocal) {
      MATH::CTransformation local = object->LocalTransform(frame);
      local.SetRotationFromQuaternion(local.GetRotationQuaternion() * turn);
      status = object->PutLocalTransform(local, frame);
    } else {
      MATH::CTransformation global = object->GlobalTransform(frame);
      global.SetRotationFromQuaternion(delta == 0 ? turn : turn * global.GetRotationQuaternion());
      status = object->PutGlobalTransform(global, frame);
    }
    if (!status.Succeeded()) return ArgError(kName, status.GetMessage().Wide());
  }
  return CStatus::OK;
}

// ---- ResetTransform ---------------------------------------------------------------------------

enum ResetPart : int { kResetScaling = 1, kResetRotation = 2, kResetTranslation = 4 };

MATH::CTransformation FromChannels(const double v[9]) {
  MATH::CTransformation t;
  t.SetTranslationFromValues(v[0], v[1], v[2])
      .SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad)
      .SetScalingFromValues(v[6], v[7], v[8]);
  return t;
}

// Maps a global-space point back into the space of `t`; `t` must have no zero scaling axis.
MATH::CVector3 UnmapPoint(const MATH::CTransformation& t, const MATH::CVector3& p) {
  const MATH::CVector3 r = t.GetRotationQuaternion().Conjugate().Rotate(p - t.GetTranslation());
  const MATH::CVector3 s = t.GetScaling();
  return {r.GetX() / s.GetX(), r.GetY() / s.GetY(), r.GetZ() / s.GetZ()};
}

// What resetting parts of one object's local transform changes.
struct ResetPlan {
  std::shared_ptr<X3D> object;
  double channels[9];                   // the local channels after the reset
  bool changed[9] = {};                 // which channels the reset writes
  MATH::CTransformation before, after;  // the object's global transform
};

// Plans the reset of `parts` on `axes` (1 X, 2 Y, 4 Z) of the object's local transform at
// `frame`; fails when the object's look cannot be kept.
CStatus PlanReset(const std::shared_ptr<X3D>& object, int parts, int axes, double frame,
                  ResetPlan& plan) {
  constexpr std::wstring_view kName = L"ResetTransform";
  plan.object = object;
  bool any = false;
  for (int c = 0; c < 9; ++c) {
    Parameter* p = object->local->FindParam(kChannelNames[c]);
    if (!p)
      return ArgError(kName, object->FullName() + L" has no parameter " + kChannelNames[c] + L".");
    plan.channels[c] = p->Evaluate(frame).AsDouble();
    const int part = c < 3 ? kResetTranslation : c < 6 ? kResetRotation : kResetScaling;
    const double identity = c < 6 ? 0.0 : 1.0;
    if ((parts & part) && (axes & (1 << (c % 3))) && plan.channels[c] != identity) {
      plan.channels[c] = identity;
      plan.changed[c] = any = true;
    }
  }
  auto parent = object->Parent();
  const MATH::CTransformation parentGlobal =
      parent ? parent->GlobalTransform(frame) : MATH::CTransformation();
  plan.before = object->GlobalTransform(frame);
  plan.after = MATH::CTransformation::Compose(parentGlobal, FromChannels(plan.channels));
  if (!any) return CStatus::OK;

  // A mesh takes the reset into its points; a null has no look to keep; an analytic shape (a
  // sphere with its "radius") cannot take a rotation or a non-uniform scaling, so it refuses.
  const auto& geometry = object->primitive ? object->primitive->geometry : nullptr;
  if (geometry && !geometry->isMesh) {
    return ArgError(kName, L"cannot freeze the transform of " + object->FullName() +
                               L": only polygon meshes can take it into their points.");
  }
  const bool keepsSomething = (geometry && !geometry->points.empty()) || !object->children.empty();
  const MATH::CVector3 s = plan.after.GetScaling();
  if (keepsSomething && (s.GetX() == 0 || s.GetY() == 0 || s.GetZ() == 0)) {
    return ArgError(kName, L"cannot keep the look of " + object->FullName() +
                               L": its global scaling would have a zero axis after the reset.");
  }
  return CStatus::OK;
}

void ApplyReset(const ResetPlan& plan, double frame) {
  X3D& object = *plan.object;
  std::vector<MATH::CTransformation> childGlobals;
  for (const auto& child : object.children) childGlobals.push_back(child->GlobalTransform(frame));

  for (int c = 0; c < 9; ++c) {
    if (!plan.changed[c]) continue;
    Parameter* p = object.local->FindParam(kChannelNames[c]);
    if (p->fcurve && !p->fcurve->keys.empty()) {
      Host::Get().Log(kSevWarning,
                      L"ResetTransform: " + p->FullName() +
                          L" is animated; its fcurve still drives it after the reset.");
    }
    p->Put(CValue(plan.channels[c]), frame);
  }
  // The points move by after^-1 * before, so each lands where it was in the world.
  if (object.primitive && object.primitive->geometry) {
    std::vector<double>& pts = object.primitive->geometry->points;
    for (size_t i = 0; i + 2 < pts.size(); i += 3) {
      const MATH::CVector3 world =
          plan.before.MapPoint(MATH::CVector3(pts[i], pts[i + 1], pts[i + 2]));
      UnmapPoint(plan.after, world).Get(pts[i], pts[i + 1], pts[i + 2]);
    }
  }
  for (size_t i = 0; i < object.children.size(); ++i) {
    object.children[i]->PutGlobalTransform(childGlobals[i], frame);
  }
}

// ResetTransform(objects, reference, parts, axes): resets `parts` (1 scaling, 2 rotation,
// 4 translation, combinable) of the local transform on `axes` (1 X, 2 Y, 4 Z; 7 by default) and
// folds what was reset into the mesh points so the object keeps its look. Children keep their
// global transforms. `reference` must be 1 (the object's own local transform).
CStatus ResetTransformCommand(const CValueArray& args, CValue& /*result*/) {
  constexpr std::wstring_view kName = L"ResetTransform";

  int reference = 0, parts = 0, axes = 0;
  if (!IntegerOr(Arg(args, 1), 1, reference) || reference != 1) {
    return ArgError(kName, L"the reference must be 1 (the object's local transform), got " +
                               Quoted(Arg(args, 1)) + L".");
  }
  if (!IntegerOr(Arg(args, 2), 7, parts) || parts < 1 || parts > 7) {
    return ArgError(kName,
                    L"the parts to reset must combine 1 (scaling), 2 (rotation) and "
                    L"4 (translation), got " +
                        Quoted(Arg(args, 2)) + L".");
  }
  if (!IntegerOr(Arg(args, 3), 7, axes) || axes < 1 || axes > 7) {
    return ArgError(
        kName, L"the axes must combine 1 (X), 2 (Y) and 4 (Z), got " + Quoted(Arg(args, 3)) + L".");
  }
  std::vector<std::shared_ptr<X3D>> objects;
  CStatus status = ArgX3DObjects(kName, Arg(args, 0), objects);
  if (!status.Succeeded()) return status;

  // Check every object before changing any, so a refusal leaves the scene as it was.
  const double frame = Host::Get().CurrentFrame();
  ResetPlan plan;
  for (const auto& object : objects) {
    status = PlanReset(object, parts, axes, frame, plan);
    if (!status.Succeeded()) return status;
  }
  // Objects are reset in order, each against the scene the previous ones left.
  for (const auto& object : objects) {
    status = PlanReset(object, parts, axes, frame, plan);
    if (!status.Succeeded()) return status;
    ApplyReset(plan, frame);
  }
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"Rotate", RotateCommand);
ZYRA_HOST_COMMAND(L"ResetTransform", ResetTransformCommand);

}  // namespace Zyra::rt
