// Carrying what hangs off an actor's nodes from the source actor to the generated one, matching
// objects by name: custom properties, envelopes with their weights, collision spheres and floors.
#pragma once

#include <cstdint>
#include <vector>

#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The objects of the branch of `top` (itself included) that carry at least one envelope.
void ExtractEnvelopeList(Zyra::X3DObject& top, Zyra::CRefArray& enveloped);
// Copies a custom property onto `target` under the same name: every parameter with its
// definition, value and fcurve. A property of that name already on `target` is replaced.
// Returns the copy (invalid when `source` is no property or `target` no object).
Zyra::CustomProperty CopyProperty(const Zyra::Property& source, Zyra::X3DObject& target);
// For each object of `enveloped` (source objects) and each of its envelopes: applies an envelope
// to the object's copy in `generated` with the copies of the envelope's deformers. Deformers
// without a copy are left out. One bar step per source deformer.
void CarryEnvelopes(const Zyra::CRefArray& enveloped, Zyra::Model& generated,
                    Zyra::ProgressBar& bar);
// Writes the source weights onto the copies' envelopes (paired by index), as percentages of the
// point's total over the source deformers: every point weighted in the source sums to 100 over
// them, and a point weighted only by deformers without a copy keeps no weight. One bar step per
// source deformer.
void CarryWeights(const Zyra::CRefArray& enveloped, Zyra::Model& generated, Zyra::ProgressBar& bar);
// Carries the collision spheres of the source branch to the objects of the same name in the
// generated branch: their RTKSphere property, global position and rotation, and the radius as it
// shows in the source (the primitive's radius times the largest global scaling). Returns how
// many were carried.
int SynchronizeRTKSphere(Zyra::X3DObject& sourceRoot, Zyra::X3DObject& generatedRoot);
// The same for floors: the RTKFloor property (with its bounds and size) and the placement.
int SynchronizeRTKFloor(Zyra::X3DObject& sourceRoot, Zyra::X3DObject& generatedRoot);

// One weight map of a saved actor: the points that one deformer of one envelope weighs, as point
// indices of the enveloped mesh and their weights in percent (points left out weigh 0). The maps
// of an actor come in a fixed order: the enveloped objects as ExtractEnvelopeList lists them, for
// each its envelopes, for each envelope its deformers. That order is the only link between a map
// and its mesh, so it is the same when saving and after loading the actor back.
struct WeightData {
  std::vector<std::int32_t> points;
  std::vector<float> weights;
};
using WeightList = std::vector<WeightData>;

// The number of weight maps of the model: one per deformer of every envelope of its branch.
long ComputeWeightMapSize(Zyra::Model& model);
// Brings the generated actor's weights up to date from the source actor (when `source` is valid)
// and fills `records` with the generated actor's weight maps. One bar step per map.
void SynchronizeWeightMaps(Zyra::Model& source, Zyra::Model& generated, WeightList& records,
                           Zyra::ProgressBar& bar);
// Puts the loaded weight maps back onto a freshly imported actor. The maps must match the
// actor's envelopes one for one (count, point range, weights between 0 and 100); otherwise none
// is applied, a message names `weightFile` and the result is false. No records: nothing to do.
bool CleanupImportData(Zyra::X3DObject& imported, const WeightList& records,
                       const Zyra::CString& weightFile);
// Releases the records.
void CleanupWeightData(WeightList& records);
