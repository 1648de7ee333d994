// The sampled and modified local channels of one node over a loop's cycle.
#include "knrexport/skill/loop_data.h"

using namespace Zyra;

void LoopData::Init(int frameCount, X3DObject& node) {
  frameCount_ = frameCount < 0 ? 0 : frameCount;
  for (int c = 0; c < kLoopChannelCount; ++c) {
    const size_t i = static_cast<size_t>(c);
    Parameter parameter = node.GetParameter(kLoopChannels[c]);
    FCurve curve(parameter.IsValid() ? parameter.GetSource() : CRef());
    curves_[i] = curve.IsValid() && curve.GetKeyCount() > 0 ? curve : FCurve();
    statics_[i] = parameter.IsValid() ? parameter.GetValue().AsDouble() : 0.0;
    values_[i].assign(curves_[i].IsValid() ? static_cast<size_t>(frameCount_) : 0u, 0.0);
  }
  initialised_ = true;
}

void LoopData::Set(int index, const double values[kLoopChannelCount]) {
  if (index < 0 || index >= frameCount_) return;
  for (size_t c = 0; c < kLoopChannelCount; ++c) {
    if (!values_[c].empty()) values_[c][static_cast<size_t>(index)] = values[c];
  }
}

double LoopData::Sample(int channel, double frame) const {
  const size_t c = static_cast<size_t>(channel);
  return curves_[c].IsValid() ? curves_[c].Eval(CTime(frame)) : statics_[c];
}

bool LoopData::HasAnyChannel() const {
  for (const auto& v : values_) {
    if (!v.empty()) return true;
  }
  return false;
}
