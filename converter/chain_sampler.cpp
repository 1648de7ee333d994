// Frame-by-frame global transforms composed from local channels (see chain_sampler.h).
#include "chain_sampler.h"

#include <algorithm>

#include "zyra/application.h"
#include "zyra/kinematics.h"

namespace knrconvert {
namespace {

constexpr double kDegToRad = 0.017453292519943295;
const wchar_t* const kChannels[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                     L"rotz", L"sclx", L"scly", L"sclz"};

}  // namespace

int ChainSampler::Slot(const Zyra::X3DObject& object) {
  const std::wstring name = object.GetFullName().Wide();
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (nodes_[i].fullName == name) return static_cast<int>(i);
  }
  Zyra::X3DObject parent(object.GetParent());
  int parentSlot = -1;
  if (parent.IsValid() && parent.GetRef() != object.GetModel().GetRef()) {
    parentSlot = Slot(parent);
  } else if (parent.IsValid()) {
    top_ = parent.GetKinematics().GetGlobal().GetTransform();
  }
  Node node;
  node.fullName = name;
  node.parent = parentSlot;
  for (int c = 0; c < 9; ++c) {
    const Zyra::Parameter parameter(Zyra::Application().GetObjectFromPath(
        Zyra::CString(name + L".kine.local." + kChannels[c])));
    Zyra::FCurve curve(parameter.GetSource());
    if (curve.IsValid() && curve.GetKeyCount() > 0) {
      node.channels[c].curve = curve;
    } else {
      node.channels[c].value = parameter.GetValue().AsDouble();
    }
  }
  nodes_.push_back(node);
  return static_cast<int>(nodes_.size()) - 1;
}

int ChainSampler::Add(const Zyra::X3DObject& object) { return Slot(object); }

void ChainSampler::At(double frame) {
  const Zyra::CTime time(frame);
  for (Node& node : nodes_) {
    double v[9];
    for (int c = 0; c < 9; ++c) {
      const Channel& channel = node.channels[c];
      v[c] = channel.curve.IsValid() ? channel.curve.Eval(time) : channel.value;
    }
    Zyra::MATH::CTransformation local;
    local.SetTranslationFromValues(v[0], v[1], v[2]);
    local.SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad);
    local.SetScalingFromValues(v[6], v[7], v[8]);
    const Zyra::MATH::CTransformation& parent =
        node.parent < 0 ? top_ : nodes_[static_cast<size_t>(node.parent)].global;
    node.global = Zyra::MATH::CTransformation::Compose(parent, local);
  }
}

RelativePoses SampleRelativePoses(const Zyra::X3DObject& cog, int first, int last, double frameTime,
                                  std::vector<std::string>* names) {
  ChainSampler sampler;
  std::vector<int> slots;
  std::vector<Zyra::X3DObject> stack = {cog};
  while (!stack.empty()) {
    const Zyra::X3DObject object = stack.back();
    stack.pop_back();
    slots.push_back(sampler.Add(object));
    if (names) names->push_back(Zyra::ToUtf8(object.GetName().Wide()));
    const Zyra::CRefArray children = object.GetChildren();
    for (long i = children.GetCount() - 1; i >= 0; --i) {
      Zyra::X3DObject child(children[i]);
      if (child.IsValid()) stack.push_back(child);
    }
  }
  const int joints = static_cast<int>(slots.size());
  const int frames = std::max(0, last - first + 1);
  std::vector<Vec3f> positions(static_cast<size_t>(frames) * slots.size());
  std::vector<Quatf> cogRotation(static_cast<size_t>(frames));
  for (int f = 0; f < frames; ++f) {
    sampler.At(first + f);
    for (int j = 0; j < joints; ++j) {
      double x, y, z;
      sampler.Global(slots[static_cast<size_t>(j)]).GetTranslationValues(x, y, z);
      positions[static_cast<size_t>(f) * slots.size() + static_cast<size_t>(j)] = {
          static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
    }
    const Zyra::MATH::CQuaternion q = sampler.Global(slots[0]).GetRotationQuaternion();
    cogRotation[static_cast<size_t>(f)] = {
        static_cast<float>(q.GetX()), static_cast<float>(q.GetY()), static_cast<float>(q.GetZ()),
        static_cast<float>(q.GetW())};
  }
  return RelativeToCog(frameTime, joints, positions, cogRotation, 0);
}

}  // namespace knrconvert
