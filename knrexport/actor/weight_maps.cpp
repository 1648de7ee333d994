// Carrying properties, envelopes, weights, spheres and floors from a source actor to its copy.
#include "knrexport/actor/weight_maps.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/tags.h"
#include "zyra/fcurve.h"

using namespace Zyra;

namespace {

// Envelopes and deformers are applied with their whole branch flag set.
constexpr int kBranchFlags = 3;

void CopyCurve(const FCurve& from, Parameter& to) {
  FCurve curve;
  if (!to.AddFCurve(siStandardFCurve, curve).Succeeded()) return;
  curve.PutInterpolation(from.GetInterpolation());
  curve.BeginEdit();
  for (long k = 0; k < from.GetKeyCount(); ++k) {
    curve.AddKey(from.GetKeyTime(k), from.GetKeyValue(k), from.GetKeyInterpolation(k));
  }
  curve.EndEdit();
}

// The copy of `object` in the generated model, found by name; invalid when there is none.
X3DObject CopyOf(const CRef& object, Model& generated) {
  return generated.FindChild(X3DObject(object).GetName());
}

// The carried objects of a tag, each with its copy.
template <class Carry>
int SynchronizeTagged(X3DObject& sourceRoot, X3DObject& generatedRoot, const wchar_t* tag,
                      Carry carry) {
  CRefArray tagged;
  FindRTKNodes(sourceRoot, tag, tagged);
  int carried = 0;
  for (const CRef& ref : tagged) {
    X3DObject source(ref);
    X3DObject copy = source.GetRef() == sourceRoot.GetRef()
                         ? generatedRoot
                         : generatedRoot.FindChild(source.GetName());
    if (!copy.IsValid()) continue;
    Property tagProperty;
    FindProperty(source, tag, tagProperty);
    CustomProperty copied = CopyProperty(tagProperty, copy);
    MATH::CTransformation global = source.GetKinematics().GetGlobal().GetTransform();
    MATH::CVector3 scaling = global.GetScaling();
    global.SetScalingFromValues(1.0, 1.0, 1.0);
    copy.GetKinematics().GetGlobal().PutTransform(global);
    carry(source, copy, copied, scaling);
    ++carried;
  }
  return carried;
}

// One weight map slot of a model: an envelope and one of its deformers.
struct WeightSlot {
  Envelope envelope;
  CRef deformer;
};

std::vector<WeightSlot> WeightSlots(X3DObject& model) {
  std::vector<WeightSlot> slots;
  CRefArray enveloped;
  ExtractEnvelopeList(model, enveloped);
  for (const CRef& object : enveloped) {
    for (const CRef& envelopeRef : X3DObject(object).GetEnvelopes()) {
      Envelope envelope(envelopeRef);
      for (const CRef& deformer : envelope.GetDeformers()) slots.push_back({envelope, deformer});
    }
  }
  return slots;
}

// Why `record` cannot be the map of a deformer weighing `pointCount` points; empty when it can.
std::wstring RecordProblem(const WeightData& record, long pointCount) {
  for (size_t i = 0; i < record.points.size(); ++i) {
    if (record.points[i] < 0 || record.points[i] >= pointCount)
      return L"point " + std::to_wstring(record.points[i]) + L" is not one of the mesh's " +
             std::to_wstring(pointCount) + L" points";
    const float w = record.weights[i];
    if (!std::isfinite(w) || w < 0.0f || w > 100.0f + 1e-3f)
      return L"weight " + std::to_wstring(w) + L" is not a percentage";
  }
  return std::wstring();
}

double LargestAbs(const MATH::CVector3& v) {
  return std::max({std::fabs(v.GetX()), std::fabs(v.GetY()), std::fabs(v.GetZ())});
}

}  // namespace

void ExtractEnvelopeList(X3DObject& top, CRefArray& enveloped) {
  if (!top.IsValid()) return;
  if (top.GetEnvelopes().GetCount() > 0) enveloped.Add(top.GetRef());
  for (const CRef& ref : top.FindChildren(CString(), CString())) {
    if (X3DObject(ref).GetEnvelopes().GetCount() > 0) enveloped.Add(ref);
  }
}

CustomProperty CopyProperty(const Property& source, X3DObject& target) {
  if (!source.IsValid() || !target.IsValid()) return CustomProperty();
  Property old;
  if (FindProperty(target, source.GetName(), old)) DeleteObj(old.GetFullName());
  // A property of a registered type comes back as that type (its own parameters already made);
  // any other as a plain custom property.
  CustomProperty copy = target.AddProperty(source.GetType(), false, source.GetName());
  if (!copy.IsValid()) copy = target.AddProperty(L"Custom_parameter_list", false, source.GetName());
  if (!copy.IsValid()) return copy;
  for (const CRef& ref : source.GetParameters()) {
    Parameter from(ref);
    Parameter to = copy.GetParameter(from.GetName());
    if (!to.IsValid()) {
      copy.AddParameter(from.GetName(), from.GetValueType(), from.GetCapabilities(),
                        from.GetLabel(), from.GetDescription(), from.GetDefault(), from.GetMin(),
                        from.GetMax(), from.GetSuggestedMin(), from.GetSuggestedMax(), to);
    }
    if (!to.IsValid()) continue;
    copy.PutParameterValue(from.GetName(), from.GetValue());
    FCurve curve(from.GetSource());
    if (curve.IsValid() && curve.GetKeyCount() > 0) CopyCurve(curve, to);
  }
  return copy;
}

void CarryEnvelopes(const CRefArray& enveloped, Model& generated, ProgressBar& bar) {
  for (const CRef& ref : enveloped) {
    X3DObject copy = CopyOf(ref, generated);
    for (const CRef& envelopeRef : X3DObject(ref).GetEnvelopes()) {
      CRefArray deformers;
      for (const CRef& deformer : Envelope(envelopeRef).GetDeformers()) {
        X3DObject deformerCopy = CopyOf(deformer, generated);
        if (deformerCopy.IsValid()) deformers.Add(deformerCopy.GetRef());
        bar.Increment();
      }
      if (copy.IsValid() && deformers.GetCount() > 0)
        copy.ApplyEnvelope(deformers, kBranchFlags, kBranchFlags);
    }
  }
}

void CarryWeights(const CRefArray& enveloped, Model& generated, ProgressBar& bar) {
  for (const CRef& ref : enveloped) {
    X3DObject source(ref);
    X3DObject copy = CopyOf(ref, generated);
    CRefArray sourceEnvelopes = source.GetEnvelopes();
    CRefArray copyEnvelopes = copy.IsValid() ? copy.GetEnvelopes() : CRefArray();
    for (long e = 0; e < sourceEnvelopes.GetCount(); ++e) {
      Envelope from(sourceEnvelopes[e]);
      CRefArray deformers = from.GetDeformers();
      std::vector<double> totals;
      std::vector<CDoubleArray> read;  // each deformer's weights, read once
      for (const CRef& deformer : deformers) {
        bar.Increment();
        read.push_back(from.GetDeformerWeights(deformer, 0.0));
        const CDoubleArray& weights = read.back();
        if (totals.size() < static_cast<size_t>(weights.GetCount()))
          totals.resize(static_cast<size_t>(weights.GetCount()));
        for (long p = 0; p < weights.GetCount(); ++p) {
          if (weights[p] > 0) totals[static_cast<size_t>(p)] += weights[p];
        }
      }
      if (e >= copyEnvelopes.GetCount()) continue;
      Envelope to(copyEnvelopes[e]);
      for (long d = 0; d < deformers.GetCount(); ++d) {
        const CRef& deformer = deformers[d];
        CDoubleArray& weights = read[static_cast<size_t>(d)];
        for (long p = 0; p < weights.GetCount(); ++p) {
          double total = totals[static_cast<size_t>(p)];
          if (weights[p] > 0 && total > 0) weights[p] = 100.0 * weights[p] / total;
        }
        X3DObject deformerCopy = CopyOf(deformer, generated);
        if (deformerCopy.IsValid()) to.SetDeformerWeights(deformerCopy.GetRef(), weights);
      }
    }
  }
}

int SynchronizeRTKSphere(X3DObject& sourceRoot, X3DObject& generatedRoot) {
  return SynchronizeTagged(
      sourceRoot, generatedRoot, kTagSphere,
      [](X3DObject& source, X3DObject& copy, CustomProperty&, const MATH::CVector3& scaling) {
        double radius = source.GetActivePrimitive().GetParameterValue(L"radius").AsDouble();
        copy.GetActivePrimitive().PutParameterValue(L"radius", radius * LargestAbs(scaling));
      });
}

int SynchronizeRTKFloor(X3DObject& sourceRoot, X3DObject& generatedRoot) {
  return SynchronizeTagged(
      sourceRoot, generatedRoot, kTagFloor,
      [](X3DObject&, X3DObject& copy, CustomProperty& tag, const MATH::CVector3&) {
        // The floor's extent in the actor's space, and its size: the larger horizontal side.
        MATH::CTransformation global = copy.GetKinematics().GetGlobal().GetTransform();
        CDoubleArray points = copy.GetActivePrimitive().GetGeometry().GetPoints();
        double lo[3] = {kFltMax, kFltMax, kFltMax}, hi[3] = {-kFltMax, -kFltMax, -kFltMax};
        for (long i = 0; i + 2 < points.GetCount(); i += 3) {
          MATH::CVector3 p =
              global.MapPoint(MATH::CVector3(points[i], points[i + 1], points[i + 2]));
          const double v[3] = {p.GetX(), p.GetY(), p.GetZ()};
          for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], v[a]);
            hi[a] = std::max(hi[a], v[a]);
          }
        }
        if (points.GetCount() < 3) {
          std::fill(lo, lo + 3, 0.0);
          std::fill(hi, hi + 3, 0.0);
        }
        const wchar_t* const names[6] = {L"MinX", L"MinY", L"MinZ", L"MaxX", L"MaxY", L"MaxZ"};
        for (int a = 0; a < 6; ++a) {
          double value = a < 3 ? lo[a] : hi[a - 3];
          if (!tag.GetParameter(names[a]).IsValid())
            AddParam(tag, names[a], siFloat, kCapReadOnlyPersistable, 0.0f, -kFltMax, kFltMax);
          tag.PutParameterValue(names[a], value);
        }
        if (!tag.GetParameter(L"size").IsValid())
          AddParam(tag, L"size", siFloat, kCapReadOnlyPersistable, 0.0f, 0.0f, kFltMax);
        tag.PutParameterValue(L"size", std::max(hi[0] - lo[0], hi[2] - lo[2]));
      });
}

long ComputeWeightMapSize(Model& model) { return static_cast<long>(WeightSlots(model).size()); }

void SynchronizeWeightMaps(Model& source, Model& generated, WeightList& records, ProgressBar& bar) {
  if (source.IsValid()) {
    CRefArray enveloped;
    ExtractEnvelopeList(source, enveloped);
    ProgressBar unused;  // the carry's steps are not part of the save's share
    CarryWeights(enveloped, generated, unused);
  }
  for (const WeightSlot& slot : WeightSlots(generated)) {
    WeightData record;
    const CDoubleArray weights = slot.envelope.GetDeformerWeights(slot.deformer, 0.0);
    for (long p = 0; p < weights.GetCount(); ++p) {
      if (weights[p] <= 0) continue;
      record.points.push_back(static_cast<std::int32_t>(p));
      record.weights.push_back(static_cast<float>(weights[p]));
    }
    records.push_back(std::move(record));
    bar.Increment();
  }
}

bool CleanupImportData(X3DObject& imported, const WeightList& records, const CString& weightFile) {
  if (records.empty()) return true;
  const std::vector<WeightSlot> slots = WeightSlots(imported);
  std::vector<long> pointCounts;
  for (const WeightSlot& slot : slots)
    pointCounts.push_back(slot.envelope.GetDeformerWeights(slot.deformer, 0.0).GetCount());
  std::wstring problem;
  if (slots.size() != records.size()) {
    problem = L"it holds " + std::to_wstring(records.size()) + L" weight maps but the actor has " +
              std::to_wstring(slots.size());
  }
  for (size_t i = 0; problem.empty() && i < slots.size(); ++i) {
    const std::wstring why = RecordProblem(records[i], pointCounts[i]);
    if (!why.empty()) problem = L"weight map " + std::to_wstring(i + 1) + L": " + why;
  }
  if (!problem.empty()) {
    ShowMessage(weightFile + L": " + CString(problem) +
                L". The actor was loaded without the weights of this file.");
    return false;
  }
  for (size_t i = 0; i < slots.size(); ++i) {
    CDoubleArray weights(std::vector<double>(static_cast<size_t>(pointCounts[i]), 0.0));
    for (size_t k = 0; k < records[i].points.size(); ++k)
      weights[records[i].points[k]] = records[i].weights[k];
    Envelope envelope = slots[i].envelope;
    envelope.SetDeformerWeights(slots[i].deformer, weights);
  }
  return true;
}

void CleanupWeightData(WeightList& records) { WeightList().swap(records); }
