// Locomotion skills.
#include "knrexport/skill/loco_skill.h"

#include <cmath>
#include <vector>

#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/tags.h"
#include "knrexport/skill/foot_contacts.h"
#include "knrexport/skill/skill_channels.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr double kSnapToZero = 1e-7;

bool ContainsText(const CString& text, const wchar_t* part) { return text.FindString(part) != CString::npos; }

// The distance between two headings in [0, 2 pi), the short way round.
float HeadingDistance(float a, float b) {
  const float d = std::fabs(a - b);
  return d > kDrvPi ? kDrvTwoPi - d : d;
}

float WrapPositive(float angle) { return angle < 0.0f ? angle + kDrvTwoPi : angle; }

double Snap(double value) { return std::fabs(value) < kSnapToZero ? 0.0 : value; }

// Moves the keys of `curve` outside frames start .. end - 1 by whole turns towards their
// neighbour on the side of that range, working outwards from it; the keys inside were written
// continuous already.
void UnwrapOutside(FCurve& curve, int start, int end) {
  const long first = curve.GetKeyIndex(CTime(start));
  const long last = curve.GetKeyIndex(CTime(end - 1));
  if (first < 0 || last < 0) return;
  auto follow = [&curve](long k, long neighbour) {
    const double value = curve.GetKeyValue(k).AsDouble();
    const double next = Snap(EnforceContinuity(static_cast<float>(value),
                                               static_cast<float>(curve.GetKeyValue(neighbour).AsDouble())));
    if (next != value) curve.AddKey(curve.GetKeyTime(k), next, curve.GetKeyInterpolation(k));
  };
  for (long k = first - 1; k >= 0; --k) follow(k, k + 1);
  for (long k = last + 1; k < curve.GetKeyCount(); ++k) follow(k, k - 1);
}

}  // namespace

void RemoveLocoKeys(ActionSource& source) {
  for (const CRef& ref : source.GetItems()) {
    AnimationSourceItem item(ref);
    const CString target = item.GetTarget();
    if (!ContainsText(target, L".RTKActor") && !ContainsText(target, L".RTKEffector.Contact")) continue;
    FCurve curve(item.GetSource());
    if (curve.IsValid()) curve.RemoveKeys();
  }
}

void EnsureKeysOnRootandCog(X3DObject& root, X3DObject& cog, int start, int end, ProgressBar&,
                            std::vector<DrvTransform>* rootSamples, std::vector<DrvTransform>* cogSamples) {
  std::vector<DrvTransform> kept[2];
  X3DObject* nodes[2] = {&root, &cog};
  for (int n = 0; n < 2; ++n) {
    SampleLocal(*nodes[n], start, end, kept[n]);
    ChannelTrack track(kept[n].size());
    for (const DrvTransform& t : kept[n]) track.Add(t);
    track.Write(*nodes[n], start);
  }
  if (rootSamples) rootSamples->swap(kept[0]);
  if (cogSamples) cogSamples->swap(kept[1]);
}

void NormalizeLoco(ActionSource&, X3DObject& root, X3DObject& cog, int start, int end, ProgressBar&) {
  for (X3DObject* node : {&root, &cog}) {
    for (int c = 3; c < kChannelCount; ++c) {
      FCurve curve = GetFCurve(*node, kChannels[c]);
      UnwrapOutside(curve, start, end);
    }
  }
  CorrectLocoTranslation(root, start, end);
}

void CorrectLocoTranslation(X3DObject& root, int, int) {
  for (int c = 0; c < 3; ++c) GetFCurve(root, kChannels[c]).PutInterpolation(siLinearInterpolation);
}

bool FactorLoco(Model& model, ActionSource& source, bool useProgress) {
  const int start = WholeFrame(source.GetParameterValue(L"FrameStart").AsDouble());
  const int end = WholeFrame(source.GetParameterValue(L"FrameEnd").AsDouble() + 1.1);
  X3DObject root, cog;
  if (!GetRootNode(model, root, true) || !GetCogNode(root, cog)) return false;
  const size_t frames = end > start ? static_cast<size_t>(end - start) : 0;
  ProgressBar bar = useProgress ? ShowProgressBar(static_cast<long>(frames), L"Making Loco Skill") : ProgressBar();
  // The samples that EnsureKeysOnRootandCog keys are what the factoring works from: the
  // normalization leaves the keys of the range as they were written.
  std::vector<DrvTransform> roots, cogs;
  EnsureKeysOnRootandCog(root, cog, start, end, bar, &roots, &cogs);
  NormalizeLoco(source, root, cog, start, end, bar);
  // The lowest sphere bottom is read while the rig still plays the source; the factored rig
  // plays the same body, so the spheres are where they were.
  CRefArray spheres;
  ExtractColSpheres(root, spheres, true);
  float bottom = kFltMax;
  LowerToSphereBottom(spheres, start, end, bottom);
  for (X3DObject* node : {&root, &cog}) {
    for (const wchar_t* channel : kChannels) GetFCurve(*node, channel).RemoveKeys();
  }

  ChannelTrack rootTrack(frames), cogTrack(frames);
  float previous = 0.0f;
  for (size_t i = 0; i < frames; ++i) {
    DrvTransform body, newRoot, inverse, newCog;
    DrvTransform_SetIdentity(&newRoot);
    DrvTransform_Multiply(&body, &roots[i], &cogs[i]);
    DrvVector forward{0.0f, 0.0f, 1.0f}, turned;
    DrvVector_MultiplyQuaternion(&turned, &forward, &body.rotation);
    const float heading = WrapPositive(std::atan2(turned.x, turned.z));
    if (i == 0) previous = heading;
    const float opposite = WrapPositive(heading - kDrvPi);
    const float kept = HeadingDistance(heading, previous) <= HeadingDistance(opposite, previous) ? heading : opposite;
    previous = kept;
    DrvVector_Set(&newRoot.translation, 0.0f, 0.0f, body.translation.z);
    DrvQuaternion_SetEulerAngles(&newRoot.rotation, 0.0f, kept, 0.0f);
    inverse = newRoot;
    DrvTransform_Invert(&inverse);
    DrvTransform_Multiply(&newCog, &inverse, &body);
    rootTrack.Add(newRoot);
    cogTrack.Add(newCog);
    bar.Increment();
  }
  if (bottom < kFltMax) {
    for (double& y : cogTrack.Values(1)) y -= bottom;
  }
  rootTrack.Write(root, start);
  cogTrack.Write(cog, start);
  if (useProgress) FinishProgressBar(bar);
  return true;
}

bool MakeLocoSkill(Model& model, ActionSource& source, float threshold, bool useProgress) {
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  if (!HasTag(root, kTagActor)) {
    ShowMessage(CString(L"The model ") + model.GetName() +
                L" is a source actor.  Please generate a target actor from this source and use the target for "
                L"skill conversion.");
    return false;
  }
  RemoveLocoKeys(source);
  RemoveFCurves(root);
  GotoHome(model, ProgressBar());
  CRefArray feet, heels;
  ExtractFeet(root, feet);
  if (feet.GetCount() == 0) {
    ShowMessage(CString(L"The action source ") + source.GetName() +
                L" failed to convert into a locomotion skill because there are no foot tags on the actor.\nPlease "
                L"tag the feet and try again.");
    return false;
  }
  ExtractHeels(feet, heels);
  ApplyAction(source);
  CString markers;
  {
    // The legs are sampled once for the sphere bottoms and reused for the heels.
    LocalSampleCache legs;
    if (!FactorLoco(model, source, useProgress)) return false;
    ExtractMarkers(root, markers);
    AddLocoKeys(model, source, feet, heels, threshold, markers);
  }
  const bool stored = StoreFCurves(model, root, source, markers, 2, source.GetParameterValue(L"FrameStart").AsDouble(),
                                   source.GetParameterValue(L"FrameEnd").AsDouble());
  GotoHome(model, ProgressBar());
  return stored;
}
