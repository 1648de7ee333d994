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

// Passes the values of the keys of `curve` from `from` to `to` (inclusive) through `change`,
// which sees each value and the previous key's new value; only keys whose value changes are
// written again, with their own interpolation.
template <class Change>
void RekeyValues(FCurve& curve, double from, double to, Change change) {
  const long count = curve.GetKeyCount();
  std::vector<long> changed;
  std::vector<double> values;
  double previous = 0.0;
  bool first = true;
  for (long k = 0; k < count; ++k) {
    const double frame = curve.GetKeyTime(k).GetTime();
    if (frame < from || frame > to) continue;
    const double value = curve.GetKeyValue(k).AsDouble();
    const double next = change(value, previous, first);
    if (next != value) {
      changed.push_back(k);
      values.push_back(next);
    }
    previous = next;
    first = false;
  }
  for (size_t i = 0; i < changed.size(); ++i) {
    curve.AddKey(curve.GetKeyTime(changed[i]), values[i], curve.GetKeyInterpolation(changed[i]));
  }
}

double Snap(double value) { return std::fabs(value) < kSnapToZero ? 0.0 : value; }

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

void EnsureKeysOnRootandCog(X3DObject& root, X3DObject& cog, int start, int end, ProgressBar&) {
  for (X3DObject* node : {&root, &cog}) {
    std::vector<DrvTransform> samples;
    SampleLocal(*node, start, end, samples);
    ChannelTrack track(samples.size());
    for (const DrvTransform& t : samples) track.Add(t);
    track.Write(*node, start);
  }
}

void NormalizeLoco(ActionSource&, X3DObject& root, X3DObject& cog, int start, int end, ProgressBar&) {
  for (X3DObject* node : {&root, &cog}) {
    for (int c = 3; c < kChannelCount; ++c) {
      FCurve curve = GetFCurve(*node, kChannels[c]);
      RekeyValues(curve, -kUnsetValue, kUnsetValue, [](double value, double previous, bool first) {
        const double turned = first ? value : EnforceContinuity(static_cast<float>(value), static_cast<float>(previous));
        return Snap(turned);
      });
    }
  }
  CorrectLocoTranslation(root, start, end);
}

void CorrectLocoTranslation(X3DObject& root, int start, int end) {
  for (int c = 0; c < 3; ++c) {
    FCurve curve = GetFCurve(root, kChannels[c]);
    if (!curve.IsValid()) continue;
    curve.PutInterpolation(siLinearInterpolation);
    RekeyValues(curve, start, end - 1, [](double value, double, bool) { return Snap(value); });
  }
}

bool FactorLoco(Model& model, ActionSource& source, bool useProgress) {
  const int start = WholeFrame(source.GetParameterValue(L"FrameStart").AsDouble());
  const int end = WholeFrame(source.GetParameterValue(L"FrameEnd").AsDouble() + 1.1);
  X3DObject root, cog;
  if (!GetRootNode(model, root, true) || !GetCogNode(root, cog)) return false;
  const size_t frames = end > start ? static_cast<size_t>(end - start) : 0;
  ProgressBar bar = useProgress ? ShowProgressBar(static_cast<long>(frames), L"Making Loco Skill") : ProgressBar();
  EnsureKeysOnRootandCog(root, cog, start, end, bar);
  NormalizeLoco(source, root, cog, start, end, bar);

  std::vector<DrvTransform> roots, cogs;
  SampleLocal(root, start, end, roots);
  SampleLocal(cog, start, end, cogs);
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
  CValue ignored;
  Application().ExecuteCommand(L"RemoveAllAnimation", {CValue(model.GetRef()), CValue(), 1, 9}, ignored);
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
  if (!FactorLoco(model, source, useProgress)) return false;
  CString markers;
  ExtractMarkers(root, markers);
  AddLocoKeys(model, source, feet, heels, threshold, markers);
  const bool stored = StoreFCurves(model, root, source, markers, 2, source.GetParameterValue(L"FrameStart").AsDouble(),
                                   source.GetParameterValue(L"FrameEnd").AsDouble());
  GotoHome(model, ProgressBar());
  return stored;
}
