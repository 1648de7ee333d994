// The SDK's Kinematics / KinematicState handles over the transforms of 3D objects
// (model/transforms.cpp).
#include "zyra/kinematics.h"

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra {

namespace {

bool IsKinematicState(siClassID id) { return id == siKinematicStateID; }
bool IsKinematics(siClassID id) { return id == siKinematicsID; }

double FrameOf(const CTime& time) {
  return time.IsCurrent() ? rt::Host::Get().CurrentFrame() : time.GetTime();
}

// The 3D object that owns a kinematic state (state -> "kine" -> object), and whether the state
// is its global one. Null when the state is not attached to a live object.
std::shared_ptr<rt::X3D> StateOwner(const CRef& ref, bool& global) {
  auto state = ref.Get();
  if (!state) return nullptr;
  auto kine = state->Owner();
  auto object = kine ? std::dynamic_pointer_cast<rt::X3D>(kine->Owner()) : nullptr;
  if (!object) return nullptr;
  if (state == object->global) {
    global = true;
  } else if (state == object->local) {
    global = false;
  } else {
    return nullptr;
  }
  return object;
}

}  // namespace

KinematicState::KinematicState(const CRef& ref) : Property(ref, IsKinematicState) {}

MATH::CTransformation KinematicState::GetTransform(const CTime& time) const {
  bool global = false;
  auto object = StateOwner(ref_, global);
  if (!object) return MATH::CTransformation();
  const double frame = FrameOf(time);
  return global ? object->GlobalTransform(frame) : object->LocalTransform(frame);
}

CStatus KinematicState::PutTransform(const MATH::CTransformation& transform, const CTime& time) {
  bool global = false;
  auto object = StateOwner(ref_, global);
  if (!object) {
    return CStatus(CStatus::InvalidArgument,
                   L"PutTransform: the kinematic state is invalid or its object was deleted.");
  }
  const double frame = FrameOf(time);
  return global ? object->PutGlobalTransform(transform, frame)
                : object->PutLocalTransform(transform, frame);
}

Kinematics::Kinematics(const CRef& ref) : Property(ref, IsKinematics) {}

KinematicState Kinematics::GetLocal() const {
  auto kine = ref_.Get();
  auto object = kine ? std::dynamic_pointer_cast<rt::X3D>(kine->Owner()) : nullptr;
  return object ? KinematicState(CRef(object->local)) : KinematicState();
}

KinematicState Kinematics::GetGlobal() const {
  auto kine = ref_.Get();
  auto object = kine ? std::dynamic_pointer_cast<rt::X3D>(kine->Owner()) : nullptr;
  return object ? KinematicState(CRef(object->global)) : KinematicState();
}

}  // namespace Zyra
