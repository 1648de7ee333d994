// glTF export: the files are read back with tinygltf's loader and played as a viewer would
// (node TRS composed as matrices, animation samples at whole frames); every joint must stand
// where the host's own kinematics put it while the model plays the same source.
#include "gltf/gltf_export.h"

#include <gtest/gtest.h>
#include <tiny_gltf.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace {

using Zyra::CStatus;
using Zyra::CValue;
using Zyra::CValueArray;
namespace fs = std::filesystem;
namespace rt = Zyra::rt;

constexpr double kMetres = 0.01;  // the rig is built in centimetres

CStatus Exec(const wchar_t* command, const CValueArray& args) {
  CValue ignored;
  return rt::Host::Get().Execute(command, args, ignored);
}

void Key(const std::wstring& path, double frame, double value, int interpolation = 0) {
  ASSERT_TRUE(
      Exec(L"SetKey", {CValue(path.c_str()), CValue(frame), CValue(value), CValue(interpolation)})
          .Succeeded())
      << Zyra::ToUtf8(path);
}

void Set(const std::wstring& path, double value) {
  ASSERT_TRUE(Exec(L"SetValue", {CValue(path.c_str()), CValue(value)}).Succeeded())
      << Zyra::ToUtf8(path);
}

std::shared_ptr<rt::X3D> Null(const std::shared_ptr<rt::X3D>& parent, const wchar_t* name) {
  return rt::CreateX3D(parent, Zyra::siX3DObjectID, L"null", name);
}

// A model "Rig" standing off the origin: Hips > Spine > Head, Hips > Leg > Foot (the foot with a
// contact channel on its RTKEffector tag), animated over frames 1..30 and stored as "Walk"; the
// scene keeps an animation of its own on Spine.rotz that no source holds.
std::shared_ptr<rt::ModelObject> BuildRig() {
  rt::Host::Get().NewScene();
  auto model = rt::CreateModel(rt::Host::Get().scene().root, L"Rig");
  auto hips = Null(model, L"Hips");
  auto spine = Null(hips, L"Spine");
  Null(spine, L"Head");
  auto foot = Null(Null(hips, L"Leg"), L"Foot");
  auto tag =
      rt::CreateProperty(foot, Zyra::siCustomPropertyID, L"Custom_parameter_list", L"RTKEffector");
  tag->AddParam(rt::MakeParam(L"Contact", Zyra::siInt4, CValue(0)));
  Set(L"Rig.posx", 50);
  Set(L"Rig.roty", 90);
  Set(L"Rig.Hips.posy", 90);
  Set(L"Rig.Spine.posy", 30);
  Set(L"Rig.Head.posy", 25);
  Set(L"Rig.Leg.posx", 10);
  Set(L"Rig.Foot.posy", -80);
  Key(L"Rig.Hips.posz", 1, 0);
  Key(L"Rig.Hips.posz", 30, 140);
  Key(L"Rig.Hips.roty", 1, 0);
  Key(L"Rig.Hips.roty", 30, 350);  // turns through 180: the quaternions change hemisphere
  Key(L"Rig.Spine.rotx", 1, -20);
  Key(L"Rig.Spine.rotx", 15, 40);
  Key(L"Rig.Spine.rotx", 30, -20);
  Key(L"Rig.Leg.rotz", 1, 30);
  Key(L"Rig.Leg.rotz", 30, -30);
  Key(L"Rig.Leg.roty", 1, 20);  // the leg turns about all three axes at once
  Key(L"Rig.Leg.roty", 30, -50);
  Key(L"Rig.Leg.rotx", 1, 10);
  Key(L"Rig.Leg.rotx", 30, 60);
  EXPECT_TRUE(Exec(L"StoreAction", {CValue(L"Rig"),
                                    CValue(L"Rig.Hips.posz,Rig.Hips.roty,Rig.Spine.rotx,Rig.Leg."
                                           L"rotz,Rig.Leg.roty,Rig.Leg.rotx"),
                                    CValue(6), CValue(L"Walk"), CValue(1), CValue(1), CValue(30)})
                  .Succeeded());
  Key(L"Rig.Spine.rotz", 1, 0);
  Key(L"Rig.Spine.rotz", 30, 25);
  return model;
}

// ---- the file as a viewer plays it ----------------------------------------------------------

using Mat4 = std::array<double, 16>;  // column-major

Mat4 Trs(const double t[3], const double q[4], const double s[3]) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  const double r[9] = {1 - 2 * (y * y + z * z), 2 * (x * y + z * w),     2 * (x * z - y * w),
                       2 * (x * y - z * w),     1 - 2 * (x * x + z * z), 2 * (y * z + x * w),
                       2 * (x * z + y * w),     2 * (y * z - x * w),     1 - 2 * (x * x + y * y)};
  Mat4 m{};
  for (int c = 0; c < 3; ++c)
    for (int row = 0; row < 3; ++row) m[c * 4 + row] = r[c * 3 + row] * s[c];
  for (int row = 0; row < 3; ++row) m[12 + row] = t[row];
  m[15] = 1;
  return m;
}

Mat4 Mul(const Mat4& a, const Mat4& b) {
  Mat4 m{};
  for (int c = 0; c < 4; ++c)
    for (int row = 0; row < 4; ++row)
      for (int k = 0; k < 4; ++k) m[c * 4 + row] += a[k * 4 + row] * b[c * 4 + k];
  return m;
}

std::array<double, 3> Apply(const Mat4& m, const float p[3]) {
  std::array<double, 3> out{};
  for (int row = 0; row < 3; ++row)
    out[row] = m[row] * p[0] + m[4 + row] * p[1] + m[8 + row] * p[2] + m[12 + row];
  return out;
}

const float* Floats(const tinygltf::Model& g, int accessor) {
  const auto& a = g.accessors[static_cast<size_t>(accessor)];
  const auto& v = g.bufferViews[static_cast<size_t>(a.bufferView)];
  return reinterpret_cast<const float*>(g.buffers[static_cast<size_t>(v.buffer)].data.data() +
                                        v.byteOffset + a.byteOffset);
}

struct Played {
  std::vector<Mat4> global;  // per node
};

// Every node's global matrix at sample `k` of animation `a` (-1: the rest pose).
Played Play(const tinygltf::Model& g, int a, size_t k) {
  struct Local {
    double t[3], r[4], s[3];
  };
  std::vector<Local> locals(g.nodes.size());
  for (size_t n = 0; n < g.nodes.size(); ++n) {
    const auto& node = g.nodes[n];
    Local& l = locals[n];
    for (int i = 0; i < 3; ++i) {
      l.t[i] = node.translation.empty() ? 0 : node.translation[static_cast<size_t>(i)];
      l.s[i] = node.scale.empty() ? 1 : node.scale[static_cast<size_t>(i)];
    }
    for (int i = 0; i < 4; ++i)
      l.r[i] = node.rotation.empty() ? (i == 3) : node.rotation[static_cast<size_t>(i)];
  }
  if (a >= 0) {
    const auto& animation = g.animations[static_cast<size_t>(a)];
    for (const auto& channel : animation.channels) {
      const auto& sampler = animation.samplers[static_cast<size_t>(channel.sampler)];
      const size_t count = g.accessors[static_cast<size_t>(sampler.input)].count;
      const size_t i = std::min(k, count - 1);
      const float* out = Floats(g, sampler.output);
      Local& l = locals[static_cast<size_t>(channel.target_node)];
      if (channel.target_path == "translation")
        for (int c = 0; c < 3; ++c) l.t[c] = out[i * 3 + static_cast<size_t>(c)];
      if (channel.target_path == "rotation")
        for (int c = 0; c < 4; ++c) l.r[c] = out[i * 4 + static_cast<size_t>(c)];
      if (channel.target_path == "scale")
        for (int c = 0; c < 3; ++c) l.s[c] = out[i * 3 + static_cast<size_t>(c)];
    }
  }
  Played p;
  p.global.resize(g.nodes.size());
  std::vector<bool> done(g.nodes.size());
  std::function<void(size_t, const Mat4&)> walk = [&](size_t n, const Mat4& parent) {
    const Local& l = locals[n];
    p.global[n] = Mul(parent, Trs(l.t, l.r, l.s));
    for (int child : g.nodes[n].children) walk(static_cast<size_t>(child), p.global[n]);
  };
  Mat4 identity{};
  for (int i = 0; i < 4; ++i) identity[static_cast<size_t>(i * 5)] = 1;
  for (int root : g.scenes[0].nodes) walk(static_cast<size_t>(root), identity);
  return p;
}

tinygltf::Model Load(const fs::path& file) {
  tinygltf::TinyGLTF loader;
  tinygltf::Model g;
  std::string error, warning;
  EXPECT_TRUE(loader.LoadBinaryFromFile(&g, &error, &warning, file.string())) << error;
  return g;
}

int Animation(const tinygltf::Model& g, const std::string& name) {
  for (size_t i = 0; i < g.animations.size(); ++i)
    if (g.animations[i].name == name) return static_cast<int>(i);
  ADD_FAILURE() << "no animation " << name;
  return 0;
}

// The host object a node stands for ("Rig", "Hips" ...).
std::shared_ptr<rt::X3D> HostObject(const std::string& name) {
  const std::wstring wide = Zyra::FromUtf8(name);
  return std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(wide == L"Rig" ? wide : L"Rig." + wide));
}

class GltfExport : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("gltf_export_test_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
    model_ = BuildRig();
  }
  void TearDown() override { fs::remove_all(dir_); }

  CStatus Export(const fs::path& file, const CValue& sources = CValue(),
                 const CValue& metres = CValue(kMetres)) {
    return Exec(L"ExportGLTF", {CValue(L"Rig"), CValue(file.string().c_str()), sources, metres});
  }

  void MakeSource(const wchar_t* name, const std::wstring& list, int storeType) {
    ASSERT_TRUE(Exec(L"StoreAction", {CValue(L"Rig"), CValue(list.c_str()), CValue(storeType),
                                      CValue(name), CValue(1), CValue(1), CValue(30)})
                    .Succeeded());
  }

  fs::path dir_;
  std::shared_ptr<rt::ModelObject> model_;
};

TEST_F(GltfExport, JointsStandWhereTheHostPutsThemPlayingEachSource) {
  // The rig with a second source of one static item; rebuilt before each source plays, so that
  // the host plays every source on the scene that was exported.
  const auto rig = [&] {
    model_ = BuildRig();
    Set(L"Rig.Head.rotz", 45);
    MakeSource(L"Pose", L"Rig.Head.rotz", 1);
    Set(L"Rig.Head.rotz", 0);
    // A long source, sampled on more than one thread.
    Key(L"Rig.Leg.roty", 1, 0);
    Key(L"Rig.Leg.roty", 40000, 7200);
    Key(L"Rig.Hips.posx", 1, 0);
    Key(L"Rig.Hips.posx", 40000, 500);
    ASSERT_TRUE(
        Exec(L"StoreAction", {CValue(L"Rig"), CValue(L"Rig.Leg.roty,Rig.Hips.posx"), CValue(6),
                              CValue(L"Long"), CValue(1), CValue(1), CValue(40000)})
            .Succeeded());
  };
  rig();
  const fs::path file = dir_ / "rig.glb";
  ASSERT_TRUE(Export(file).Succeeded());
  const tinygltf::Model g = Load(file);
  const std::pair<const char*, std::vector<size_t>> sources[] = {
      {"Walk", {0, 1, 2, 7, 14, 15, 16, 28, 29}}, {"Pose", {0, 29}}, {"Long", {0, 20001, 39999}}};
  for (const auto& [source, samples] : sources) {
    SCOPED_TRACE(source);
    rig();
    ASSERT_TRUE(Exec(L"ApplyAction", {CValue((L"Rig.Sources." + Zyra::FromUtf8(source)).c_str())})
                    .Succeeded());
    const int a = Animation(g, source);
    for (size_t k : samples) {
      const Played p = Play(g, a, k);
      for (size_t n = 0; n < g.nodes.size(); ++n) {
        auto object = HostObject(g.nodes[n].name);
        if (!object) continue;  // the figure's node
        const auto t = object->GlobalTransform(1.0 + double(k));
        const auto host = t.GetTranslation();
        EXPECT_NEAR(p.global[n][12], host.GetX() * kMetres, 1e-4) << g.nodes[n].name << " " << k;
        EXPECT_NEAR(p.global[n][13], host.GetY() * kMetres, 1e-4) << g.nodes[n].name << " " << k;
        EXPECT_NEAR(p.global[n][14], host.GetZ() * kMetres, 1e-4) << g.nodes[n].name << " " << k;
        // The node's X axis turned as the host turns it (child-less nodes show rotation here).
        const auto x = t.GetRotationQuaternion().Rotate(Zyra::MATH::CVector3(1, 0, 0));
        EXPECT_NEAR(p.global[n][0], x.GetX(), 1e-4) << g.nodes[n].name << " " << k;
        EXPECT_NEAR(p.global[n][1], x.GetY(), 1e-4) << g.nodes[n].name << " " << k;
        EXPECT_NEAR(p.global[n][2], x.GetZ(), 1e-4) << g.nodes[n].name << " " << k;
      }
    }
  }
}

TEST_F(GltfExport, RestPoseIsTheRecordedHomePoseElseTheCurrentPose) {
  // Spine's home: 12 units right of the origin, turned 90 degrees about Z.
  auto spine = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Spine"));
  auto home =
      rt::CreateProperty(spine, Zyra::siCustomPropertyID, L"Custom_parameter_list", L"RTKHomePose");
  const std::pair<const wchar_t*, double> values[] = {
      {L"px", 12}, {L"py", 0}, {L"pz", 0}, {L"rx", 0}, {L"ry", 0}, {L"rz", 1.5707963267948966},
      {L"sx", 1},  {L"sy", 1}, {L"sz", 1}};
  for (const auto& [name, value] : values)
    home->AddParam(rt::MakeParam(name, Zyra::siFloat, CValue(value)));
  const fs::path file = dir_ / "rest.glb";
  ASSERT_TRUE(Export(file, CValue(L"Walk")).Succeeded());
  const tinygltf::Model g = Load(file);
  const Played p = Play(g, -1, 0);
  const double now = rt::Host::Get().CurrentFrame();
  for (size_t n = 0; n < g.nodes.size(); ++n) {
    auto object = HostObject(g.nodes[n].name);
    if (!object) continue;
    // Head is Spine's child: it keeps its local pose under the home-posed Spine.
    std::array<double, 3> expected;
    if (g.nodes[n].name == "Spine") {
      expected = {12, 0, 0};
    } else if (g.nodes[n].name == "Head") {
      expected = {12 - 25, 0, 0};  // posy 25 turned by 90 degrees about Z
    } else {
      const auto t = object->GlobalTransform(now).GetTranslation();
      expected = {t.GetX(), t.GetY(), t.GetZ()};
    }
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(p.global[n][12 + static_cast<size_t>(i)],
                  expected[static_cast<size_t>(i)] * kMetres, 1e-5)
          << g.nodes[n].name << " axis " << i;
  }
}

TEST_F(GltfExport, FigureBoxesSpanTheBonesAsTheSkeletonMoves) {
  const fs::path file = dir_ / "figure.glb";
  ASSERT_TRUE(Export(file, CValue(L"Walk")).Succeeded());
  const tinygltf::Model g = Load(file);
  ASSERT_EQ(g.skins.size(), 1u);
  const auto& skin = g.skins[0];
  const auto& primitive = g.meshes.at(0).primitives.at(0);
  const float* positions = Floats(g, primitive.attributes.at("POSITION"));
  const size_t count = g.accessors[static_cast<size_t>(primitive.attributes.at("POSITION"))].count;
  const auto& jointsAccessor =
      g.accessors[static_cast<size_t>(primitive.attributes.at("JOINTS_0"))];
  const auto& jointsView = g.bufferViews[static_cast<size_t>(jointsAccessor.bufferView)];
  const auto* joints =
      reinterpret_cast<const uint16_t*>(g.buffers[0].data.data() + jointsView.byteOffset);
  const float* inverseBind = Floats(g, skin.inverseBindMatrices);
  // Bones: Hips-Spine, Spine-Head, Hips-Leg, Leg-Foot.
  ASSERT_EQ(count, 4u * 8u);
  ASSERT_TRUE(Exec(L"ApplyAction", {CValue(L"Rig.Sources.Walk")}).Succeeded());
  for (size_t k : {size_t{0}, size_t{14}, size_t{29}}) {
    const Played p = Play(g, Animation(g, "Walk"), k);
    for (size_t box = 0; box < count / 8; ++box) {
      const int joint = joints[box * 8 * 4];
      const size_t node = static_cast<size_t>(skin.joints[static_cast<size_t>(joint)]);
      Mat4 ibm;
      for (size_t i = 0; i < 16; ++i) ibm[i] = inverseBind[static_cast<size_t>(joint) * 16 + i];
      const Mat4 skinning = Mul(p.global[node], ibm);
      std::array<double, 3> ends[2] = {};
      for (size_t c = 0; c < 8; ++c) {
        const auto v = Apply(skinning, positions + (box * 8 + c) * 3);
        for (int i = 0; i < 3; ++i)
          ends[c / 4][static_cast<size_t>(i)] += v[static_cast<size_t>(i)] / 4;
      }
      // One end at the bone's joint, the other at one of its children, as the host plays it.
      const auto near = [&](const std::array<double, 3>& a, const std::string& name) {
        const auto t = HostObject(name)->GlobalTransform(1.0 + double(k)).GetTranslation();
        return std::fabs(a[0] - t.GetX() * kMetres) < 1e-4 &&
               std::fabs(a[1] - t.GetY() * kMetres) < 1e-4 &&
               std::fabs(a[2] - t.GetZ() * kMetres) < 1e-4;
      };
      EXPECT_TRUE(near(ends[0], g.nodes[node].name)) << "box " << box << " frame " << k;
      bool child = false;
      for (int c : g.nodes[node].children)
        child = child || near(ends[1], g.nodes[static_cast<size_t>(c)].name);
      EXPECT_TRUE(child) << "box " << box << " frame " << k;
    }
  }
}

TEST_F(GltfExport, LocomotionContactsGoIntoTheAnimationExtras) {
  struct Case {
    const wchar_t* name;
    std::vector<std::pair<double, double>> keys;  // frame, contact
    int type;
    std::vector<std::pair<int, int>> planted;  // first and last frame, inclusive
  };
  const Case cases[] = {
      {L"Steps", {{1, 0}, {3, 1}, {6, 0}, {20, 1}}, 2, {{3, 5}, {20, 30}}},
      {L"Planted", {{1, 1}, {30, 0}}, 2, {{1, 29}}},
      {L"Free", {{1, 0}}, 2, {}},
      {L"Basic", {{1, 1}}, 1, {}},  // a Basic skill carries no contacts
  };
  for (const Case& c : cases) {
    for (const auto& [frame, value] : c.keys) Key(L"Rig.Foot.RTKEffector.Contact", frame, value, 1);
    MakeSource(c.name, L"Rig.Foot.RTKEffector.Contact", 6);
    auto source = std::dynamic_pointer_cast<rt::ActionSourceObject>(
        rt::Resolve(std::wstring(L"Rig.Sources.") + c.name));
    ASSERT_TRUE(source);
    source->FindParam(L"type")->value = CValue(c.type);
  }
  const fs::path file = dir_ / "contacts.glb";
  ASSERT_TRUE(Export(file, CValue(L"Steps,Planted,Free,Basic")).Succeeded());
  const tinygltf::Model g = Load(file);
  for (const Case& c : cases) {
    const std::string name = Zyra::ToUtf8(c.name);
    SCOPED_TRACE(name);
    const tinygltf::Value& extras = g.animations[static_cast<size_t>(Animation(g, name))].extras;
    EXPECT_EQ(extras.Get("skill").Get<std::string>(), c.type == 2 ? "Locomotion" : "Basic");
    if (c.type != 2) {
      EXPECT_FALSE(extras.Has("footContacts"));
      continue;
    }
    ASSERT_TRUE(extras.Get("feet").IsArray());
    ASSERT_EQ(extras.Get("feet").ArrayLen(), 1u);
    EXPECT_EQ(extras.Get("feet").Get(0).Get<std::string>(), "Foot");
    // A foot without contacts is named in "feet" only.
    const bool listed = extras.Has("footContacts") && extras.Get("footContacts").Has("Foot");
    ASSERT_EQ(listed, !c.planted.empty());
    if (!listed) continue;
    const tinygltf::Value& intervals = extras.Get("footContacts").Get("Foot");
    ASSERT_EQ(intervals.ArrayLen(), c.planted.size());
    for (size_t i = 0; i < c.planted.size(); ++i) {
      const tinygltf::Value& interval = intervals.Get(static_cast<int>(i));
      EXPECT_EQ(interval.Get("firstFrame").GetNumberAsDouble(), c.planted[i].first);
      EXPECT_EQ(interval.Get("lastFrame").GetNumberAsDouble(), c.planted[i].second);
      EXPECT_NEAR(interval.Get("start").GetNumberAsDouble(), (c.planted[i].first - 1) / 30.0, 1e-9);
      EXPECT_NEAR(interval.Get("end").GetNumberAsDouble(), (c.planted[i].second - 1) / 30.0, 1e-9);
    }
  }
}

TEST_F(GltfExport, RefusalsNameTheFaultAndLeaveTheFileAsItWas) {
  auto other = rt::CreateModel(rt::Host::Get().scene().root, L"Other");
  rt::CreateActionSource(other, L"Jump");
  const fs::path kept = dir_ / "kept.glb";
  std::ofstream(kept) << "earlier";
  const fs::path folder = dir_ / "folder.glb";
  fs::create_directories(folder);
  struct Case {
    CValueArray args;
    std::string message;
  };
  const std::string keptName = kept.string();
  const Case cases[] = {
      {{CValue(L"Rig.Hips"), CValue(keptName.c_str())}, "\"Rig.Hips\" is not a model"},
      {{CValue(L"Rig"), CValue(L"")}, "no file name given"},
      {{CValue(L"Rig"), CValue(keptName.c_str()), CValue(L"Walk,Run")},
       "\"Run\" is not an action source of Rig"},
      {{CValue(L"Rig"), CValue(keptName.c_str()), CValue(L"Other.Sources.Jump")},
       "of another model than Rig"},
      {{CValue(L"Rig"), CValue(keptName.c_str()), CValue(), CValue(0.0)}, "the metres per unit"},
      {{CValue(L"Rig"), CValue(folder.string().c_str())}, "folder.glb: cannot write"},
  };
  for (const Case& c : cases) {
    CValue ignored;
    const CStatus status = rt::Host::Get().Execute(L"ExportGLTF", c.args, ignored);
    EXPECT_FALSE(status.Succeeded()) << c.message;
    EXPECT_NE(Zyra::ToUtf8(status.GetMessage().Wide()).find(c.message), std::string::npos)
        << Zyra::ToUtf8(status.GetMessage().Wide());
  }
  std::ifstream in(kept);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "earlier");
  EXPECT_TRUE(fs::is_directory(folder));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 2);
}

}  // namespace
