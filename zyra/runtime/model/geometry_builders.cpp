// Building geometry, primitives, envelopes and chains on 3D objects.
#include "model/geometry_builders.h"

#include <cmath>

#include "model/scene_graph.h"

namespace Zyra::rt {

CStatus CheckPolygonData(const std::vector<double>& points, const std::vector<long>& polygons) {
  if (points.size() % 3 != 0) {
    return CStatus(CStatus::InvalidArgument, L"The point list must hold x, y, z triples.");
  }
  long pointCount = static_cast<long>(points.size() / 3);
  size_t i = 0;
  while (i < polygons.size()) {
    long count = polygons[i];
    if (count < 3 || i + 1 + static_cast<size_t>(count) > polygons.size()) {
      return CStatus(CStatus::InvalidArgument,
                     L"Polygon data is malformed at entry " + std::to_wstring(i) + L".");
    }
    for (long k = 1; k <= count; ++k) {
      long index = polygons[i + static_cast<size_t>(k)];
      if (index < 0 || index >= pointCount) {
        return CStatus(CStatus::InvalidArgument, L"Polygon data refers to point " + std::to_wstring(index) +
                                                     L" of " + std::to_wstring(pointCount) + L".");
      }
    }
    i += static_cast<size_t>(count) + 1;
  }
  return CStatus::OK;
}

void SetMesh(const std::shared_ptr<X3D>& object, std::vector<double> points, std::vector<long> polygons) {
  if (object->primitive) Destroy(object->primitive);
  auto primitive = std::make_shared<Primitive>(L"polymsh");
  primitive->owner = object;
  auto geometry = std::make_shared<Geometry>();
  geometry->classId = siPolygonMeshID;
  geometry->isMesh = true;
  geometry->points = std::move(points);
  geometry->polygons = std::move(polygons);
  geometry->owner = primitive;
  primitive->geometry = geometry;
  object->primitive = primitive;
  object->type = L"polymsh";
}

void SetCubeMesh(const std::shared_ptr<X3D>& object, double edge) {
  double h = edge / 2;
  std::vector<double> points = {-h, -h, -h, h, -h, -h, h, h, -h, -h, h, -h,
                                -h, -h, h,  h, -h, h,  h, h, h,  -h, h, h};
  std::vector<long> polygons = {4, 0, 3, 2, 1, 4, 4, 5, 6, 7, 4, 0, 1, 5, 4,
                                4, 2, 3, 7, 6, 4, 1, 2, 6, 5, 4, 0, 4, 7, 3};
  SetMesh(object, std::move(points), std::move(polygons));
}

std::shared_ptr<X3D> CreatePrimitiveObject(const std::shared_ptr<X3D>& parent, const std::wstring& preset,
                                           std::wstring name) {
  if (preset == L"Cube") {
    auto cube = CreateX3D(parent, siX3DObjectID, L"polymsh", name.empty() ? L"cube" : name);
    SetCubeMesh(cube, 8.0);
    return cube;
  }
  if (preset != L"Sphere") return nullptr;
  auto sphere = CreateX3D(parent, siX3DObjectID, L"sphere", name.empty() ? L"sphere" : name);
  auto primitive = std::make_shared<Primitive>(L"sphere");
  primitive->name = L"Sphere";  // "Ball.Sphere" is the sphere's page: its radius
  primitive->owner = sphere;
  primitive->AddParam(MakeParam(L"radius", siDouble, CValue(1.0), CValue(0.0), CValue(1e6)));
  auto geometry = std::make_shared<Geometry>();
  geometry->owner = primitive;
  primitive->geometry = geometry;
  sphere->primitive = primitive;
  return sphere;
}

CStatus AddEnvelope(const std::shared_ptr<X3D>& mesh, const std::vector<std::shared_ptr<X3D>>& deformers) {
  if (!mesh->primitive || !mesh->primitive->geometry || !mesh->primitive->geometry->isMesh) {
    return CStatus(CStatus::InvalidArgument, mesh->FullName() + L" has no polygon mesh to envelope.");
  }
  if (deformers.empty()) return CStatus(CStatus::InvalidArgument, L"An envelope needs at least one deformer.");
  auto envelope = std::make_shared<Envelope>();
  std::wstring name = L"Envelope";
  for (int n = 1;; ++n) {
    bool taken = false;
    for (const auto& e : mesh->envelopes) taken = taken || e->name == name;
    if (!taken) break;
    name = L"Envelope" + std::to_wstring(n);
  }
  envelope->name = name;
  envelope->owner = mesh;
  long points = mesh->primitive->geometry->PointCount();
  for (const auto& d : deformers) {
    envelope->deformers.push_back(d);
    envelope->weights.emplace_back(static_cast<size_t>(points), 100.0 / static_cast<double>(deformers.size()));
  }
  mesh->envelopes.push_back(envelope);
  return CStatus::OK;
}

CStatus SetEnvelopeWeights(Envelope& envelope, const std::shared_ptr<Object>& deformer,
                           const std::vector<double>& weights) {
  for (size_t i = 0; i < envelope.deformers.size(); ++i) {
    if (deformer && envelope.deformers[i].lock() == deformer) {
      if (weights.size() != envelope.weights[i].size()) {
        return CStatus(CStatus::InvalidArgument,
                       L"The envelope of " + envelope.Owner()->FullName() + L" has " +
                           std::to_wstring(envelope.weights[i].size()) + L" points, got " +
                           std::to_wstring(weights.size()) + L" weights.");
      }
      envelope.weights[i] = weights;
      return CStatus::OK;
    }
  }
  return CStatus(CStatus::InvalidArgument,
                 (deformer ? deformer->FullName() : std::wstring(L"The object")) +
                     L" is not a deformer of this envelope.");
}

std::shared_ptr<X3D> CreateChain(const std::shared_ptr<X3D>& parent, const std::wstring& name,
                                 const MATH::CVector3& rootPosition,
                                 const std::vector<MATH::CVector3>& boneEnds) {
  double frame = CurrentFrame();
  auto root = CreateX3D(parent, siChainRootID, L"root", name + L"_Root");
  MATH::CTransformation t;
  t.SetTranslation(rootPosition);
  root->PutGlobalTransform(t, frame);
  std::shared_ptr<X3D> previous = root;
  MATH::CVector3 start = rootPosition;
  for (size_t i = 0; i < boneEnds.size(); ++i) {
    auto bone = CreateX3D(previous, siChainBoneID, L"bone", name + L"_Bone" + std::to_wstring(i));
    // The bone sits at its start and turns its X axis towards its end.
    MATH::CVector3 dir = boneEnds[i] - start;
    double len = dir.GetLength();
    MATH::CTransformation g;
    g.SetTranslation(start);
    if (len > 0) {
      MATH::CVector3 x(1, 0, 0);
      MATH::CVector3 d = dir * (1.0 / len);
      MATH::CVector3 axis = x.Cross(d);
      double s = axis.GetLength();
      double c = x.Dot(d);
      double angle = std::atan2(s, c);
      if (s > 1e-12) {
        axis = axis * (1.0 / s);
        double h = angle / 2;
        g.SetRotationFromQuaternion(MATH::CQuaternion(std::cos(h), axis.GetX() * std::sin(h),
                                                      axis.GetY() * std::sin(h), axis.GetZ() * std::sin(h)));
      } else if (c < 0) {
        g.SetRotationFromQuaternion(MATH::CQuaternion(0, 0, 0, 1));
      }
    }
    bone->PutGlobalTransform(g, frame);
    bone->chainRoot = root;
    root->chainBones.push_back(bone);
    previous = bone;
    start = boneEnds[i];
  }
  auto effector = CreateX3D(root, siChainEffectorID, L"eff", name + L"_Eff");
  MATH::CTransformation e;
  e.SetTranslation(start);
  effector->PutGlobalTransform(e, frame);
  effector->chainRoot = root;
  root->chainEffector = effector;
  return root;
}

}  // namespace Zyra::rt
