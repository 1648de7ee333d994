// The fcurve work that every skill converter shares.
#include "knrexport/skill/skill_channels.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr int kValueCurve = 30;  // fcurve type of a plain value curve
constexpr float kNearZero = 1e-7f;
constexpr const wchar_t* kLocalParameters[] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                                L"rotz", L"sclx", L"scly", L"sclz"};

FCurve ExistingCurve(X3DObject& node, const wchar_t* channel) {
  Parameter parameter = node.GetParameter(channel);
  return parameter.IsValid() ? FCurve(parameter.GetSource()) : FCurve();
}

void AppendMarkers(X3DObject& node, CString& markers) {
  for (const wchar_t* name : kLocalParameters) {
    Parameter parameter = node.GetParameter(name);
    if (!parameter.IsValid() || !FCurve(parameter.GetSource()).IsValid()) continue;
    if (!markers.IsEmpty()) markers += L",";
    markers += parameter.GetFullName();
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) AppendMarkers(child, markers);
  }
}

}  // namespace

int WholeFrame(double frame) { return static_cast<int>(frame); }

FCurve GetFCurve(X3DObject& node, CString channel) {
  Parameter parameter = node.GetParameter(channel);
  if (!parameter.IsValid()) return FCurve();
  FCurve curve(parameter.GetSource());
  if (curve.IsValid()) return curve;
  if (!parameter.AddFCurve(kValueCurve, curve).Succeeded()) return FCurve();
  curve.PutInterpolation(siLinearInterpolation);
  return curve;
}

void ExtractStartEndKey(X3DObject& root, double& first, double& last) {
  for (const wchar_t* channel : kChannels) {
    FCurve curve = ExistingCurve(root, channel);
    const long count = curve.GetKeyCount();
    if (count == 0) continue;
    first = std::fmin(first, curve.GetKeyTime(0).GetTime());
    last = std::fmax(last, curve.GetKeyTime(count - 1).GetTime());
  }
}

void MakeLinear(X3DObject& node) {
  for (const wchar_t* channel : kChannels) {
    FCurve curve = ExistingCurve(node, channel);
    if (curve.IsValid()) curve.PutInterpolation(siLinearInterpolation);
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) MakeLinear(child);
  }
}

void ExtractMarkers(X3DObject& root, CString& markers) {
  markers = CString();
  AppendMarkers(root, markers);
}

bool StoreFCurves(Model& model, X3DObject& root, ActionSource& source, CString& markers, int kind,
                  double start, double end) {
  MakeLinear(root);
  std::wstring list = markers.Wide();
  list.erase(0, list.find_first_not_of(L','));
  const CString name = source.GetName();
  CValue made;
  CStatus stored = Application().ExecuteCommand(
      L"StoreAction", {model.GetFullName(), CString(list), 6, name, 1, start, end, 0, 0}, made);
  ActionSource fresh(made.AsRef());
  if (!stored.Succeeded() || !fresh.IsValid()) {
    ShowMessage(CString(L"Failed to store the skill ") + name + L": " + stored.GetMessage());
    return false;
  }
  DeleteObj(source.GetFullName());
  fresh.PutName(name);
  fresh.PutParameterValue(L"type", kind);
  fresh.PutParameterValue(L"FrameStart", start);
  fresh.PutParameterValue(L"FrameEnd", end);
  source = fresh;
  return true;
}

void ApplyAction(ActionSource& source) {
  CValue ignored;
  Application().ExecuteCommand(L"ApplyAction", {CValue(source.GetRef())}, ignored);
}

namespace {

constexpr double kDegToRad = 3.14159265358979323846 / 180.0;

// A node's local transform read straight from its nine channel curves: a channel whose curve
// has no keys shows its static value, as the host's own evaluation does. The curves are
// evaluated over the whole range at once when the sampler is made.
class LocalSampler {
 public:
  LocalSampler(X3DObject& node, int start, int end) : start_(start) {
    const int frames = std::max(end - start, 1);
    for (int c = 0; c < 9; ++c) {
      Parameter parameter = node.GetParameter(kLocalParameters[c]);
      FCurve curve = parameter.IsValid() ? FCurve(parameter.GetSource()) : FCurve();
      if (curve.GetKeyCount() > 0) {
        samples_[c].resize(static_cast<size_t>(frames));
        curve.EvalFrames(start, frames, samples_[c].data());
        animated_ = true;
      } else {
        values_[c] = parameter.IsValid() ? parameter.GetValue(CTime(start)).AsDouble() : (c >= 6 ? 1.0 : 0.0);
      }
    }
  }
  bool Animated() const { return animated_; }
  // The transform at `frame`, start <= frame < end.
  MATH::CTransformation At(int frame) const {
    const size_t i = static_cast<size_t>(frame - start_);
    double v[9];
    for (int c = 0; c < 9; ++c) v[c] = samples_[c].empty() ? values_[c] : samples_[c][i];
    MATH::CTransformation t;
    t.SetTranslationFromValues(v[0], v[1], v[2])
        .SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad)
        .SetScalingFromValues(v[6], v[7], v[8]);
    return t;
  }

 private:
  int start_;
  std::vector<double> samples_[9];
  double values_[9] = {};
  bool animated_ = false;
};

}  // namespace

void SampleLocal(X3DObject& node, int start, int end, std::vector<DrvTransform>& out) {
  out.clear();
  if (end <= start) return;
  out.resize(static_cast<size_t>(end - start));
  const LocalSampler local(node, start, end);
  for (int f = start; f < end; ++f) DrvTransform_Set(out[static_cast<size_t>(f - start)], local.At(f));
}

namespace {
LocalSampleCache* gActiveCache = nullptr;
}  // namespace

LocalSampleCache::LocalSampleCache() { gActiveCache = this; }
LocalSampleCache::~LocalSampleCache() { gActiveCache = nullptr; }
LocalSampleCache* LocalSampleCache::Active() { return gActiveCache; }

const std::vector<MATH::CTransformation>* LocalSampleCache::Find(const CRef& object, int start, int end) const {
  for (const std::unique_ptr<Entry>& e : entries_) {
    if (e->object == object && e->start == start && e->end == end) return &e->samples;
  }
  return nullptr;
}

const std::vector<MATH::CTransformation>& LocalSampleCache::Keep(const CRef& object, int start, int end,
                                                                std::vector<MATH::CTransformation> samples) {
  Forget(object);
  entries_.push_back(std::make_unique<Entry>(Entry{object, start, end, std::move(samples)}));
  return entries_.back()->samples;
}

void LocalSampleCache::Forget(const CRef& object) {
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i]->object != object) continue;
    entries_.erase(entries_.begin() + static_cast<long>(i));
    return;
  }
}

void SampleGlobal(X3DObject& node, int start, int end, std::vector<MATH::CTransformation>& out) {
  out.clear();
  if (end <= start) return;
  const size_t frames = static_cast<size_t>(end - start);
  std::vector<X3DObject> chain;  // from the top of the scene down to `node`
  for (X3DObject o = node; o.IsValid(); o = X3DObject(o.GetParent())) chain.insert(chain.begin(), o);
  // The still objects above the first animated one fold into one transform; below it, a still
  // object is one fixed transform and an animated one a sample per frame.
  struct Link {
    MATH::CTransformation fixed;
    const std::vector<MATH::CTransformation>* samples;
  };
  MATH::CTransformation base;
  std::vector<Link> links;
  std::vector<std::vector<MATH::CTransformation>> owned;  // samples kept without a cache
  owned.reserve(chain.size());
  LocalSampleCache* cache = LocalSampleCache::Active();
  for (X3DObject& o : chain) {
    const std::vector<MATH::CTransformation>* kept = cache ? cache->Find(o.GetRef(), start, end) : nullptr;
    if (!kept) {
      LocalSampler local(o, start, end);
      if (!local.Animated()) {
        if (links.empty()) {
          base = MATH::CTransformation::Compose(base, local.At(start));
        } else {
          links.push_back({local.At(start), nullptr});
        }
        continue;
      }
      std::vector<MATH::CTransformation> samples;
      samples.reserve(frames);
      for (int f = start; f < end; ++f) samples.push_back(local.At(f));
      if (cache) {
        kept = &cache->Keep(o.GetRef(), start, end, std::move(samples));
      } else {
        owned.push_back(std::move(samples));
        kept = &owned.back();
      }
    }
    links.push_back({MATH::CTransformation(), kept});
  }
  out.reserve(frames);
  for (size_t i = 0; i < frames; ++i) {
    MATH::CTransformation t = base;
    for (const Link& link : links) t = MATH::CTransformation::Compose(t, link.samples ? (*link.samples)[i] : link.fixed);
    out.push_back(t);
  }
}

void LowerToSphereBottom(CRefArray& spheres, int start, int end, float& bottom) {
  std::vector<MATH::CTransformation> path;
  for (const CRef& ref : spheres) {
    X3DObject sphere(ref);
    if (!sphere.IsValid()) continue;
    Parameter radius = sphere.GetActivePrimitive().GetParameter(L"radius");
    const bool varying = FCurve(radius.GetSource()).IsValid();
    const double still = radius.GetValue(CTime(start)).AsDouble();
    SampleGlobal(sphere, start, end, path);
    for (int f = start; f < end; ++f) {
      const MATH::CTransformation& t = path[static_cast<size_t>(f - start)];
      const double r = varying ? radius.GetValue(CTime(f)).AsDouble() : still;
      const double low = t.GetTranslation().GetY() - r * std::fabs(t.GetScaling().GetY());
      bottom = std::fmin(bottom, static_cast<float>(low));
    }
  }
}

ChannelTrack::ChannelTrack(size_t frames) {
  for (std::vector<double>& v : values_) v.reserve(frames);
}

void ChannelTrack::Add(const DrvTransform& t) {
  DrvQuaternion q = t.rotation;
  DrvVector angles;
  DrvQuaternion_GetEulerAngles(&q, &angles);
  DrvVector_Multiply(&angles, &angles, kRadToDeg);
  const float values[kChannelCount] = {t.translation.x, t.translation.y, t.translation.z,
                                       angles.x,        angles.y,        angles.z};
  for (int c = 0; c < kChannelCount; ++c) {
    float v = values[c];
    if (c >= 3 && !values_[c].empty()) v = EnforceContinuity(v, static_cast<float>(values_[c].back()));
    values_[c].push_back(std::fabs(v) < kNearZero ? 0.0 : v);
  }
}

void ChannelTrack::Write(X3DObject& node, int start) {
  if (LocalSampleCache* cache = LocalSampleCache::Active()) cache->Forget(node.GetRef());
  const size_t frames = values_[0].size();
  if (frames == 0) return;
  std::vector<double> times(frames);
  for (size_t i = 0; i < frames; ++i) times[i] = start + static_cast<double>(i);
  for (int c = 0; c < kChannelCount; ++c) {
    FCurve curve = GetFCurve(node, kChannels[c]);
    if (curve.IsValid()) ReplaceKeys(curve, times, values_[c], siLinearInterpolation);
  }
}

void ReplaceKeys(FCurve& curve, const std::vector<double>& frames, const std::vector<double>& values,
                 int interpolation) {
  if (frames.empty()) return;
  curve.RemoveKeys(CTime(frames.front()), CTime(frames.back()));
  if (curve.GetKeyCount() == 0) {
    // Nothing outside the range: the whole curve is written in one call.
    curve.SetKeys(CDoubleArray(frames), CDoubleArray(values), interpolation);
    return;
  }
  curve.BeginEdit();
  for (size_t i = 0; i < frames.size(); ++i) curve.AddKey(CTime(frames[i]), values[i], interpolation);
  curve.EndEdit();
}
