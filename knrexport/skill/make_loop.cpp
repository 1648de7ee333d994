// Making an action source loopable: sampling, blending towards the start, keying and storing.
#include "knrexport/skill/make_loop.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "knrexport/actor/home_pose.h"
#include "knrexport/math/drv_math.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr float kRadToDeg = 57.29578f;
constexpr float kDegToRad = 1.0f / kRadToDeg;
constexpr int kRot = 3;  // first rotation channel in LoopData order

void SampleAll(const LoopData& d, double frame, double out[kLoopChannelCount]) {
  for (int c = 0; c < kLoopChannelCount; ++c) out[c] = d.Sample(c, frame);
}

DrvQuaternion QuaternionOfDegrees(const double angles[3]) {
  DrvQuaternion q;
  DrvQuaternion_SetEulerAngles(&q, static_cast<float>(angles[0]) * kDegToRad,
                               static_cast<float>(angles[1]) * kDegToRad,
                               static_cast<float>(angles[2]) * kDegToRad);
  return q;
}

// One frame inside the blend span: rule 2 for every channel, rule 3 on top for locomotion.
void BlendFrame(const LoopData& d, int frame, int target, int k, float t, bool loco,
                double out[kLoopChannelCount]) {
  double current[kLoopChannelCount];
  double goal[kLoopChannelCount];
  SampleAll(d, frame, current);
  SampleAll(d, target, goal);
  DrvQuaternion from = QuaternionOfDegrees(current + kRot);
  DrvQuaternion to = QuaternionOfDegrees(goal + kRot);
  DrvQuaternion blended;
  DrvQuaternion_Interpolate(&blended, &from, &to, t, 0);
  DrvVector angles;
  DrvQuaternion_GetEulerAngles(&blended, &angles);
  const float degrees[3] = {angles.x * kRadToDeg, angles.y * kRadToDeg, angles.z * kRadToDeg};
  for (int a = 0; a < 3; ++a) {
    const int c = kRot + a;
    const double previous = d.HasChannel(c) ? d.Values(c)[static_cast<size_t>(k - 1)] : current[c];
    out[c] = EnforceContinuity(degrees[a], static_cast<float>(previous));
  }
  for (int c : {0, 1, 2, 6, 7, 8}) out[c] = (goal[c] - current[c]) * t + current[c];
  if (!loco) return;
  for (int c : {0, 2}) {
    if (!d.HasChannel(c)) continue;
    const double step = current[c] - d.Sample(c, frame - 1);
    const double goalStep = goal[c] - d.Sample(c, target - 1);
    out[c] = d.Values(c)[static_cast<size_t>(k - 1)] + (goalStep - step) * t + step;
  }
}

// The root's first child: the body whose ground travel a locomotion loop keeps.
X3DObject BodyOf(const X3DObject& root) {
  for (const CRef& ref : root.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) return child;
  }
  return X3DObject();
}

DrvTransform GlobalAt(const X3DObject& node, double frame) {
  MATH::CTransformation global = node.GetKinematics().GetGlobal().GetTransform(CTime(frame));
  DrvTransform out;
  GetTransform(global, out);
  return out;
}

// Node positions at `frame` in the root's frame, with the body's x and z taken out for loco.
std::vector<DrvVector> PositionsAt(X3DObject& root, const CRefArray& nodes, double frame, bool loco) {
  DrvTransform toRoot = GlobalAt(root, frame);
  DrvTransform_Invert(&toRoot);
  DrvVector body{0.0f, 0.0f, 0.0f};
  X3DObject bodyNode = BodyOf(root);
  if (loco && bodyNode.IsValid()) {
    DrvTransform b = GlobalAt(bodyNode, frame);
    DrvVector_MultiplyTransform(&body, &b.translation, &toRoot);
    body.y = 0.0f;
  }
  std::vector<DrvVector> out;
  for (const CRef& ref : nodes) {
    DrvTransform g = GlobalAt(X3DObject(ref), frame);
    DrvVector p;
    DrvVector_MultiplyTransform(&p, &g.translation, &toRoot);
    DrvVector_Subtract(&p, &p, &body);
    out.push_back(p);
  }
  return out;
}

}  // namespace

int LoopBlendLength(int start, int end, int smooth, bool loco, int sourceFrameStart) {
  const int length = end - start;
  const int wanted = std::max(smooth, 0);
  if (loco) return std::min({length / 2, wanted, start - sourceFrameStart});
  return std::min(length, wanted);
}

void ProcessLoop(X3DObject& node, int& counter, int frame, int blend, int start, int end, LoopData* data,
                 bool loco) {
  LoopData& d = data[counter++];
  if (!d.IsInitialised()) d.Init(end - start + 1, node);
  if (d.HasAnyChannel()) {
    const int k = frame - start;
    const int spanStart = end - blend;
    double values[kLoopChannelCount];
    if (frame <= spanStart || k < 1) {
      SampleAll(d, frame, values);
    } else {
      const int i = frame - spanStart;
      const float t = static_cast<float>(i) / static_cast<float>(blend);
      BlendFrame(d, frame, loco ? start - blend + i : start, k, t, loco, values);
    }
    d.Set(k, values);
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) ProcessLoop(child, counter, frame, blend, start, end, data, loco);
  }
}

void ApplyModifiedData(X3DObject& node, int& counter, int start, int end, LoopData* data, CString& parameters,
                       ProgressBar& bar) {
  LoopData& d = data[counter++];
  if (d.HasAnyChannel()) {
    CDoubleArray times(end - start + 1);
    for (long k = 0; k < times.GetCount(); ++k) times[k] = static_cast<double>(k);
    for (int c = 0; c < kLoopChannelCount; ++c) {
      if (!d.HasChannel(c)) continue;
      Parameter parameter = node.GetParameter(kLoopChannels[c]);
      FCurve curve;
      if (!parameter.AddFCurve(siStandardFCurve, curve).Succeeded()) continue;
      curve.SetKeys(times, CDoubleArray(d.Values(c)), siLinearInterpolation);
      if (!parameters.IsEmpty()) parameters += L",";
      parameters += parameter.GetFullName();
    }
  }
  bar.Increment();
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) ApplyModifiedData(child, counter, start, end, data, parameters, bar);
  }
}

double MeasureLoopSeam(X3DObject& root, double first, double last, bool loco) {
  const CRefArray nodes = root.FindChildren(CString(), CString());
  const std::vector<DrvVector> a = PositionsAt(root, nodes, first, loco);
  const std::vector<DrvVector> b = PositionsAt(root, nodes, last, loco);
  double largest = 0.0;
  for (size_t j = 0; j < a.size(); ++j) {
    DrvVector last = b[j], first = a[j], jump;
    DrvVector_Subtract(&jump, &last, &first);
    largest = std::max(largest, static_cast<double>(DrvVector_Magnitude(&jump)));
  }
  return largest;
}

bool MakeLoop(ActionSource& source, Model& model, X3DObject& root, int start, int end, int smooth, bool loco) {
  if (end <= start) {
    ShowMessage(L"The range given for making the motion loopable is invalid.");
    return false;
  }
  const int sourceStart = static_cast<int>(source.GetParameterValue(L"FrameStart").AsDouble());
  const int blend = LoopBlendLength(start, end, smooth, loco, sourceStart);
  if (loco && blend <= 0) {
    ShowMessage(L"There is not enough animation before the start index for the making a locomotion cycle.");
    return false;
  }
  const int frames = end - start + 1;
  const int nodes = GetNumChildren(root) + 1;
  const double seamBefore = MeasureLoopSeam(root, start, end, loco);

  ProgressBar bar = ShowProgressBar(frames + nodes, L"Processing Loop");
  std::vector<LoopData> data(static_cast<size_t>(nodes));
  for (int frame = start; frame <= end; ++frame) {
    bar.Increment();
    int counter = 0;
    ProcessLoop(root, counter, frame, blend, start, end, data.data(), loco);
  }

  RemoveFCurves(root);
  bar.PutCaption(L"Creating Action");
  CString parameters;
  int counter = 0;
  ApplyModifiedData(root, counter, start, end, data.data(), parameters, bar);
  const double seamAfter = MeasureLoopSeam(root, 0.0, static_cast<double>(end - start), loco);

  const CString name = source.GetName() + L"_loop";
  CValue stored;
  CStatus status = Application().ExecuteCommand(
      L"StoreAction", {model.GetFullName(), parameters, 6, name, 1, 0.0, static_cast<double>(end - start), 0, 0},
      stored);
  FinishProgressBar(bar);
  if (!status.Succeeded()) {
    // Nothing animated, or the host refused: the written curves go, so nothing is left half made.
    RemoveFCurves(root);
    ShowMessage(CString(L"The loop of the action source ") + source.GetName() +
                L" cannot be stored: " + status.GetMessage());
    return false;
  }
  char seam[160];
  std::snprintf(seam, sizeof seam, ": the largest joint position jump between the last and first frame is %.6g before blending and %.6g after.",
                seamBefore, seamAfter);
  Application().LogMessage(ActionSource(stored.AsRef()).GetFullName() + CString(seam), siInfoMsg);
  return true;
}
