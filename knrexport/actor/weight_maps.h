// Carrying what hangs off an actor's nodes from the source actor to the generated one, matching
// objects by name: custom properties, envelopes with their weights, collision spheres and floors.
#pragma once

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
