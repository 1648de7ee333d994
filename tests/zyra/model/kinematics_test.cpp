// Kinematics checked against an independent Eigen evaluation of the host's hierarchy rules (and,
// with uniform scaling, against plain matrix products), plus the "Rotate" and "ResetTransform"
// commands judged by what the user sees: world-space points and global transforms.
#include "zyra/kinematics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <eigen3/Eigen/Geometry>
#include <random>
#include <vector>

#include "host/host.h"
#include "model/geometry_builders.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "zyra/x3dobject.h"

namespace {

using namespace Zyra;
using MATH::CTransformation;
using MATH::CVector3;
using rt::Host;
using rt::X3D;

constexpr double kDeg = 3.14159265358979323846 / 180.0;
const wchar_t* const kChannels[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                     L"rotz", L"sclx", L"scly", L"sclz"};

struct Channels {
  double v[9];
};

// An SRT in Eigen terms; composed with the host's hierarchical scaling by Global() below.
struct Srt {
  Eigen::Vector3d t, s;
  Eigen::Quaterniond q;
  Eigen::Vector3d Map(const Eigen::Vector3d& p) const { return q * s.cwiseProduct(p) + t; }
};

Srt SrtOf(const Channels& c) {
  Srt out;
  out.t = {c.v[0], c.v[1], c.v[2]};
  out.q = Eigen::AngleAxisd(c.v[5] * kDeg, Eigen::Vector3d::UnitZ()) *
          Eigen::AngleAxisd(c.v[4] * kDeg, Eigen::Vector3d::UnitY()) *
          Eigen::AngleAxisd(c.v[3] * kDeg, Eigen::Vector3d::UnitX());
  out.s = {c.v[6], c.v[7], c.v[8]};
  return out;
}

Channels Read(const X3D& o) {
  Channels c;
  for (int i = 0; i < 9; ++i) c.v[i] = o.local->FindParam(kChannels[i])->value.AsDouble();
  return c;
}

void Write(X3D& o, const Channels& c) {
  for (int i = 0; i < 9; ++i)
    ASSERT_TRUE(o.local->FindParam(kChannels[i])->Put(CValue(c.v[i]), 1).Succeeded());
}

// The oracle: the global SRT from the parameters, walking up the parents.
Srt Global(const X3D& o) {
  Srt local = SrtOf(Read(o));
  auto parent = o.Parent();
  if (!parent) return local;
  Srt p = Global(*parent);
  return {p.t + p.q * p.s.cwiseProduct(local.t), p.s.cwiseProduct(local.s), p.q * local.q};
}

Eigen::Vector3d E(const CVector3& v) { return {v.GetX(), v.GetY(), v.GetZ()}; }

::testing::AssertionResult Near(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b, double tol) {
  const double err = (a - b).cwiseAbs().maxCoeff();
  const double scale = std::max(1.0, a.cwiseAbs().maxCoeff());
  if (err <= tol * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "difference " << err << "\n" << a << "\nvs\n" << b;
}

::testing::AssertionResult SameSrt(const CTransformation& t, const Srt& o, double tol) {
  const auto& q = t.GetRotationQuaternion();
  const Eigen::Matrix3d r =
      Eigen::Quaterniond(q.GetW(), q.GetX(), q.GetY(), q.GetZ()).toRotationMatrix();
  if (auto a = Near(E(t.GetTranslation()), o.t, tol); !a) return a << " (translation)";
  if (auto a = Near(E(t.GetScaling()), o.s, tol); !a) return a << " (scaling)";
  if (auto a = Near(r, o.q.toRotationMatrix(), tol); !a) return a << " (rotation)";
  return ::testing::AssertionSuccess();
}

class KinematicsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Host::Get().NewScene();
    root_ = Host::Get().scene().root;
  }

  Channels RandomChannels(double sLo, double sHi) {
    Channels c;
    for (int i = 0; i < 3; ++i) c.v[i] = U(-10, 10);
    for (int i = 3; i < 6; ++i) c.v[i] = U(-180, 180);
    for (int i = 6; i < 9; ++i) c.v[i] = U(sLo, sHi);
    return c;
  }
  double U(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(gen_); }

  std::shared_ptr<X3D> Null(const std::shared_ptr<X3D>& parent, const wchar_t* name = L"n") {
    auto o = rt::CreateX3D(parent, siX3DObjectID, L"null", name);
    Write(*o, RandomChannels(0.3, 2.5));
    return o;
  }

  std::shared_ptr<X3D> Mesh(const std::shared_ptr<X3D>& parent, std::vector<double> points) {
    auto o = rt::CreateX3D(parent, siX3DObjectID, L"polymsh", L"mesh");
    rt::SetMesh(o, std::move(points), {});
    return o;
  }

  // A random tree of `count` nodes below the scene root, at most `maxDepth` levels deep.
  std::vector<std::shared_ptr<X3D>> Tree(int count, int maxDepth) {
    std::vector<std::shared_ptr<X3D>> nodes;
    std::vector<int> depth;
    for (int i = 0; i < count; ++i) {
      int parent = std::uniform_int_distribution<int>(-1, i - 1)(gen_);
      while (parent >= 0 && depth[static_cast<size_t>(parent)] >= maxDepth) --parent;
      nodes.push_back(Null(parent < 0 ? root_ : nodes[static_cast<size_t>(parent)]));
      depth.push_back(parent < 0 ? 1 : depth[static_cast<size_t>(parent)] + 1);
    }
    return nodes;
  }

  CStatus Run(const wchar_t* command, const CValueArray& args) {
    CValue result;
    return Host::Get().Execute(command, args, result);
  }

  std::shared_ptr<rt::ModelObject> root_;
  std::mt19937_64 gen_{42};
};

TEST_F(KinematicsTest, GlobalTransformFollowsTheHierarchyRules) {
  for (int trial = 0; trial < 40; ++trial) {
    SetUp();
    Write(*root_, RandomChannels(0.5, 2));  // the scene root's own transform counts too
    for (const auto& node : Tree(25, 6)) {
      ASSERT_TRUE(SameSrt(node->GlobalTransform(1), Global(*node), 1e-12));
      ASSERT_TRUE(SameSrt(node->LocalTransform(1), SrtOf(Read(*node)), 1e-14));
    }
  }
}

TEST_F(KinematicsTest, UniformScalingMatchesMatrixProducts) {
  for (int trial = 0; trial < 50; ++trial) {
    SetUp();
    Eigen::Affine3d product = Eigen::Affine3d::Identity();
    std::shared_ptr<X3D> node = root_;
    for (int level = 0; level < 7; ++level) {
      if (level > 0) node = Null(node);
      Channels c = RandomChannels(1, 1);
      c.v[6] = c.v[7] = c.v[8] = U(0.3, 2);
      Write(*node, c);
      const Srt s = SrtOf(c);
      product = product * (Eigen::Translation3d(s.t) * s.q * Eigen::Scaling(s.s));
    }
    const Eigen::Vector3d p(U(-3, 3), U(-3, 3), U(-3, 3));
    const CVector3 mapped = node->GlobalTransform(1).MapPoint(CVector3(p.x(), p.y(), p.z()));
    EXPECT_TRUE(Near(E(mapped), product * p, 1e-12));
  }
}

TEST_F(KinematicsTest, PutGlobalReachesTheTargetAndLeavesOthersAlone) {
  for (int trial = 0; trial < 40; ++trial) {
    SetUp();
    Write(*root_, RandomChannels(0.5, 2));
    auto nodes = Tree(20, 6);
    auto target = nodes[static_cast<size_t>(trial % 20)];
    std::vector<Channels> before;
    for (const auto& n : nodes) before.push_back(Read(*n));

    const Srt wanted = SrtOf(RandomChannels(0.2, 3));
    CTransformation t;
    t.SetTranslationFromValues(wanted.t.x(), wanted.t.y(), wanted.t.z())
        .SetRotationFromQuaternion(
            MATH::CQuaternion(wanted.q.w(), wanted.q.x(), wanted.q.y(), wanted.q.z()))
        .SetScalingFromValues(wanted.s.x(), wanted.s.y(), wanted.s.z());
    ASSERT_TRUE(target->PutGlobalTransform(t, 1).Succeeded());
    EXPECT_TRUE(SameSrt(target->GlobalTransform(1), wanted, 1e-10));
    EXPECT_TRUE(SameSrt(target->GlobalTransform(1), Global(*target), 1e-12));
    // Every other node keeps its parameters exactly; descendants move with the target.
    for (size_t i = 0; i < nodes.size(); ++i) {
      if (nodes[i] == target) continue;
      for (int c = 0; c < 9; ++c) ASSERT_EQ(Read(*nodes[i]).v[c], before[i].v[c]);
      ASSERT_TRUE(SameSrt(nodes[i]->GlobalTransform(1), Global(*nodes[i]), 1e-10));
    }
  }
}

TEST_F(KinematicsTest, PutLocalWritesDegreesAndKeepsWholeTurns) {
  auto o = rt::CreateX3D(root_, siX3DObjectID, L"null", L"n");  // from the rest pose
  CTransformation t;
  t.SetTranslationFromValues(1, 2, 3)
      .SetRotationFromXYZAnglesValues(30 * kDeg, 0, 0)
      .SetScalingFromValues(2, 3, 4);
  ASSERT_TRUE(o->PutLocalTransform(t, 1).Succeeded());
  const Channels c = Read(*o);
  const double expected[9] = {1, 2, 3, 30, 0, 0, 2, 3, 4};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(c.v[i], expected[i], 1e-12) << i;

  // Putting back an unchanged rotation leaves the angles as the user typed them, whichever of
  // the two angle families and whatever whole turns they use.
  for (const Channels& typed :
       {Channels{{0, 0, 0, 350, -200, 725, 1, 1, 1}}, Channels{{0, 0, 0, 180, 100, -180, 1, 1, 1}},
        Channels{{0, 0, 0, -720, 89, 179, 1, 1, 1}}, Channels{{0, 0, 0, 10, 20, 30, 1, 1, 1}}}) {
    Write(*o, typed);
    ASSERT_TRUE(o->PutGlobalTransform(o->GlobalTransform(1), 1).Succeeded());
    for (int a = 3; a < 6; ++a) EXPECT_NEAR(Read(*o).v[a], typed.v[a], 1e-9) << a;
  }
}

TEST_F(KinematicsTest, AnimatedChannelsAreEvaluatedAtTheFrame) {
  auto o = rt::CreateX3D(root_, siX3DObjectID, L"null", L"n");
  auto posx = o->local->FindParam(L"posx")->AddFCurve();
  posx->AddKey({1, -4});
  posx->AddKey({20, 6});
  auto roty = o->local->FindParam(L"roty")->AddFCurve();
  roty->AddKey({5, 90});
  EXPECT_DOUBLE_EQ(o->LocalTransform(1).GetTranslation().GetX(), -4);
  EXPECT_DOUBLE_EQ(o->LocalTransform(30).GetTranslation().GetX(), 6);
  EXPECT_TRUE(o->LocalTransform(7).GetRotationXYZAngles().Equals(CVector3(0, 90 * kDeg, 0), 1e-9));

  // The SDK's default time is PlayControl.Current.
  const KinematicState local = Kinematics(CRef(o->kine)).GetLocal();
  EXPECT_DOUBLE_EQ(local.GetTransform().GetTranslation().GetX(), -4);
  Host::Get().scene().playControl->FindParam(L"Current")->Put(CValue(25.0), 1);
  EXPECT_DOUBLE_EQ(local.GetTransform().GetTranslation().GetX(), 6);
  EXPECT_DOUBLE_EQ(local.GetTransform(CTime(1)).GetTranslation().GetX(), -4);
}

TEST_F(KinematicsTest, SdkStatesReadAndWriteThroughHandles) {
  auto parent = Null(root_);
  auto o = Null(parent);
  const Kinematics kine = X3DObject(CRef(o)).GetKinematics();
  ASSERT_TRUE(kine.IsValid());
  const KinematicState local = kine.GetLocal(), global = kine.GetGlobal();
  ASSERT_TRUE(local.IsValid() && global.IsValid());
  EXPECT_TRUE(SameSrt(local.GetTransform(), SrtOf(Read(*o)), 1e-14));
  EXPECT_TRUE(SameSrt(global.GetTransform(), Global(*o), 1e-12));

  CTransformation t;
  t.SetTranslationFromValues(5, -6, 7)
      .SetRotationFromXYZAnglesValues(0.1, 0.2, 0.3)
      .SetScalingFromValues(1, 2, 3);
  ASSERT_TRUE(KinematicState(global).PutTransform(t).Succeeded());
  const CTransformation back = global.GetTransform();
  EXPECT_TRUE(back.GetTranslation().Equals(t.GetTranslation(), 1e-10));
  EXPECT_TRUE(back.GetScaling().Equals(t.GetScaling(), 1e-10));
  EXPECT_TRUE(back.GetRotationXYZAngles().Equals(CVector3(0.1, 0.2, 0.3), 1e-10));

  // Handles of the wrong class or of deleted objects are invalid and refuse to write.
  EXPECT_FALSE(KinematicState(CRef(o->kine)).IsValid());
  EXPECT_FALSE(Kinematics(CRef(o->local)).IsValid());
  rt::Destroy(o);
  EXPECT_FALSE(global.IsValid());
  EXPECT_FALSE(KinematicState(global).PutTransform(t).Succeeded());
  EXPECT_FALSE(kine.GetGlobal().IsValid());
}

TEST_F(KinematicsTest, RotateInEachModeAndSpace) {
  auto parent = Null(root_, L"parent");
  auto o = Null(parent, L"obj");
  auto child = Null(o, L"kid");
  auto turned = [](double x, double y, double z) {
    return SrtOf(Channels{{0, 0, 0, x, y, z, 1, 1, 1}}).q;
  };
  auto expectUnmovedChild = [&](const Channels& kid) {
    for (int c = 0; c < 9; ++c) EXPECT_EQ(Read(*child).v[c], kid.v[c]);
    EXPECT_TRUE(SameSrt(child->GlobalTransform(1), Global(*child), 1e-10));
  };
  const Channels kid = Read(*child);

  // Absolute, global: the global rotation becomes the given one; position and size stay.
  Srt g = Global(*o);
  ASSERT_TRUE(Run(L"Rotate", {CValue(L"obj"), 30.0, -40.0, 70.0, 0, 1}).Succeeded());
  EXPECT_TRUE(SameSrt(o->GlobalTransform(1), Srt{g.t, g.s, turned(30, -40, 70)}, 1e-10));
  expectUnmovedChild(kid);

  // Relative, global: a turn about the world axes through the object's centre.
  g = Global(*o);
  ASSERT_TRUE(Run(L"Rotate", {CValue(CRef(o)), 10.0, 20.0, -30.0, 1, 1}).Succeeded());
  EXPECT_TRUE(SameSrt(o->GlobalTransform(1), Srt{g.t, g.s, turned(10, 20, -30) * g.q}, 1e-10));

  // Relative, local: a turn about the object's own axes.
  Channels before = Read(*o);
  Srt l = SrtOf(before);
  ASSERT_TRUE(Run(L"Rotate", {CValue(L"obj"), -15.0, 5.0, 25.0, 1, 2}).Succeeded());
  EXPECT_TRUE(SameSrt(o->LocalTransform(1), Srt{l.t, l.s, l.q * turned(-15, 5, 25)}, 1e-10));
  expectUnmovedChild(kid);

  // Absolute, local: the angles land in the parameters as given.
  ASSERT_TRUE(Run(L"Rotate", {CValue(L"obj"), 200.0, -30.0, 400.0, 0, 2}).Succeeded());
  const Channels after = Read(*o);
  EXPECT_EQ(after.v[3], 200);
  EXPECT_EQ(after.v[4], -30);
  EXPECT_EQ(after.v[5], 400);
  // A relative turn about one axis accumulates past 180 degrees.
  Write(*o, Channels{{1, 2, 3, 170, 0, 0, 1, 2, 3}});
  ASSERT_TRUE(Run(L"Rotate", {CValue(L"obj"), 20.0, 0.0, 0.0, 1, 2}).Succeeded());
  EXPECT_NEAR(Read(*o).v[3], 190, 1e-9);

  // Several objects at once, each turned in place.
  Write(*o, Channels{{1, 2, 3, 0, 0, 0, 1, 1, 1}});
  ASSERT_TRUE(Run(L"Rotate", {CValue(L"obj,kid"), 0.0, 0.0, 90.0, 0, 1}).Succeeded());
  EXPECT_TRUE(SameSrt(child->GlobalTransform(1),
                      Srt{Global(*child).t, Global(*child).s, turned(0, 0, 90)}, 1e-10));
  EXPECT_TRUE(
      SameSrt(o->GlobalTransform(1), Srt{Global(*o).t, Global(*o).s, turned(0, 0, 90)}, 1e-10));
}

TEST_F(KinematicsTest, RotateRefusesBadArgumentsAndChangesNothing) {
  auto o = Null(root_, L"obj");
  const Channels before = Read(*o);
  const std::vector<CValueArray> bad = {
      {CValue(L"nobody"), 1.0, 2.0, 3.0, 0, 1},
      {CValue(L"obj.posx"), 1.0, 2.0, 3.0, 0, 1},
      {CValue(L"obj"), CValue(L"abc"), 2.0, 3.0, 0, 1},
      {CValue(L"obj"), 1.0, 2.0, 3.0, 2, 1},
      {CValue(L"obj"), 1.0, 2.0, 3.0, 0, 3},
      {CValue(L"obj"), 1.0, 2.0, 3.0, 0.5, 1},
      {CValue(), 1.0, 2.0, 3.0, 0, 1}};  // no object and an empty selection
  for (const CValueArray& args : bad) {
    const CStatus status = Run(L"Rotate", args);
    EXPECT_FALSE(status.Succeeded()) << args[0].GetAsText().GetAsciiString();
    EXPECT_EQ(status.GetMessage().GetSubString(0, 8), CString(L"Rotate: "))
        << status.GetMessage().GetAsciiString();
  }
  for (int c = 0; c < 9; ++c) EXPECT_EQ(Read(*o).v[c], before.v[c]);
}

// World-space positions of a mesh's points by the oracle.
std::vector<Eigen::Vector3d> WorldPoints(const X3D& mesh) {
  const Srt g = Global(mesh);
  const auto& pts = mesh.primitive->geometry->points;
  std::vector<Eigen::Vector3d> out;
  for (size_t i = 0; i + 2 < pts.size(); i += 3)
    out.push_back(g.Map({pts[i], pts[i + 1], pts[i + 2]}));
  return out;
}

TEST_F(KinematicsTest, ResetTransformKeepsPointsAndChildrenInPlace) {
  for (int parts = 1; parts <= 7; ++parts) {
    for (int axes : {7, 1, 2, 4, 5}) {
      SetUp();
      auto parent = Null(root_, L"parent");
      std::vector<double> points;
      for (int i = 0; i < 24; ++i) points.push_back(U(-4, 4));
      auto mesh = Mesh(parent, points);
      Write(*mesh, RandomChannels(0.2, 3));
      auto kid = Null(mesh, L"kid");
      auto grandkid = Null(kid, L"grandkid");
      const Channels before = Read(*mesh), grandkidBefore = Read(*grandkid);
      const auto world = WorldPoints(*mesh);
      const Srt kidGlobal = Global(*kid);

      ASSERT_TRUE(Run(L"ResetTransform", {CValue(L"mesh"), 1, parts, axes}).Succeeded());
      const Channels after = Read(*mesh);
      for (int c = 0; c < 9; ++c) {
        const int part = c < 3 ? 4 : c < 6 ? 2 : 1;
        const bool reset = (parts & part) && (axes & (1 << (c % 3)));
        EXPECT_EQ(after.v[c], reset ? (c < 6 ? 0.0 : 1.0) : before.v[c])
            << parts << "/" << axes << " " << c;
      }
      const auto worldAfter = WorldPoints(*mesh);
      for (size_t i = 0; i < world.size(); ++i)
        ASSERT_TRUE(Near(worldAfter[i], world[i], 1e-10)) << parts << "/" << axes;
      EXPECT_TRUE(SameSrt(kid->GlobalTransform(1), kidGlobal, 1e-10));
      for (int c = 0; c < 9; ++c) EXPECT_EQ(Read(*grandkid).v[c], grandkidBefore.v[c]);
    }
  }
}

TEST_F(KinematicsTest, ResetTransformFreezesABoneBox) {
  // The box-bone recipe: a cube of edge 8, scaled into a thin box, stood along a bone of length
  // 4 that points along (1, 1, 0), with every part frozen in turn.
  std::vector<double> cube;
  for (int i = 0; i < 8; ++i) {
    for (int a = 0; a < 3; ++a) cube.push_back((i >> a) & 1 ? 4.0 : -4.0);
  }
  auto box = Mesh(root_, cube);
  Write(*box, Channels{{0, 0, 0, 0, 0, 0, 0.05, 0.5, 0.05}});
  ASSERT_TRUE(Run(L"ResetTransform", {CValue(L"mesh"), 1, 1, 7}).Succeeded());
  box->local->FindParam(L"posy")->Put(CValue(2.0), 1);
  ASSERT_TRUE(Run(L"ResetTransform", {CValue(L"mesh"), 1, 4, 7}).Succeeded());
  box->local->FindParam(L"rotz")->Put(CValue(-45.0), 1);
  ASSERT_TRUE(Run(L"ResetTransform", {CValue(L"mesh"), 1, 2, 7}).Succeeded());

  const Channels clean = Read(*box);
  for (int c = 0; c < 9; ++c) EXPECT_NEAR(clean.v[c], c < 6 ? 0.0 : 1.0, 1e-15);
  const Eigen::Matrix3d turn =
      Eigen::AngleAxisd(-45 * kDeg, Eigen::Vector3d::UnitZ()).toRotationMatrix();
  const auto& pts = box->primitive->geometry->points;
  for (size_t i = 0; i < 8; ++i) {
    const Eigen::Vector3d original(cube[3 * i], cube[3 * i + 1], cube[3 * i + 2]);
    const Eigen::Vector3d expected =
        turn * (original.cwiseProduct(Eigen::Vector3d(0.05, 0.5, 0.05)) + Eigen::Vector3d(0, 2, 0));
    EXPECT_TRUE(Near(Eigen::Vector3d(pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]), expected, 1e-14));
  }
}

TEST_F(KinematicsTest, ResetTransformRefusesWhatItCannotKeep) {
  auto parent = Null(root_, L"parent");
  auto mesh = Mesh(parent, {1, 2, 3});
  Write(*mesh, RandomChannels(0.5, 2));
  Null(mesh, L"kid");
  auto ball = rt::CreatePrimitiveObject(root_, L"Sphere", L"ball");
  Write(*ball, Channels{{1, 0, 0, 0, 0, 0, 2, 1, 1}});
  const Channels meshBefore = Read(*mesh);
  const std::vector<double> pointsBefore = mesh->primitive->geometry->points;

  const std::vector<CValueArray> bad = {
      {CValue(L"mesh"), 1, 0, 7},      {CValue(L"mesh"), 1, 8, 7},   {CValue(L"mesh"), 2, 1, 7},
      {CValue(L"mesh"), 1, 1, 0},      {CValue(L"mesh"), 1, 1.5, 7}, {CValue(L"nobody"), 1, 1, 7},
      {CValue(L"mesh,ball"), 1, 7, 7},  // the sphere cannot take a frozen scaling
  };
  for (const CValueArray& args : bad) {
    const CStatus status = Run(L"ResetTransform", args);
    EXPECT_FALSE(status.Succeeded());
    EXPECT_EQ(status.GetMessage().GetSubString(0, 16), CString(L"ResetTransform: "))
        << status.GetMessage().GetAsciiString();
  }
  // A parent flattened on X leaves no way to keep the look once the object's own scaling is gone.
  parent->local->FindParam(L"sclx")->Put(CValue(0.0), 1);
  EXPECT_FALSE(Run(L"ResetTransform", {CValue(L"mesh"), 1, 1, 7}).Succeeded());
  for (int c = 0; c < 9; ++c) EXPECT_EQ(Read(*mesh).v[c], meshBefore.v[c]);
  EXPECT_EQ(mesh->primitive->geometry->points, pointsBefore);
}

}  // namespace
