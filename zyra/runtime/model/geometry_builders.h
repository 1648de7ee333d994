// Building geometry, primitives, envelopes and chains on 3D objects.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/model.h"

namespace Zyra::rt {

// Checks polygon data (count, then that many indices, repeated) against the point count.
CStatus CheckPolygonData(const std::vector<double>& points, const std::vector<long>& polygons);
// Gives `object` a polygon-mesh primitive with these points and polygons.
void SetMesh(const std::shared_ptr<X3D>& object, std::vector<double> points, std::vector<long> polygons);
// A six-face cube of edge `edge` centred on the origin.
void SetCubeMesh(const std::shared_ptr<X3D>& object, double edge);
// "Sphere" (parameter "radius", default 1) or "Cube" (a mesh cube of edge 8) under `parent`;
// null for an unknown preset.
std::shared_ptr<X3D> CreatePrimitiveObject(const std::shared_ptr<X3D>& parent, const std::wstring& preset,
                                           std::wstring name);
// Binds `mesh` to `deformers`, each weighted 100 / count on every point.
CStatus AddEnvelope(const std::shared_ptr<X3D>& mesh, const std::vector<std::shared_ptr<X3D>>& deformers);
CStatus SetEnvelopeWeights(Envelope& envelope, const std::shared_ptr<Object>& deformer,
                           const std::vector<double>& weights);
// A chain root at `rootPosition` (global) under `parent`, one bone per end position, and an
// effector at the last end. Bones point along their local X axis.
std::shared_ptr<X3D> CreateChain(const std::shared_ptr<X3D>& parent, const std::wstring& name,
                                 const MATH::CVector3& rootPosition,
                                 const std::vector<MATH::CVector3>& boneEnds);

}  // namespace Zyra::rt
