// Storing and restoring the global pose of a hierarchy.
#include "knrexport/scene/pose_storage.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr double kRadToDeg = 57.29577951308232;
constexpr size_t kFloatsPerRecord = kPoseRecordSize / sizeof(float);

// The top node, then its descendants in the host's recursive child order.
std::vector<X3DObject> PoseNodes(X3DObject& top) {
  std::vector<X3DObject> nodes{top};
  for (const CRef& ref : top.FindChildren(CString(), CString())) nodes.emplace_back(ref);
  return nodes;
}

void PutFloat(std::vector<unsigned char>& out, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(bits >> (8 * i)));
}

float GetFloat(const unsigned char* in) {
  uint32_t bits = 0;
  for (int i = 0; i < 4; ++i) bits |= static_cast<uint32_t>(in[i]) << (8 * i);
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

bool FindStorePose(X3DObject& top, UserDataBlob& blob) {
  Property found;
  if (!FindProperty(top, L"StorePose", found)) return false;
  blob = UserDataBlob(found);
  return blob.IsValid();
}

}  // namespace

void GetTransform(MATH::CTransformation& in, DrvTransform& out) {
  DrvTransform_Set(out, in);
  MATH::CVector3 s = in.GetScaling();
  DrvVector_Set(&out.scaling, static_cast<float>(s.GetX()), static_cast<float>(s.GetY()),
                static_cast<float>(s.GetZ()));
}

void PutTransform(DrvTransform& in, MATH::CTransformation& out) {
  out.SetRotationFromQuaternion(MATH::CQuaternion(in.rotation.w, in.rotation.x, in.rotation.y, in.rotation.z));
  out.SetTranslationFromValues(in.translation.x, in.translation.y, in.translation.z);
  out.SetScalingFromValues(in.scaling.x, in.scaling.y, in.scaling.z);
}

void DrvTransform_Set(DrvTransform& out, const MATH::CTransformation& in) {
  MATH::CVector3 t = in.GetTranslation();
  MATH::CQuaternion q = in.GetRotationQuaternion();
  DrvVector_Set(&out.translation, static_cast<float>(t.GetX()), static_cast<float>(t.GetY()),
                static_cast<float>(t.GetZ()));
  out.rotation = {static_cast<float>(q.GetX()), static_cast<float>(q.GetY()), static_cast<float>(q.GetZ()),
                  static_cast<float>(q.GetW())};
}

void GetGlobalTransform(X3DObject& obj, DrvTransform& out) {
  DrvTransform_Set(out, obj.GetKinematics().GetGlobal().GetTransform());
}

void StorePose(X3DObject& top) {
  std::vector<X3DObject> nodes = PoseNodes(top);
  std::vector<unsigned char> bytes;
  bytes.reserve(nodes.size() * kPoseRecordSize);
  for (X3DObject& node : nodes) {
    MATH::CTransformation global = node.GetKinematics().GetGlobal().GetTransform();
    DrvTransform t;
    GetTransform(global, t);
    const float fields[kFloatsPerRecord] = {t.translation.x, t.translation.y, t.translation.z, t.rotation.x,
                                            t.rotation.y,    t.rotation.z,    t.rotation.w,    t.scaling.x,
                                            t.scaling.y,     t.scaling.z};
    for (float f : fields) PutFloat(bytes, f);
  }
  UserDataBlob old;
  if (FindStorePose(top, old)) DeleteObj(old.GetFullName());
  UserDataBlob blob = top.AddProperty(L"UserDataBlob", false, L"StorePose");
  blob.PutValue(bytes.data(), bytes.size());
}

bool RestorePose(X3DObject& top, bool singlePass) {
  if (!RestorePosePass(top, false)) return false;
  if (singlePass) return true;
  for (bool pass : {true, false, true}) {
    if (!RestorePosePass(top, pass)) return false;
  }
  return true;
}

bool RestorePosePass(X3DObject& top, bool pass) {
  UserDataBlob blob;
  if (!FindStorePose(top, blob)) return false;
  std::vector<unsigned char> bytes = blob.GetValue();
  std::vector<X3DObject> nodes = PoseNodes(top);
  size_t records = bytes.size() / kPoseRecordSize;
  size_t common = std::min(records, nodes.size());
  for (size_t i = 0; i < common; ++i) {
    const unsigned char* r = bytes.data() + i * kPoseRecordSize;
    DrvTransform t;
    t.translation = {GetFloat(r), GetFloat(r + 4), GetFloat(r + 8)};
    t.rotation = {GetFloat(r + 12), GetFloat(r + 16), GetFloat(r + 20), GetFloat(r + 24)};
    t.scaling = {GetFloat(r + 28), GetFloat(r + 32), GetFloat(r + 36)};
    MATH::CTransformation transform;
    PutTransform(t, transform);
    RestorePoseTransform(nodes[i], transform, pass);
  }
  return records == nodes.size() && bytes.size() % kPoseRecordSize == 0;
}

void RestorePoseTransform(X3DObject& node, MATH::CTransformation& transform, bool pass) {
  siClassID skipped = pass ? siChainEffectorID : siChainBoneID;
  if (node.GetClassID() == skipped) return;
  if (node.GetClassID() == siChainBoneID) {
    // Bones turn through the host's rotate command; the global transform then fixes the rest.
    MATH::CVector3 angles = transform.GetRotationXYZAngles() * kRadToDeg;
    CValue ignored;
    Application().ExecuteCommand(
        L"Rotate", {node.GetFullName(), angles.GetX(), angles.GetY(), angles.GetZ(), 0, 1}, ignored);
  }
  node.GetKinematics().GetGlobal().PutTransform(transform);
}

bool CleanupPose(X3DObject& top) {
  UserDataBlob blob;
  if (FindStorePose(top, blob)) DeleteObj(blob.GetFullName());
  return true;
}

bool TestForScale(X3DObject& node, const CString& purpose, bool showMessage, bool includeEnds) {
  bool checked = (includeEnds || !HasTag(node, L"RTKEnd")) && node.GetEnvelopes().GetCount() == 0;
  if (checked) {
    MATH::CVector3 s = node.GetKinematics().GetLocal().GetTransform().GetScaling();
    bool unit = std::fabs(s.GetX() - 1.0) <= kScaleTolerance && std::fabs(s.GetY() - 1.0) <= kScaleTolerance &&
                std::fabs(s.GetZ() - 1.0) <= kScaleTolerance;
    if (!unit) {
      if (showMessage) {
        ShowMessage(L"The scaling on the actor node " + node.GetName() + L" must be (1,1,1) for a valid " +
                    purpose + L".\n" + L"Generate the actor to freeze all the scaling in the description.");
      }
      return false;
    }
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && !TestForScale(child, purpose, showMessage, includeEnds)) return false;
  }
  return true;
}

bool TestForUniformScale(X3DObject& node, X3DObject& top, bool showMessage) {
  if (HasTag(node, L"RTKNode") && !HasTag(node, L"RTKEnd")) {
    MATH::CVector3 s = node.GetKinematics().GetLocal().GetTransform().GetScaling();
    bool uniform = std::fabs(s.GetX() - s.GetY()) <= kScaleTolerance && std::fabs(s.GetY() - s.GetZ()) <= kScaleTolerance;
    if (!uniform) {
      if (showMessage) {
        ShowMessage(L"The scaling on the actor node " + node.GetName() + L" must be uniform (the same on x, y and z)" +
                    L" for the actor " + top.GetName() + L".");
      }
      return false;
    }
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && !TestForUniformScale(child, top, showMessage)) return false;
  }
  return true;
}

void RemoveOldFormatTempData(X3DObject& top, ProgressBar bar) {
  static const wchar_t* const kOldItems[] = {L"RTKHandle", L"TmpRTKBndCylinder", L"TmpRTKPose"};
  for (const wchar_t* name : kOldItems) {
    Property property;
    while (FindProperty(top, name, property)) DeleteObj(property.GetFullName());
  }
  for (const CRef& ref : top.GetChildren()) {
    X3DObject child(ref);
    if (!child.IsValid()) continue;
    bool old = false;
    for (const wchar_t* name : kOldItems) old = old || child.GetName() == CString(name);
    if (old) {
      DeleteObj(child.GetFullName());
      continue;
    }
    bar.Increment();
    RemoveOldFormatTempData(child, bar);
  }
}
