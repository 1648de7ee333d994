// Kinematics of 3D objects: the local transform (relative to the parent) and the global one.
#pragma once

#include "zyra/math.h"
#include "zyra/object.h"

namespace Zyra {

// One of an object's two kinematic states ("kine.local" or "kine.global").
class ZYRA_API KinematicState : public Property {
 public:
  KinematicState() = default;
  KinematicState(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(KinematicState)
  // The transform at `time` (default: the current frame), with animated parameters evaluated.
  MATH::CTransformation GetTransform(const CTime& time = CTime::Current()) const;
  // Writes the transform at `time`. Putting a global transform keeps the children's locals.
  CStatus PutTransform(const MATH::CTransformation& transform, const CTime& time = CTime::Current());
};

// The "kine" property of a 3D object.
class ZYRA_API Kinematics : public Property {
 public:
  Kinematics() = default;
  Kinematics(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Kinematics)
  KinematicState GetLocal() const;
  KinematicState GetGlobal() const;
};

}  // namespace Zyra
