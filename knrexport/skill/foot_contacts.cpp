// Foot contacts of a locomotion skill.
#include "knrexport/skill/foot_contacts.h"

#include <algorithm>

#include "knrexport/math/drv_math.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "knrexport/skill/skill_channels.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr int kValueCurve = 30;
constexpr int kFootChannelCapabilities = siPersistable | siAnimatable;

// Heights and squared speeds of the heel over start .. end - 1, in the frame of the root's
// parent at `start`.
void SampleHeel(X3DObject& root, X3DObject& heel, int start, int end, std::vector<float>& height,
                std::vector<float>& speed2) {
  DrvTransform reference;
  DrvTransform_SetIdentity(&reference);
  X3DObject parent(root.GetParent());
  if (parent.IsValid()) DrvTransform_Set(reference, parent.GetKinematics().GetLocal().GetTransform(CTime(start)));
  DrvTransform_Invert(&reference);
  const int n = std::max(end - start, 0);
  height.assign(static_cast<size_t>(n), 0.0f);
  speed2.assign(static_cast<size_t>(std::max(n - 1, 0)), 0.0f);
  std::vector<MATH::CTransformation> path;
  SampleGlobal(heel, start, end, path);
  double previousY = 0.0, previousZ = 0.0;
  for (int i = 0; i < n; ++i) {
    DrvTransform sample;
    DrvTransform_Set(sample, path[static_cast<size_t>(i)]);
    DrvTransform_Multiply(&sample, &reference, &sample);
    const double y = sample.translation.y, z = sample.translation.z;
    height[static_cast<size_t>(i)] = sample.translation.y;
    if (i > 0) {
      speed2[static_cast<size_t>(i - 1)] =
          static_cast<float>((z - previousZ) * (z - previousZ) + (y - previousY) * (y - previousY));
    }
    previousY = y;
    previousZ = z;
  }
}

FCurve CurveOf(Parameter& parameter) {
  FCurve curve(parameter.GetSource());
  if (!curve.IsValid()) parameter.AddFCurve(kValueCurve, curve);
  return curve;
}

}  // namespace

bool FindAndInsertContact(ActionSource& source, X3DObject& root, X3DObject& foot, X3DObject& heel, float threshold,
                          int start, int end, CString& markers) {
  std::vector<float> height, speed2;
  SampleHeel(root, heel, start, end, height, speed2);
  const ContactKeys found = DetectContacts(height, speed2, threshold, start, end);

  Property effector;
  if (!FindCustomPSet(foot, kTagEffector, effector)) return false;
  Parameter contact = effector.GetParameter(L"Contact");
  FCurve curve = CurveOf(contact);
  markers += CString(L",") + contact.GetFullName();
  for (const ContactKey& key : found.keys) curve.AddKey(CTime(key.frame), key.value, siConstantInterpolation);
  if (!found.found) {
    Application().LogMessage(CString(L"Failed to find a valid contact key for ") + foot.GetName() +
                                 L" during the processing of the " + source.GetName() + L" action source.",
                             siInfoMsg);
  }
  curve.PutInterpolation(siConstantInterpolation);

  if (found.contactFrame < start) return true;
  Property actor;
  if (!FindCustomPSet(root, kTagActor, actor)) return false;
  Parameter channel = actor.GetParameter(foot.GetName());
  if (!channel.IsValid()) {
    CustomProperty(actor).AddParameter(foot.GetName(), siInt4, kFootChannelCapabilities, CString(), CString(), 0, 0,
                                       1, 0, 1, channel);
  }
  FCurve footCurve = CurveOf(channel);
  markers += CString(L",") + channel.GetFullName();
  footCurve.AddKey(CTime(found.contactFrame), 0, siConstantInterpolation);
  footCurve.PutInterpolation(siConstantInterpolation);
  return true;
}

bool AddLocoKeys(Model& model, ActionSource& source, CRefArray& feet, CRefArray& heels, float threshold,
                 CString& markers) {
  const int start = WholeFrame(source.GetParameterValue(L"FrameStart").AsDouble());
  const int end = WholeFrame(source.GetParameterValue(L"FrameEnd").AsDouble() + 1.1);
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  for (long i = 0; i < feet.GetCount(); ++i) {
    X3DObject foot(feet[i]);
    X3DObject heel(i < heels.GetCount() ? heels[i] : feet[i]);
    if (FindAndInsertContact(source, root, foot, heel, threshold, start, end, markers)) continue;
    ShowMessage(CString(L"Failed to find contact keys for foot ") + foot.GetName() + L".\nFailed to convert " +
                source.GetName() + L" to a locomotion skill.");
    return false;
  }
  return true;
}
