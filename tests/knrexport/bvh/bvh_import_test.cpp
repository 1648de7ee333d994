// BVH actor and action import through the host: joint positions against forward kinematics done
// here in double precision from the file's own text, names, key spacing, angle continuity, box
// shapes, pruning, the options page, and files that cannot be imported.
#include "knrexport/bvh/bvh_import.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "knrexport/scene/actor_lookup.h"
#include "model/scene_graph.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

const std::string kBoxing = KNR_SHARED_DATA_DIR "/bvh/Boxing_Toes.bvh";
std::string TestFile(const char* name) { return std::string(KNR_TEST_DATA_DIR "/bvh/") + name; }

// ---- The oracle: a BVH file read with plain streams, posed with 3x3 matrices in double --------

using Mat = std::array<double, 9>;  // row-major
using Vec = std::array<double, 3>;

Mat Mul(const Mat& a, const Mat& b) {
  Mat m{};
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k) m[3 * r + c] += a[3 * r + k] * b[3 * k + c];
  return m;
}
Vec Apply(const Mat& m, const Vec& v) {
  return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
          m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}
// Rotation by `degrees` about axis 0 (X), 1 (Y) or 2 (Z), acting on column vectors.
Mat About(int axis, double degrees) {
  const double c = std::cos(degrees * M_PI / 180.0), s = std::sin(degrees * M_PI / 180.0);
  if (axis == 0) return {1, 0, 0, 0, c, -s, 0, s, c};
  if (axis == 1) return {c, 0, s, 0, 1, 0, -s, 0, c};
  return {c, -s, 0, s, c, 0, 0, 0, 1};
}

struct OracleJoint {
  std::string name;
  int parent = -1;
  Vec offset{};
  std::vector<std::string> channels;
};

struct Oracle {
  std::vector<OracleJoint> joints;
  std::vector<std::vector<double>> frames;
  double frameTime = 0;

  explicit Oracle(const std::string& path) {
    std::ifstream in(path);
    std::string word;
    std::vector<int> open;  // joints whose blocks are open
    int pending = -1;       // the joint whose "{" comes next
    bool site = false;
    while (in >> word && word != "MOTION") {
      if (word == "ROOT" || word == "JOINT") {
        OracleJoint j;
        in >> j.name;
        j.parent = open.empty() ? -1 : open.back();
        joints.push_back(j);
        pending = static_cast<int>(joints.size()) - 1;
      } else if (word == "End") {
        in >> word;  // Site
        site = true;
      } else if (word == "{") {
        if (!site) open.push_back(pending);
      } else if (word == "}") {
        if (site) {
          site = false;
        } else {
          open.pop_back();
        }
      } else if (word == "OFFSET") {
        Vec v;
        in >> v[0] >> v[1] >> v[2];
        if (!site) joints[open.back()].offset = v;
      } else if (word == "CHANNELS") {
        int n;
        in >> n;
        joints[open.back()].channels.resize(static_cast<size_t>(n));
        for (auto& c : joints[open.back()].channels) in >> c;
      }
    }
    int count = 0;
    in >> word >> count >> word >> word >> frameTime;  // Frames: n Frame Time: t
    size_t values = 0;
    for (const auto& j : joints) values += j.channels.size();
    for (int f = 0; f < count; ++f) {
      std::vector<double> row(values);
      for (double& v : row) in >> v;
      frames.push_back(row);
    }
  }

  // Global positions of every joint at frame `f`, lengths times `scale`.
  std::vector<Vec> Positions(size_t f, double scale) const {
    std::vector<Vec> pos(joints.size());
    std::vector<Mat> rot(joints.size());
    size_t k = 0;
    for (size_t i = 0; i < joints.size(); ++i) {
      const OracleJoint& j = joints[i];
      Vec t = j.offset;
      Mat r = {1, 0, 0, 0, 1, 0, 0, 0, 1};
      for (const std::string& c : j.channels) {
        const double v = frames[f][k++];
        const int axis = c[0] - 'X';
        if (c.find("position") != std::string::npos) {
          t[static_cast<size_t>(axis)] = v;
        } else {
          r = Mul(r, About(axis, v));  // channels compose in the order listed
        }
      }
      for (double& x : t) x *= scale;
      if (j.parent < 0) {
        pos[i] = t;
        rot[i] = r;
      } else {
        const auto p = static_cast<size_t>(j.parent);
        const Vec moved = Apply(rot[p], t);
        pos[i] = {pos[p][0] + moved[0], pos[p][1] + moved[1], pos[p][2] + moved[2]};
        rot[i] = Mul(rot[p], r);
      }
    }
    return pos;
  }
};

// ---- Fixture ----------------------------------------------------------------------------------

class BvhImportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    ui().messageBoxes.clear();
    ui().pageAnswers.clear();
    ui().msgBoxAnswers.clear();
    tmp_ = ::testing::TempDir();
  }
  static rt::UiState& ui() { return rt::Host::Get().ui(); }
  static X3DObject SceneRoot() { return Application().GetActiveSceneRoot(); }
  static CValue Run(const wchar_t* command, const CValueArray& args) {
    CValue out;
    EXPECT_TRUE(Application().ExecuteCommand(command, args, out).Succeeded())
        << CString(command).GetAsciiString();
    return out;
  }
  // Every object and every property of the scene, by full name: what "nothing changed" compares.
  static std::vector<std::wstring> Inventory() {
    std::vector<std::wstring> names;
    X3DObject root = SceneRoot();
    CRefArray objects = root.FindChildren(L"");
    objects.Add(root.GetRef());
    for (const CRef& ref : objects) {
      X3DObject object(ref);
      names.push_back(object.GetFullName().Wide());
      for (const CRef& p : object.GetProperties())
        names.push_back(Property(p).GetFullName().Wide());
      Model model(ref);
      if (model.IsValid()) {
        for (const CRef& s : model.GetSources())
          names.push_back(ActionSource(s).GetFullName().Wide());
      }
    }
    return names;
  }
  static X3DObject Find(const std::wstring& fullName) {
    return X3DObject(Application().GetObjectFromPath(fullName));
  }
  static MATH::CVector3 GlobalAt(const X3DObject& o, double frame) {
    return o.GetKinematics().GetGlobal().GetTransform(CTime(frame)).GetTranslation();
  }
  static double Value(const X3DObject& o, const wchar_t* channel) {
    return o.GetParameterValue(channel).AsDouble();
  }
  // The fcurve item of `source` targeting `target`; invalid when there is none.
  static FCurve Item(const ActionSource& source, const std::wstring& target) {
    for (const CRef& ref : source.GetItems()) {
      AnimationSourceItem item(ref);
      if (item.GetTarget().Wide() == target) return FCurve(item.GetSource());
    }
    return FCurve();
  }
  static std::vector<std::wstring> Targets(const ActionSource& source) {
    std::vector<std::wstring> out;
    for (const CRef& ref : source.GetItems())
      out.push_back(AnimationSourceItem(ref).GetTarget().Wide());
    return out;
  }
  std::string WriteFile(const std::string& name, const std::string& text) {
    const std::string path = tmp_ + "bvh_import_" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  static Model Load(const std::string& path, const wchar_t* name, bool boxes = true,
                    float scale = 1.0f, const wchar_t* filter = L"", const wchar_t* subtree = L"",
                    bool keepRoot = true) {
    return LoadBvhActor(CString(path), name, filter, subtree, keepRoot, boxes, scale);
  }
  std::string tmp_;
};

// ---- Poses against the oracle -----------------------------------------------------------------

TEST_F(BvhImportTest, ImportedActorAndActionMatchForwardKinematicsOfTheFile) {
  const Oracle oracle(kBoxing);
  ASSERT_EQ(oracle.joints.size(), 21u);
  ASSERT_EQ(oracle.frames.size(), 3069u);
  for (const float scale : {0.125f, 1.0f}) {
    SCOPED_TRACE(scale);
    rt::Host::Get().NewScene();
    Model actor = Load(kBoxing, L"Boxer", true, scale);
    ASSERT_TRUE(actor.IsValid());
    // Before the action: every joint sits where the first frame puts it.
    const std::vector<Vec> first = oracle.Positions(0, scale);
    X3DObject globalSRT = Find(L"Boxer.GlobalSRT");
    ASSERT_TRUE(globalSRT.IsValid());
    for (size_t j = 0; j < oracle.joints.size(); ++j) {
      X3DObject joint = Find(L"Boxer." + CString(oracle.joints[j].name).Wide());
      ASSERT_TRUE(joint.IsValid()) << oracle.joints[j].name;
      const MATH::CVector3 at = GlobalAt(joint, 1.0);
      const double tolerance =
          1e-3 * std::max(1.0, std::hypot(first[j][0], first[j][1], first[j][2]));
      EXPECT_NEAR(at.GetX(), first[j][0], tolerance) << oracle.joints[j].name;
      EXPECT_NEAR(at.GetY(), first[j][1], tolerance) << oracle.joints[j].name;
      EXPECT_NEAR(at.GetZ(), first[j][2], tolerance) << oracle.joints[j].name;
    }
    ASSERT_TRUE(AddBVHAction(actor, CString(kBoxing), L"Boxing", scale, true, L"", L"", true));
    ASSERT_EQ(actor.GetSources().GetCount(), 1);
    ActionSource source(actor.GetSources()[0]);
    // Stored with its curves taken off: the actor is not animated until the action is applied.
    EXPECT_FALSE(actor.IsAnimated(siFCurveSource, false));
    // Host frames per file frame at the default 30 fps: the file's 0.01 s is exactly 100 fps.
    const double spacing = 30.0 / 100.0;
    EXPECT_NEAR(source.GetParameterValue(L"FrameEnd").AsDouble(), spacing * 3068, 1e-6);
    Run(L"ApplyAction", {CValue(source.GetRef()), CValue(actor.GetRef())});
    // Global positions are measured from GlobalSRT, which setting a home pose may have moved.
    const MATH::CTransformation base = globalSRT.GetKinematics().GetGlobal().GetTransform();
    for (const size_t f : {size_t{0}, size_t{1}, size_t{500}, size_t{3068}}) {
      SCOPED_TRACE(f);
      const std::vector<Vec> expected = oracle.Positions(f, scale);
      for (size_t j = 0; j < oracle.joints.size(); ++j) {
        X3DObject joint = Find(L"Boxer." + CString(oracle.joints[j].name).Wide());
        const MATH::CVector3 at = GlobalAt(joint, spacing * static_cast<double>(f));
        const MATH::CVector3 want =
            base.MapPoint(MATH::CVector3(expected[j][0], expected[j][1], expected[j][2]));
        const double tolerance = 1e-3 * std::max(1.0, want.GetLength());
        EXPECT_NEAR(at.GetX(), want.GetX(), tolerance) << oracle.joints[j].name;
        EXPECT_NEAR(at.GetY(), want.GetY(), tolerance) << oracle.joints[j].name;
        EXPECT_NEAR(at.GetZ(), want.GetZ(), tolerance) << oracle.joints[j].name;
      }
    }
  }
  EXPECT_TRUE(ui().messageBoxes.empty()) << CString(ui().messageBoxes.front()).GetAsciiString();
}

// A take whose first frame stands off the origin, turned, with three joints.
const char* const kOffOrigin =
    "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n"
    " CHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n"
    " JOINT Chest\n {\n  OFFSET 0 10 0\n  CHANNELS 3 Zrotation Xrotation Yrotation\n"
    "  End Site\n  {\n   OFFSET 0 8 0\n  }\n }\n"
    " JOINT Leg\n {\n  OFFSET 3 -2 0\n  CHANNELS 3 Zrotation Xrotation Yrotation\n"
    "  End Site\n  {\n   OFFSET 0 -9 0\n  }\n }\n}\n"
    "MOTION\nFrames: 4\nFrame Time: 0.0333333\n"
    "40 90 -25 10 5 30 0 0 0 5 0 0\n42 91 -24 12 6 35 10 0 0 -5 0 0\n"
    "45 89 -22 15 0 40 20 5 0 -10 0 0\n50 90 -20 0 0 90 30 0 10 -20 0 5\n";

TEST_F(BvhImportTest, ATakesOwnActionOnItsImportedActorReproducesTheTakeInWorldSpace) {
  // The whole road as a user takes it: the actor command (initialized, home pose set), then the
  // take's action on it, applied. Every joint must stand where the file puts it, at every frame.
  const std::string path = WriteFile("off_origin.bvh", kOffOrigin);
  const Oracle oracle(path);
  ui().pageAnswers.push_back({L"Import BVH Actor",
                              {{L"BVHFile", CString(path).Wide()},
                               {L"ActorName", L"Take"},
                               {L"Box", L"false"},
                               {L"Scale", L"1"}},
                              {},
                              false});
  ASSERT_TRUE(ImportBVHActor());
  Model actor(Find(L"Take"));
  ASSERT_TRUE(actor.IsValid());
  ASSERT_TRUE(AddBVHAction(actor, CString(path), L"Take", 1.0f, true, L"", L"", true));
  Run(L"ApplyAction", {CValue(actor.GetSources()[0]), CValue(actor.GetRef())});
  for (size_t f = 0; f < oracle.frames.size(); ++f) {
    SCOPED_TRACE(f);
    const std::vector<Vec> expected = oracle.Positions(f, 1.0);
    for (size_t j = 0; j < oracle.joints.size(); ++j) {
      // 30 fps: file frame f is host frame f, exactly.
      const MATH::CVector3 at =
          GlobalAt(Find(L"Take." + CString(oracle.joints[j].name).Wide()), static_cast<double>(f));
      EXPECT_NEAR(at.GetX(), expected[j][0], 1e-3) << oracle.joints[j].name;
      EXPECT_NEAR(at.GetY(), expected[j][1], 1e-3) << oracle.joints[j].name;
      EXPECT_NEAR(at.GetZ(), expected[j][2], 1e-3) << oracle.joints[j].name;
    }
  }
}

// The warnings the host log received since `from`, joined.
std::wstring WarningsSince(size_t from) {
  std::wstring out;
  const auto& lines = rt::Host::Get().LogLines();
  for (size_t i = from; i < lines.size(); ++i) {
    if (lines[i].severity == rt::kSevWarning) out += lines[i].text + L"\n";
  }
  return out;
}

TEST_F(BvhImportTest, RepeatedJointNamesKeepTheirOwnObjectsAndMotion) {
  // Two limbs end in a joint of one name; the scene already holds a "GlobalSRT" and a "Hand".
  const std::string path = WriteFile(
      "repeated.bvh",
      "HIERARCHY\nROOT Hips\n{\n OFFSET 0 0 0\n CHANNELS 3 Xposition Yposition Zposition\n"
      " JOINT Hand\n {\n  OFFSET 2 0 0\n  CHANNELS 1 Zrotation\n"
      "  End Site\n  {\n   OFFSET 1 0 0\n  }\n }\n"
      " JOINT Arm\n {\n  OFFSET -2 0 0\n  CHANNELS 0\n"
      "  JOINT Hand\n  {\n   OFFSET -1 0 0\n   CHANNELS 1 Zrotation\n"
      "   End Site\n   {\n    OFFSET -1 0 0\n   }\n  }\n }\n}\n"
      "MOTION\nFrames: 2\nFrame Time: 0.0333333\n0 5 0 10 20\n0 5 0 11 22\n");
  X3DObject taken;
  SceneRoot().AddNull(L"GlobalSRT", taken);
  SceneRoot().AddNull(L"Hand", taken);
  const size_t logged = rt::Host::Get().LogLines().size();
  Model actor = Load(path, L"Twins", false);
  ASSERT_TRUE(actor.IsValid());
  EXPECT_TRUE(Find(L"Twins.GlobalSRT").IsValid()) << "the actor's root null keeps its name";
  X3DObject first = Find(L"Twins.Hand"), second = Find(L"Twins.Hand1");
  ASSERT_TRUE(first.IsValid() && second.IsValid());
  EXPECT_EQ(X3DObject(second.GetParent()).GetName(), CString(L"Arm"));
  EXPECT_NE(WarningsSince(logged).find(L"names more than one joint Hand;"), std::wstring::npos);

  ASSERT_TRUE(AddBVHAction(actor, CString(path), L"Take", 1.0f, true, L"", L"", true));
  ActionSource take(actor.GetSources()[0]);
  const struct {
    const wchar_t* target;
    double last;
  } keys[] = {{L"Hand.kine.local.rotz", 11.0}, {L"Hand1.kine.local.rotz", 22.0}};
  for (const auto& k : keys) {
    FCurve curve = Item(take, k.target);
    ASSERT_TRUE(curve.IsValid()) << CString(k.target).GetAsciiString();
    EXPECT_NEAR(curve.GetKeyValue(1).AsDouble(), k.last, 1e-4) << CString(k.target).GetAsciiString();
  }
}

TEST_F(BvhImportTest, AnActionNamesTheJointsItMissedAndKeepsTheCurvesItDidNotMake) {
  const std::string file = TestFile("char_hips.bvh");
  // A hand-made actor with the hips only, whose hips already carry a curve on a channel the take
  // keys (rotx, constant then a jump) and one it does not (sclx).
  X3DObject root = SceneRoot(), top, hips;
  Model actor;
  root.AddNull(L"Top", top);
  CRefArray members;
  members.Add(top.GetRef());
  root.AddModel(members, L"Half", actor);
  top.AddNull(L"Char_Hips", hips);
  Run(L"SetKey", {L"Half.Char_Hips.rotx", 1.0, 7.0, 1});
  Run(L"SetKey", {L"Half.Char_Hips.rotx", 40.0, 70.0, 1});
  Run(L"SetKey", {L"Half.Char_Hips.sclx", 1.0, 2.0});
  const size_t logged = rt::Host::Get().LogLines().size();
  ASSERT_TRUE(AddBVHAction(actor, CString(file), L"Take", 1.0f, true, L"", L"", true));
  EXPECT_NE(WarningsSince(logged).find(L"matches 1 of its 2 joints in the actor \"Half\"; "
                                       L"keyed: Char_Hips; no object: Char_Spine."),
            std::wstring::npos)
      << CString(WarningsSince(logged)).GetAsciiString();
  ASSERT_EQ(actor.GetSources().GetCount(), 1) << "no helper source is left behind";
  EXPECT_EQ(Item(ActionSource(actor.GetSources()[0]), L"Char_Hips.kine.local.rotx").GetKeyCount(),
            4);
  FCurve rotx(hips.GetParameter(L"rotx").GetSource());
  ASSERT_TRUE(rotx.IsValid()) << "the earlier curve is back";
  ASSERT_EQ(rotx.GetKeyCount(), 2);
  EXPECT_EQ(rotx.GetKeyInterpolation(0), 1);
  EXPECT_DOUBLE_EQ(rotx.Eval(CTime(39.0)), 7.0);
  EXPECT_DOUBLE_EQ(rotx.Eval(CTime(40.0)), 70.0);
  EXPECT_TRUE(FCurve(hips.GetParameter(L"sclx").GetSource()).IsValid());
  EXPECT_FALSE(FCurve(hips.GetParameter(L"posy").GetSource()).IsValid());
}

// ---- Names, curves and key times --------------------------------------------------------------

TEST_F(BvhImportTest, JointNamesCurvesAndKeySpacing) {
  const std::string file = TestFile("char_hips.bvh");
  {
    SCOPED_TRACE("Char:Hips in model Fred is the object Fred.Char_Hips, built or found");
    Model fred = Load(file, L"Fred");
    ASSERT_TRUE(fred.IsValid());
    EXPECT_TRUE(Find(L"Fred.Char_Hips").IsValid());
    EXPECT_TRUE(Find(L"Fred.Char_Spine").IsValid());
    // A hand-made actor with those names takes the action too.
    X3DObject root = SceneRoot(), srt, hips;
    Model other;
    root.AddNull(L"Top", srt);
    CRefArray members;
    members.Add(srt.GetRef());
    root.AddModel(members, L"Other", other);
    srt.AddNull(L"Char_Hips", hips);
    ASSERT_TRUE(AddBVHAction(other, CString(file), L"Take", 1.0f, false, L"", L"", true));
    ActionSource take(other.GetSources()[0]);
    EXPECT_EQ(Targets(take), (std::vector<std::wstring>{
                                 L"Char_Hips.kine.local.posx", L"Char_Hips.kine.local.posy",
                                 L"Char_Hips.kine.local.posz", L"Char_Hips.kine.local.rotx",
                                 L"Char_Hips.kine.local.roty", L"Char_Hips.kine.local.rotz"}));
  }
  Model fred(Find(L"Fred"));
  {
    SCOPED_TRACE("optimize on: translation curves only on the root");
    ASSERT_TRUE(AddBVHAction(fred, CString(file), L"Optimized", 1.0f, true, L"", L"", true));
    ActionSource s(fred.GetSources()[0]);
    EXPECT_EQ(s.GetName(), CString(L"Optimized"));
    EXPECT_TRUE(Item(s, L"Char_Hips.kine.local.posy").IsValid());
    EXPECT_FALSE(Item(s, L"Char_Spine.kine.local.posy").IsValid());
    EXPECT_TRUE(Item(s, L"Char_Spine.kine.local.rotz").IsValid());
    EXPECT_EQ(s.GetItems().GetCount(), 9);
  }
  {
    SCOPED_TRACE("optimize off: every joint keyed in translation; 30 fps keys one frame apart, "
                 "on whole frames (0.0333333 s is taken as exactly 30 fps)");
    ASSERT_TRUE(AddBVHAction(fred, CString(file), L"Full", 1.0f, false, L"", L"", true));
    ActionSource s(fred.GetSources()[1]);
    EXPECT_EQ(s.GetItems().GetCount(), 12);
    FCurve spineY = Item(s, L"Char_Spine.kine.local.posy");
    ASSERT_TRUE(spineY.IsValid());
    ASSERT_EQ(spineY.GetKeyCount(), 4);
    for (long k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(spineY.GetKeyValue(k).AsDouble(), 8.0);
    FCurve hipsX = Item(s, L"Char_Hips.kine.local.posx");
    ASSERT_EQ(hipsX.GetKeyCount(), 4);
    for (long k = 0; k < 4; ++k) {
      EXPECT_EQ(hipsX.GetKeyTime(k).GetTime(), static_cast<double>(k));
      EXPECT_DOUBLE_EQ(hipsX.GetKeyValue(k).AsDouble(), static_cast<double>(k));
    }
    FCurve spineRotZ = Item(s, L"Char_Spine.kine.local.rotz");
    ASSERT_EQ(spineRotZ.GetKeyCount(), 4);
    EXPECT_NEAR(spineRotZ.GetKeyValue(3).AsDouble(), 15.0, 1e-3);
    EXPECT_EQ(s.GetParameterValue(L"FrameEnd").AsDouble(), 3.0);
  }
  {
    SCOPED_TRACE("at 60 fps the same file's keys are two frames apart");
    Run(L"SetValue", {L"preferences.output_format.frame_rate", 60.0});
    ASSERT_TRUE(AddBVHAction(fred, CString(file), L"Sixty", 1.0f, true, L"", L"", true));
    FCurve hipsY = Item(ActionSource(fred.GetSources()[2]), L"Char_Hips.kine.local.posy");
    ASSERT_EQ(hipsY.GetKeyCount(), 4);
    for (long k = 0; k < 4; ++k) EXPECT_EQ(hipsY.GetKeyTime(k).GetTime(), 2.0 * k);
    EXPECT_DOUBLE_EQ(hipsY.GetKeyValue(2).AsDouble(), 42.0);
  }
  {
    SCOPED_TRACE("a file whose joints match nothing is refused before the pose is touched");
    X3DObject root = SceneRoot(), lonely;
    Model empty;
    root.AddNull(L"Lonely", lonely);
    CRefArray members;
    members.Add(lonely.GetRef());
    root.AddModel(members, L"Empty", empty);
    ui().messageBoxes.clear();
    EXPECT_FALSE(AddBVHAction(empty, CString(file), L"None", 1.0f, true, L"", L"", true));
    EXPECT_EQ(empty.GetSources().GetCount(), 0);
    ASSERT_EQ(ui().messageBoxes.size(), 1u);
    EXPECT_NE(ui().messageBoxes[0].find(L"matches an object of the actor \"Empty\""),
              std::wstring::npos);
  }
}

TEST_F(BvhImportTest, RotationsCrossingHalfATurnAreKeyedWithoutAJump) {
  Model actor = Load(TestFile("wrap_180.bvh"), L"Wrap", false);
  ASSERT_TRUE(actor.IsValid());
  ASSERT_TRUE(
      AddBVHAction(actor, CString(TestFile("wrap_180.bvh")), L"Wrap", 1.0f, true, L"", L"", true));
  ActionSource s(actor.GetSources()[0]);
  const struct {
    const wchar_t* target;
    std::vector<double> keys;  // what the file says, followed continuously across +-180
  } cases[] = {{L"Hips.kine.local.rotz", {170, 179, 181, 190, 179, 90}},
               {L"Arm.kine.local.rotx", {10, 1, -1, -10, -1, 120}}};
  for (const auto& c : cases) {
    FCurve curve = Item(s, c.target);
    ASSERT_TRUE(curve.IsValid()) << CString(c.target).GetAsciiString();
    ASSERT_EQ(curve.GetKeyCount(), 6);
    for (long k = 0; k < 6; ++k) {
      EXPECT_NEAR(curve.GetKeyValue(k).AsDouble(), c.keys[static_cast<size_t>(k)], 1e-3)
          << CString(c.target).GetAsciiString() << " key " << k;
    }
  }
}

// ---- Actor building ---------------------------------------------------------------------------

TEST_F(BvhImportTest, BoxesRunAlongTheirBonesWithThicknessFromTheLongestBone) {
  Model actor = Load(TestFile("bone_lengths.bvh"), L"Bones", true, 1.0f);
  ASSERT_TRUE(actor.IsValid());
  // Local bounding boxes: the cube (edge 8) scaled, moved half a bone up and turned onto the bone.
  const struct {
    const wchar_t* name;
    MATH::CVector3 min, max;
  } cases[] = {
      {L"Bones.Long", {0, -0.5, -0.5}, {10, 0.5, 0.5}},    // 10 along X: (0.125, 1.25, 0.125)
      {L"Bones.Short", {-0.1, 0, -0.1}, {0.1, 1, 0.1}},    // 1 < 0.2 * 10: (0.025, 0.125, 0.025)
      {L"Bones.Middle", {-0.5, 0, -0.5}, {0.5, 5, 0.5}},   // 5: (0.125, 0.625, 0.125)
      {L"Bones.Point", {-0.1, 0, -0.1}, {0.1, 0.1, 0.1}},  // (0,0,0): stub 0.1, scly 0.0125
      {L"Bones.Root", {-0.1, 0, -0.1}, {0.1, 0.1, 0.1}},   // children all at its origin
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(CString(c.name).GetAsciiString());
    X3DObject box = Find(c.name);
    ASSERT_TRUE(box.IsValid());
    MATH::CVector3 min, max;
    ASSERT_TRUE(box.GetActivePrimitive().GetGeometry().GetBoundingBox(min, max).Succeeded());
    EXPECT_TRUE(min.Equals(c.min, 1e-5)) << min.GetX() << " " << min.GetY() << " " << min.GetZ();
    EXPECT_TRUE(max.Equals(c.max, 1e-5)) << max.GetX() << " " << max.GetY() << " " << max.GetZ();
    // The shaping is all in the points: the local transform is the first frame's pose.
    for (const wchar_t* channel : {L"sclx", L"scly", L"sclz"})
      EXPECT_DOUBLE_EQ(Value(box, channel), 1.0);
    for (const wchar_t* channel : {L"rotx", L"roty", L"rotz"})
      EXPECT_NEAR(Value(box, channel), 0.0, 1e-9);
  }
  EXPECT_DOUBLE_EQ(Value(Find(L"Bones.Root"), L"posy"), 5.0);
  EXPECT_DOUBLE_EQ(Value(Find(L"Bones.Long"), L"posx"), 0.0);
  // The hierarchy: model > GlobalSRT > Root > the four bones.
  EXPECT_EQ(X3DObject(Find(L"Bones.Long").GetParent()).GetName(), CString(L"Root"));
  EXPECT_EQ(X3DObject(Find(L"Bones.Root").GetParent()).GetName(), CString(L"GlobalSRT"));
  EXPECT_EQ(X3DObject(Find(L"Bones.GlobalSRT").GetParent()).GetRef(), actor.GetRef());

  // Without boxes the joints are nulls, posed the same.
  Model nulls = Load(TestFile("bone_lengths.bvh"), L"Nulls", false, 0.5f);
  X3DObject root = Find(L"Nulls.Root");
  ASSERT_TRUE(root.IsValid());
  EXPECT_EQ(root.GetType(), CString(L"null"));
  EXPECT_FALSE(root.GetActivePrimitive().GetGeometry().IsValid() &&
               root.GetActivePrimitive().GetGeometry().GetPointCount() > 0);
  EXPECT_DOUBLE_EQ(Value(root, L"posx"), 2.0);  // 4 scaled by 0.5
  EXPECT_DOUBLE_EQ(Value(root, L"posz"), 3.0);
}

TEST_F(BvhImportTest, FilterAndSubtreeRemoveJointsBeforeAnyObjectIsMade) {
  const std::string file = TestFile("prune_chain.bvh");
  {
    SCOPED_TRACE("filter Nub;Site");
    Model actor = Load(file, L"Pruned", false, 1.0f, L"Nub;Site");
    ASSERT_TRUE(actor.IsValid());
    std::vector<std::wstring> names;
    for (const CRef& ref : SceneRoot().FindChildren(L""))
      names.push_back(X3DObject(ref).GetFullName().Wide());
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Pruned", L"Pruned.GlobalSRT", L"Pruned.Hips",
                                                L"Pruned.Spine", L"Pruned.Neck", L"Pruned.Head",
                                                L"Pruned.LeftHand"}));
    EXPECT_EQ(X3DObject(Find(L"Pruned.LeftHand").GetParent()).GetName(), CString(L"Spine"));
  }
  {
    SCOPED_TRACE("subtree Neck, with and without its root");
    Load(file, L"Kept", false, 1.0f, L"", L"Neck", true);
    EXPECT_TRUE(Find(L"Kept.Neck").IsValid());
    EXPECT_FALSE(Find(L"Kept.Head").IsValid());
    Load(file, L"Dropped", false, 1.0f, L"", L"Neck", false);
    EXPECT_FALSE(Find(L"Dropped.Neck").IsValid());
    EXPECT_TRUE(Find(L"Dropped.LeftHand").IsValid());
  }
  {
    SCOPED_TRACE("a filter that removes every joint builds nothing");
    const auto before = Inventory();
    ui().messageBoxes.clear();
    EXPECT_FALSE(Load(file, L"Nothing", false, 1.0f, L"i;e;a").IsValid());
    EXPECT_EQ(Inventory(), before);
    ASSERT_EQ(ui().messageBoxes.size(), 1u);
    EXPECT_NE(ui().messageBoxes[0].find(L"no joint is left"), std::wstring::npos);
  }
  EXPECT_EQ(ui().messageBoxes.size(), 1u);
}

// ---- The commands and their page ---------------------------------------------------------------

TEST_F(BvhImportTest, CommandsReadThePageAndCancelChangesNothing) {
  const std::string file = TestFile("char_hips.bvh");
  {
    SCOPED_TRACE("cancelling the actor page");
    const auto before = Inventory();
    ui().pageAnswers.push_back(
        {L"Import BVH Actor", {{L"BVHFile", CString(file).Wide()}}, {}, true});
    EXPECT_TRUE(ImportBVHActor());
    EXPECT_EQ(Inventory(), before);
  }
  {
    SCOPED_TRACE("the actor page confirmed");
    ui().pageAnswers.push_back(
        {L"Import BVH Actor",
         {{L"BVHFile", CString(file).Wide()}, {L"ActorName", L"Fred"}, {L"Box", L"false"}},
         {},
         false});
    EXPECT_TRUE(ImportBVHActor());
    X3DObject hips = Find(L"Fred.Char_Hips");
    ASSERT_TRUE(hips.IsValid());
    EXPECT_EQ(hips.GetType(), CString(L"null"));
    // Initialized with its home pose, and remembering its options.
    X3DObject globalSRT = Find(L"Fred.GlobalSRT");
    EXPECT_TRUE(HasTag(globalSRT, L"RTKActor"));
    EXPECT_TRUE(HasTag(hips, L"RTKNode"));
    EXPECT_TRUE(HasTag(hips, L"RTKHomePose"));
    Model fred(Find(L"Fred"));
    Property copied;
    ASSERT_TRUE(FindCustomPSet(fred, L"BVHActor", copied));
    EXPECT_EQ(copied.GetParameterValue(L"ActorName").GetAsText(), CString(L"Fred"));
    EXPECT_EQ(copied.GetParameterValue(L"BVHFile").GetAsText(), CString(file));
  }
  Model fred(Find(L"Fred"));
  X3DObject spine = Find(L"Fred.Char_Spine");
  {
    SCOPED_TRACE("cancelling the action page");
    const auto before = Inventory();
    ui().pageAnswers.push_back({L"Import BVH Action", {}, {}, true});
    EXPECT_FALSE(ImportBVHAction(spine));
    EXPECT_EQ(Inventory(), before);
    Property options;
    ASSERT_TRUE(FindCustomPSet(fred, L"BVHActor", options));
    EXPECT_EQ(options.GetParameterValue(L"Mode").AsInt(), 0) << "the mode goes back on cancel";
  }
  {
    SCOPED_TRACE("the action page confirmed");
    ui().pageAnswers.push_back(
        {L"Import BVH Action", {{L"ActionName", L"Walk"}, {L"Scale", L"1"}}, {}, false});
    EXPECT_TRUE(ImportBVHAction(spine));
    ASSERT_EQ(fred.GetSources().GetCount(), 1);
    ActionSource walk(fred.GetSources()[0]);
    EXPECT_EQ(walk.GetName(), CString(L"Walk"));
    EXPECT_DOUBLE_EQ(Item(walk, L"Char_Hips.kine.local.posy").GetKeyValue(3).AsDouble(), 43.0);
  }
  {
    SCOPED_TRACE("refusals: outside a model, and a node of the scene root");
    ui().messageBoxes.clear();
    X3DObject loose;
    SceneRoot().AddNull(L"Loose", loose);
    EXPECT_FALSE(ImportBVHAction(loose));
    ASSERT_EQ(ui().messageBoxes.size(), 1u);
    EXPECT_EQ(ui().messageBoxes[0],
              L"Kinra Export: Actor descriptions must be contained by a single model (scene root "
              L"not supported).");
  }
}

TEST_F(BvhImportTest, PageLayoutFollowsTheMode) {
  bool added = false;
  X3DObject root = SceneRoot();
  CustomProperty options = FindOrAddBVHActor(root, added);
  ASSERT_TRUE(added);
  ASSERT_TRUE(options.IsValid());
  bool again = true;
  EXPECT_EQ(FindOrAddBVHActor(root, again).GetRef(), options.GetRef());
  EXPECT_FALSE(again);
  auto describe = [&] {
    BuildBVHActorLayout(options);
    PPGLayout layout = PPGLayout::Of(options.GetRef());
    std::wstring text;
    for (long i = 0; i < layout.GetCount(); ++i) {
      PPGItem item = layout.GetItem(i);
      text += item.GetType().Wide() + L":" + item.GetName().Wide() + L":" + item.GetLabel().Wide() +
              L"|";
    }
    return text;
  };
  options.PutParameterValue(L"Mode", 0);
  EXPECT_EQ(
      describe(),
      L"FilePath:BVHFile:Filename|Group::Import Options|:Scale:|:Filter:Filter Tag|:Remove:Subtree|"
      L":Root:Keep Subtree Root|EndGroup::|Group::Actor Options|:ActorName:Actor Name|"
      L":Box:Create Box Hierarchy|Button:Refresh:|EndGroup::|");
  options.PutParameterValue(L"Mode", 11);
  EXPECT_EQ(
      describe(),
      L"FilePath:BVHFile:Filename|Group::Import Options|:Scale:|:Filter:Filter Tag|:Remove:Subtree|"
      L":Root:Keep Subtree Root|EndGroup::|Group::Action Options|:ActionName:Action Name|"
      L":Optimize:Remove Local Pos Data|EndGroup::|");
  PPGLayout layout = PPGLayout::Of(options.GetRef());
  EXPECT_EQ(layout.GetItem(L"BVHFile").GetAttribute(siUIFileFilter).GetAsText(),
            CString(L"Biovision BVH Files (*.bvh)|*.bvh:*.BVH|"));
  EXPECT_FALSE(layout.GetAttribute(siUIHelpFile).GetAsText().IsEmpty());
}

// ---- Files that cannot be imported ------------------------------------------------------------

TEST_F(BvhImportTest, UnreadableFilesAreNamedAndChangeNothing) {
  // A good actor to try the action imports on.
  Model actor = Load(TestFile("char_hips.bvh"), L"Fred", false);
  ASSERT_TRUE(actor.IsValid());
  X3DObject hips = Find(L"Fred.Char_Hips");
  const double posy = Value(hips, L"posy");

  std::string joints201 =
      "HIERARCHY\nROOT J0\n{\nOFFSET 0 0 0\nCHANNELS 3 Zrotation Xrotation Yrotation\n";
  for (int i = 1; i <= 200; ++i)
    joints201 += "JOINT J" + std::to_string(i) + "\n{\nOFFSET 0 1 0\nCHANNELS 0\n";
  joints201 += "End Site\n{\nOFFSET 0 1 0\n}\n";
  for (int i = 0; i <= 200; ++i) joints201 += "}\n";
  joints201 += "MOTION\nFrames: 1\nFrame Time: 0.04\n0 0 0\n";
  const std::string head = "HIERARCHY\nROOT Hips\n{\nOFFSET 0 0 0\n";
  const std::string site = "End Site\n{\nOFFSET 0 1 0\n}\n}\n";
  std::string junk(4096, '\0');
  for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 131 + 7) % 256);
  const struct {
    const char* name;
    std::string text;
    const wchar_t* why;  // a fragment of the message
  } cases[] = {
      {"truncated.bvh",
       head + "CHANNELS 3 Zrotation Xrotation Yrotation\n" + site +
           "MOTION\nFrames: 2\nFrame Time: 0.04\n1 2 3\n4 5\n",
       L"the file ends"},
      {"channel.bvh", head + "CHANNELS 3 Zrotation Wrotation Yrotation\n" + site, L"line 5: "},
      {"joints201.bvh", joints201, L"more than 200 joints"},
      {"channels7.bvh",
       head + "CHANNELS 7 Xposition Yposition Zposition Zrotation Xrotation Yrotation Xrotation\n" +
           site + "MOTION\nFrames: 1\nFrame Time: 0.04\n0 0 0 0 0 0 0\n",
       L"7"},
      {"negative_frames.bvh",
       head + "CHANNELS 3 Zrotation Xrotation Yrotation\n" + site +
           "MOTION\nFrames: -4\nFrame Time: 0.04\n",
       L"negative frame count"},
      {"negative_channels.bvh", head + "CHANNELS -1\n" + site, L"line 5: "},
      {"huge_frames.bvh",
       head + "CHANNELS 3 Zrotation Xrotation Yrotation\n" + site +
           "MOTION\nFrames: 2000000000\nFrame Time: 0.04\n0 0 0\n",
       L"Frames"},
      {"zero_time.bvh",
       head + "CHANNELS 3 Zrotation Xrotation Yrotation\n" + site +
           "MOTION\nFrames: 1\nFrame Time: 0\n0 0 0\n",
       L"frame time"},
      {"junk.bvh", junk, L"HIERARCHY"},
      {"empty.bvh", "", L"Cannot import"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = WriteFile(c.name, c.text);
    const std::wstring start =
        L"Kinra Export: Cannot import the BVH file \"" + CString(path).Wide() + L"\": ";
    const auto before = Inventory();
    ui().messageBoxes.clear();
    // The action import reads every frame; the actor import only the first, so a file that is
    // wrong only in its motion may still build an actor: then the actor is the only change.
    EXPECT_FALSE(AddBVHAction(actor, CString(path), L"Bad", 1.0f, true, L"", L"", true));
    EXPECT_EQ(Inventory(), before);
    EXPECT_FALSE(actor.IsAnimated(siFCurveSource, false));
    EXPECT_DOUBLE_EQ(Value(hips, L"posy"), posy);
    ASSERT_EQ(ui().messageBoxes.size(), 1u);
    EXPECT_EQ(ui().messageBoxes[0].rfind(start, 0), 0u)
        << CString(ui().messageBoxes[0]).GetAsciiString();
    EXPECT_NE(ui().messageBoxes[0].find(c.why), std::wstring::npos)
        << CString(ui().messageBoxes[0]).GetAsciiString();

    const bool motionOnly = std::string(c.name) == "truncated.bvh" ||
                            std::string(c.name) == "huge_frames.bvh" ||
                            std::string(c.name) == "zero_time.bvh";
    Model built = Load(path, L"Broken", false);
    if (built.IsValid()) {
      EXPECT_TRUE(motionOnly);
      Run(L"DeleteObj", {CValue(built.GetRef())});
      EXPECT_EQ(ui().messageBoxes.size(), 1u);
    } else {
      ASSERT_EQ(ui().messageBoxes.size(), 2u);
      EXPECT_EQ(ui().messageBoxes[1].rfind(start, 0), 0u)
          << CString(ui().messageBoxes[1]).GetAsciiString();
    }
    EXPECT_EQ(Inventory(), before);
  }
  {
    SCOPED_TRACE("a missing file, no file name, a bad scale");
    const auto before = Inventory();
    ui().messageBoxes.clear();
    EXPECT_FALSE(Load(tmp_ + "no_such_file.bvh", L"Missing").IsValid());
    EXPECT_FALSE(Load("", L"Unnamed").IsValid());
    EXPECT_FALSE(AddBVHAction(actor, CString(TestFile("char_hips.bvh")), L"Bad", 0.0f, true, L"",
                              L"", true));
    EXPECT_FALSE(AddBVHAction(actor, CString(TestFile("char_hips.bvh")), L"A.B", 1.0f, true, L"",
                              L"", true));
    EXPECT_EQ(Inventory(), before);
    ASSERT_EQ(ui().messageBoxes.size(), 4u);
    EXPECT_NE(ui().messageBoxes[0].find(L"no_such_file.bvh\": cannot open"), std::wstring::npos);
    EXPECT_NE(ui().messageBoxes[1].find(L"no file name"), std::wstring::npos);
    EXPECT_NE(ui().messageBoxes[2].find(L"scale"), std::wstring::npos);
    EXPECT_NE(ui().messageBoxes[3].find(L"A.B"), std::wstring::npos);
  }
}

}  // namespace
