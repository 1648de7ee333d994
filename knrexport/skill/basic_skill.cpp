// Basic and Raw skills.
#include "knrexport/skill/basic_skill.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "knrexport/actor/home_pose.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/skill/skill_channels.h"

using namespace Zyra;

namespace {

// Above this the forward axis counts as vertical and the up axis gives the heading instead.
constexpr float kNearlyVertical = 0.98f;

// The heading (radians, about the vertical axis) that the body's rotation gives its forward axis,
// or its up axis when the body faces nearly straight up or down.
float BasicHeading(DrvQuaternion rotation) {
  DrvVector axis{0.0f, 0.0f, 1.0f}, turned;
  DrvVector_MultiplyQuaternion(&turned, &axis, &rotation);
  if (std::fabs(turned.y) > kNearlyVertical) {
    axis = {0.0f, 1.0f, 0.0f};
    DrvVector_MultiplyQuaternion(&turned, &axis, &rotation);
  }
  return std::atan2(turned.x, turned.z);
}

constexpr const wchar_t* kBasicInvalid =
    L"Failed to convert the action source to a Basic skill.  The FCurves are not valid.";
constexpr const wchar_t* kRawInvalid = L"Failed to convert the action source to a Raw skill.  The FCurves are not valid.";

bool FailInvalidCurves(Model& model, const wchar_t* message) {
  ClearAnim(model);
  GotoHome(model, ProgressBar());
  ShowMessage(message);
  return false;
}

// Reads the source's range, marks it unconverted, finds root and COG and plays the source onto
// the rig; `first` and `last` get the root's key range (crossed when it has none).
bool PrepareSource(Model& model, ActionSource& source, X3DObject& root, X3DObject& cog, double& frameStart,
                   double& frameEnd, double& first, double& last) {
  frameStart = source.GetParameterValue(L"FrameStart").AsDouble();
  frameEnd = source.GetParameterValue(L"FrameEnd").AsDouble();
  source.PutParameterValue(L"type", 0);
  if (!GetRootNode(model, root, true) || !GetCogNode(root, cog)) return false;
  ApplyAction(source);
  first = frameEnd;
  last = frameStart;
  ExtractStartEndKey(root, first, last);
  return true;
}

}  // namespace

void SkillFrames(double first, double last, int& start, int& end) {
  start = WholeFrame(first);
  end = WholeFrame(last + 1.5);
  if (end == start + 1) end = start + 2;
}

bool FactorBasic(Model& model, ActionSource& source, bool useProgress) {
  X3DObject root, cog;
  double frameStart = 0.0, frameEnd = 0.0, first = 0.0, last = 0.0;
  if (!PrepareSource(model, source, root, cog, frameStart, frameEnd, first, last)) return false;
  if (first > last) return FailInvalidCurves(model, kBasicInvalid);
  source.PutParameterValue(L"type", 1);
  int start = 0, end = 0;
  SkillFrames(std::max(first, frameStart), std::min(last, frameEnd), start, end);
  const size_t frames = end > start ? static_cast<size_t>(end - start) : 0;
  ProgressBar bar = useProgress ? ShowProgressBar(static_cast<long>(frames), L"Making Basic Skill") : ProgressBar();

  std::vector<DrvTransform> roots, cogs;
  SampleLocal(root, start, end, roots);
  SampleLocal(cog, start, end, cogs);
  ChannelTrack rootTrack(frames), cogTrack(frames);
  float reference = 0.0f;
  for (size_t i = 0; i < frames; ++i) {
    DrvTransform body, newRoot, inverse, newCog;
    DrvTransform_SetIdentity(&newRoot);
    DrvTransform_Multiply(&body, &roots[i], &cogs[i]);
    DrvVector_Set(&newRoot.translation, body.translation.x, 0.0f, body.translation.z);
    const float heading = BasicHeading(body.rotation);
    if (i == 0) reference = heading;
    DrvQuaternion_SetEulerAngles(&newRoot.rotation, 0.0f, heading - reference, 0.0f);
    inverse = newRoot;
    DrvTransform_Invert(&inverse);
    DrvTransform_Multiply(&newCog, &inverse, &body);
    rootTrack.Add(newRoot);
    cogTrack.Add(newCog);
    bar.Increment();
  }
  rootTrack.Write(root, start);
  cogTrack.Write(cog, start);

  CString markers;
  ExtractMarkers(root, markers);
  const bool stored = StoreFCurves(model, root, source, markers, 1, start, end - 1);
  GotoHome(model, ProgressBar());
  if (useProgress) FinishProgressBar(bar);
  return stored;
}

bool ProcessRaw(Model& model, ActionSource& source) {
  X3DObject root, cog;
  double frameStart = 0.0, frameEnd = 0.0, first = 0.0, last = 0.0;
  if (!PrepareSource(model, source, root, cog, frameStart, frameEnd, first, last)) return false;
  if (first > last) return FailInvalidCurves(model, kRawInvalid);
  source.PutParameterValue(L"type", 3);
  int start = 0, end = 0;
  SkillFrames(frameStart, frameEnd, start, end);
  CString markers;
  ExtractMarkers(root, markers);
  const bool stored = StoreFCurves(model, root, source, markers, 3, start, end - 1);
  GotoHome(model, ProgressBar());
  return stored;
}
