// Scene files: a scene with every feature survives save and open object for object and key for
// key, a second save gives the same bytes, bad files are refused with exact messages and change
// nothing, saves are atomic, and branches export and import under another parent.
#include "scene_file/scene_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/host.h"
#include "model/geometry_builders.h"
#include "model/model.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"

using namespace Zyra;
namespace fs = std::filesystem;

namespace {

std::string Message(const CStatus& s) { return s.GetMessage().GetAsciiString(); }

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void WriteBytes(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Same double, bit for bit in sign; NaN matches NaN.
bool SameNumber(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return a == b && std::signbit(a) == std::signbit(b);
}

// Links (references, deformers, chain links) compare by the full name they point at, or by the
// name alone when a branch is compared with its imported copy (whose full names differ).
bool gShortLinkNames = false;

std::string LinkName(const rt::Object& o) {
  return ToUtf8(gShortLinkNames ? o.name : o.FullName());
}

// Values equal in type and content.
void ExpectSameValue(const CValue& a, const CValue& b, const std::string& where) {
  ASSERT_EQ(a.GetType(), b.GetType()) << where;
  switch (a.GetType()) {
    case siFloat:
    case siDouble:
      EXPECT_TRUE(SameNumber(a.AsDouble(), b.AsDouble()))
          << where << ": " << a.AsDouble() << " vs " << b.AsDouble();
      break;
    case siRef: {
      auto x = a.AsRef().Get();
      auto y = b.AsRef().Get();
      ASSERT_EQ(x == nullptr, y == nullptr) << where;
      if (x) {
        EXPECT_EQ(LinkName(*x), LinkName(*y)) << where;
      }
      break;
    }
    case siArray: {
      CValueArray x = a.AsArray(), y = b.AsArray();
      ASSERT_EQ(x.GetCount(), y.GetCount()) << where;
      for (long i = 0; i < x.GetCount(); ++i)
        ExpectSameValue(x[i], y[i], where + "[" + std::to_string(i) + "]");
      break;
    }
    default:
      EXPECT_TRUE(a == b) << where << ": " << a.GetAsText().GetAsciiString() << " vs "
                          << b.GetAsText().GetAsciiString();
  }
}

void ExpectSameCurve(const rt::FCurveObject* a, const rt::FCurveObject* b,
                     const std::string& where) {
  ASSERT_EQ(a == nullptr, b == nullptr) << where << ": fcurve presence";
  if (!a) return;
  EXPECT_EQ(a->interpolation, b->interpolation) << where;
  ASSERT_EQ(a->keys.size(), b->keys.size()) << where;
  for (size_t i = 0; i < a->keys.size(); ++i) {
    const rt::FCurveKey &x = a->keys[i], &y = b->keys[i];
    std::string at = where + " key " + std::to_string(i);
    EXPECT_TRUE(SameNumber(x.frame, y.frame)) << at;
    EXPECT_TRUE(SameNumber(x.value, y.value)) << at;
    EXPECT_EQ(x.interpolation, y.interpolation) << at;
    EXPECT_EQ(x.hasTangents, y.hasTangents) << at;
    if (x.hasTangents) {
      EXPECT_TRUE(SameNumber(x.leftTanX, y.leftTanX) && SameNumber(x.leftTanY, y.leftTanY) &&
                  SameNumber(x.rightTanX, y.rightTanX) && SameNumber(x.rightTanY, y.rightTanY))
          << at;
    }
  }
}

std::string NameOf(const std::weak_ptr<rt::X3D>& w) {
  auto o = w.lock();
  return o ? LinkName(*o) : "<none>";
}

// Walks two graphs side by side: everything an object owns, compared field by field. Computed
// parameters (the global transform) are compared by presence only.
void ExpectSameObject(const rt::Object& a, const rt::Object& b, const std::string& where,
                      bool compareName = true) {
  std::string at = where.empty() ? ToUtf8(a.name) : where;
  EXPECT_EQ(a.classId, b.classId) << at;
  if (compareName) {
    EXPECT_EQ(ToUtf8(a.name), ToUtf8(b.name)) << at;
  }
  EXPECT_EQ(ToUtf8(a.type), ToUtf8(b.type)) << at;
  ASSERT_EQ(a.params.size(), b.params.size()) << at << ": parameter count";
  for (size_t i = 0; i < a.params.size(); ++i) {
    const rt::Parameter &x = *a.params[i], &y = *b.params[i];
    std::string p = at + "." + ToUtf8(x.name);
    EXPECT_EQ(ToUtf8(x.name), ToUtf8(y.name)) << p;
    if (x.getter) {
      EXPECT_TRUE(static_cast<bool>(y.getter)) << p;
      continue;
    }
    EXPECT_EQ(x.valueType, y.valueType) << p;
    ExpectSameValue(x.value, y.value, p + " value");
    ExpectSameValue(x.defaultValue, y.defaultValue, p + " default");
    ExpectSameValue(x.minValue, y.minValue, p + " min");
    ExpectSameValue(x.maxValue, y.maxValue, p + " max");
    ExpectSameValue(x.suggestedMin, y.suggestedMin, p + " suggested min");
    ExpectSameValue(x.suggestedMax, y.suggestedMax, p + " suggested max");
    EXPECT_EQ(x.capabilities, y.capabilities) << p;
    EXPECT_EQ(ToUtf8(x.label), ToUtf8(y.label)) << p;
    EXPECT_EQ(ToUtf8(x.description), ToUtf8(y.description)) << p;
    ExpectSameCurve(x.fcurve.get(), y.fcurve.get(), p);
  }
  ASSERT_EQ(a.properties.size(), b.properties.size()) << at << ": property count";
  for (size_t i = 0; i < a.properties.size(); ++i) {
    const rt::Property &x = *a.properties[i], &y = *b.properties[i];
    EXPECT_EQ(x.blob, y.blob) << at << "." << ToUtf8(x.name);
    ExpectSameObject(x, y, at + "." + ToUtf8(x.name));
  }
  if (auto* c = dynamic_cast<const rt::Container*>(&a)) {
    auto* d = dynamic_cast<const rt::Container*>(&b);
    ASSERT_TRUE(d) << at;
    ASSERT_EQ(c->items.size(), d->items.size()) << at;
    for (size_t i = 0; i < c->items.size(); ++i)
      ExpectSameObject(*c->items[i], *d->items[i], at + "/" + ToUtf8(c->items[i]->name));
  }
  auto* x = dynamic_cast<const rt::X3D*>(&a);
  if (!x) return;
  auto* y = dynamic_cast<const rt::X3D*>(&b);
  ASSERT_TRUE(y) << at;
  ASSERT_EQ(x->primitive == nullptr, y->primitive == nullptr) << at << ": primitive";
  if (x->primitive) {
    ExpectSameObject(*x->primitive, *y->primitive, at + ".primitive");
    auto &g = x->primitive->geometry, &h = y->primitive->geometry;
    ASSERT_EQ(g == nullptr, h == nullptr) << at;
    if (g) {
      EXPECT_EQ(g->classId, h->classId) << at;
      EXPECT_EQ(g->isMesh, h->isMesh) << at;
      EXPECT_EQ(g->points, h->points) << at;
      EXPECT_EQ(g->polygons, h->polygons) << at;
    }
  }
  ASSERT_EQ(x->envelopes.size(), y->envelopes.size()) << at;
  for (size_t i = 0; i < x->envelopes.size(); ++i) {
    const rt::Envelope &e = *x->envelopes[i], &f = *y->envelopes[i];
    ExpectSameObject(e, f, at + ".envelope");
    ASSERT_EQ(e.deformers.size(), f.deformers.size()) << at;
    for (size_t k = 0; k < e.deformers.size(); ++k)
      EXPECT_EQ(NameOf(e.deformers[k]), NameOf(f.deformers[k])) << at;
    EXPECT_EQ(e.weights, f.weights) << at;
  }
  EXPECT_EQ(NameOf(x->chainRoot), NameOf(y->chainRoot)) << at;
  EXPECT_EQ(NameOf(x->chainEffector), NameOf(y->chainEffector)) << at;
  ASSERT_EQ(x->chainBones.size(), y->chainBones.size()) << at;
  for (size_t k = 0; k < x->chainBones.size(); ++k)
    EXPECT_EQ(NameOf(x->chainBones[k]), NameOf(y->chainBones[k])) << at;
  if (auto* m = dynamic_cast<const rt::ModelObject*>(x)) {
    auto* n = dynamic_cast<const rt::ModelObject*>(y);
    ASSERT_TRUE(n) << at;
    ASSERT_EQ(m->sources->items.size(), n->sources->items.size()) << at;
    for (size_t i = 0; i < m->sources->items.size(); ++i) {
      auto& s = dynamic_cast<const rt::ActionSourceObject&>(*m->sources->items[i]);
      auto& t = dynamic_cast<const rt::ActionSourceObject&>(*n->sources->items[i]);
      std::string sp = at + ".Sources." + ToUtf8(s.name);
      ExpectSameObject(s, t, sp);
      ASSERT_EQ(s.items.size(), t.items.size()) << sp;
      for (size_t k = 0; k < s.items.size(); ++k) {
        EXPECT_EQ(ToUtf8(s.items[k]->target), ToUtf8(t.items[k]->target)) << sp;
        ExpectSameCurve(s.items[k]->fcurve.get(), t.items[k]->fcurve.get(), sp + " item");
        ExpectSameValue(s.items[k]->staticValue, t.items[k]->staticValue, sp + " item value");
      }
    }
    ASSERT_EQ(m->mixer == nullptr, n->mixer == nullptr) << at;
    if (m->mixer) ExpectSameObject(*m->mixer, *n->mixer, at + ".Mixer");
  }
  ASSERT_EQ(x->children.size(), y->children.size()) << at;
  for (size_t i = 0; i < x->children.size(); ++i)
    ExpectSameObject(*x->children[i], *y->children[i], "");
}

void ExpectSameScene(const rt::Scene& a, const rt::Scene& b) {
  ExpectSameObject(*a.root, *b.root, "Scene_Root");
  ExpectSameObject(*a.passes, *b.passes, "Passes");
  ExpectSameObject(*a.playControl, *b.playControl, "PlayControl");
  ExpectSameObject(*a.preferences, *b.preferences, "preferences");
  ExpectSameObject(*a.exportOptions, *b.exportOptions, "dotZyraExportOptions");
  EXPECT_EQ(ToUtf8(a.currentPass), ToUtf8(b.currentPass));
  ASSERT_EQ(a.groups->items.size(), b.groups->items.size());
  for (size_t i = 0; i < a.groups->items.size(); ++i) {
    auto& g = dynamic_cast<const rt::GroupObject&>(*a.groups->items[i]);
    auto& h = dynamic_cast<const rt::GroupObject&>(*b.groups->items[i]);
    EXPECT_EQ(ToUtf8(g.name), ToUtf8(h.name));
    ASSERT_EQ(g.members.size(), h.members.size());
    for (size_t k = 0; k < g.members.size(); ++k) {
      EXPECT_EQ(ToUtf8(g.members[k].lock()->FullName()), ToUtf8(h.members[k].lock()->FullName()));
    }
  }
}

size_t CountOwned(const std::shared_ptr<rt::Object>& o) {
  size_t n = 1;
  o->ForEachOwned([&n](const std::shared_ptr<rt::Object>& child) { n += CountOwned(child); });
  return n;
}

rt::Parameter& Param(const std::wstring& path) {
  auto o = rt::Resolve(path);
  EXPECT_TRUE(o) << ToUtf8(path);
  return dynamic_cast<rt::Parameter&>(*o);
}

std::shared_ptr<rt::FCurveObject> Curve(rt::Parameter& p, int interpolation,
                                        std::vector<rt::FCurveKey> keys) {
  auto c = p.AddFCurve();
  c->interpolation = interpolation;
  c->keys = std::move(keys);
  return c;
}

class SceneFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/zyra_scene_file_XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern));
    dir_ = pattern;
    rt::Host::Get().NewScene();
  }
  void TearDown() override {
    rt::UnloadPlugins();
    fs::remove_all(dir_);
  }
  std::string File(const std::string& name) const { return dir_ + "/" + name; }

  // A scene with every feature the format carries.
  void BuildFeatureScene() {
    rt::Scene& scene = rt::Host::Get().scene();
    auto root = scene.root;
    auto rig = rt::CreateModel(root, L"Rig");
    auto inner = rt::CreateModel(rig, L"Inner");
    auto hips = rt::CreateX3D(rig, siX3DObjectID, L"null", L"Hips");
    auto spine = rt::CreateX3D(hips, siX3DObjectID, L"null", L"Spine");
    rt::CreateX3D(inner, siX3DObjectID, L"null", L"Hips");  // the same name in a nested name space
    rt::CreateX3D(root, siCameraID, L"camera", L"Cam");
    rt::CreateX3D(root, siLightID, L"light", L"Sun");

    // Static values that print badly in short decimal forms.
    Param(L"Rig.Hips.posx").value = CValue(0.1);
    Param(L"Rig.Hips.posy").value = CValue(1.0 / 3.0);
    Param(L"Rig.Hips.posz").value = CValue(-0.0);
    Param(L"Rig.Hips.rotx").value = CValue(4.9406564584124654e-324);
    Param(L"Rig.Hips.sclz").value = CValue(1.7976931348623157e308);
    Param(L"Rig.Spine.visibility.rendvis").value = CValue(false);

    // Every curve and key interpolation, given tangents, and a non-integral frame.
    Curve(Param(L"Rig.Spine.rotz"), 3,
          {{1.0, 0.0, 0, 0, 0, 0, 0, false},
           {2.5, 0.1, 1, 0, 0, 0, 0, false},
           {7.0, -3.25, 2, 0, 0, 0, 0, false},
           {10.0, 1e-7, 3, -1.5, 0.25, 1.5, -0.25, true},
           {12.0, 90.0, 3, rt::kUnsetTangent, 0, 0.5, 2.0 / 3.0, true}});
    Curve(Param(L"Rig.Spine.posx"), 1, {{1, 5, 0, 0, 0, 0, 0, false}});
    Curve(Param(L"Rig.Hips.visibility.viewvis"), 2,
          {{1, 1, 1, 0, 0, 0, 0, false}, {5, 0, 1, 0, 0, 0, 0, false}});

    // A custom property with every value type, ranges, flags, label and description.
    auto settings =
        rt::CreateProperty(hips, siCustomPropertyID, L"Custom_parameter_list", L"Settings");
    auto gain = rt::MakeParam(L"Gain", siDouble, CValue(0.5),
                              CValue(-std::numeric_limits<double>::infinity()), CValue(2.0),
                              rt::kAnimatable | rt::kReadOnly | rt::kPersistable);
    gain->value = CValue(1.25);
    gain->suggestedMin = CValue(0.0);
    gain->suggestedMax = CValue(1.5);
    gain->label = L"Gain \"x\"\ttab";
    gain->description = L"Ünïcødé ✓ line\nbreak";
    settings->AddParam(gain);
    Curve(*gain, 2, {{1, 0.5, 0, 0, 0, 0, 0, false}, {20, 1.5, 0, 0, 0, 0, 0, false}});
    auto count = rt::MakeParam(L"Count", siInt4, CValue(3), CValue(0), CValue(10),
                               rt::kPersistable | rt::kNotInspectable);
    count->value = CValue(-7);
    settings->AddParam(count);
    settings->AddParam(rt::MakeParam(L"Ratio", siFloat, CValue(0.1f), CValue(0.0f), CValue(1.0f)));
    settings->AddParam(rt::MakeParam(L"Label", siString, CValue(L"a \"quoted\" \\ name"), {}, {},
                                     rt::kPersistable));
    settings->AddParam(rt::MakeParam(L"On", siBool, CValue(true)));
    settings->AddParam(
        rt::MakeParam(L"Target", siRef, CValue(CRef(spine)), {}, {}, rt::kPersistable));
    CValueArray list;
    list.Add(CValue(1));
    list.Add(CValue(2.5));
    list.Add(CValue(L"three"));
    list.Add(CValue(CRef(inner)));
    settings->AddParam(rt::MakeParam(L"List", siArray, CValue(list), {}, {}, rt::kPersistable));
    settings->AddParam(rt::MakeParam(L"Nothing", siEmpty, CValue(), {}, {}, 0));

    // Blobs whose lengths leave one and two bytes over a multiple of three, and an empty one.
    rt::CreateProperty(hips, siUserDataBlobID, L"UserDataBlob", L"Notes")->blob = {0,   1,  2, 255,
                                                                                   128, 10, 61};
    rt::CreateProperty(hips, siUserDataBlobID, L"UserDataBlob", L"Notes")->blob = {'=', 0, 0, 0,
                                                                                   0xfe};
    rt::CreateProperty(hips, siUserDataBlobID, L"UserDataBlob", L"Empty");
    auto display = rt::CreateProperty(hips, siPropertyID, L"display", L"Display Property");
    display->AddParam(rt::MakeParam(L"wirecol", siInt4, CValue(772)));

    // Geometry: a mesh enveloped by two deformers, a sphere with a changed radius, a cube.
    auto body = rt::CreateX3D(rig, siX3DObjectID, L"polymsh", L"Body");
    rt::SetMesh(body, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.5}, {3, 0, 1, 2, 4, 0, 1, 2, 3});
    EXPECT_TRUE(rt::AddEnvelope(body, {hips, spine}).Succeeded());
    EXPECT_TRUE(rt::SetEnvelopeWeights(*body->envelopes[0], spine, {0.0, 12.5, 100.0, 1.0 / 7.0})
                    .Succeeded());
    auto ball = rt::CreatePrimitiveObject(root, L"Sphere", L"Ball");
    Param(L"Ball.radius").value = CValue(2.5);
    rt::CreatePrimitiveObject(inner, L"Cube", L"Box");

    // A chain with two bones and an effector.
    rt::CreateChain(rig, L"Arm", MATH::CVector3(1, 2, 3),
                    {MATH::CVector3(2, 2, 3), MATH::CVector3(2, 4, 3)});

    // An action source with fcurve items and a static one; a mixer with a track.
    auto walk = rt::CreateActionSource(rig, L"Walk");
    walk->FindParam(L"FrameStart")->value = CValue(-5.5);
    walk->FindParam(L"type")->value = CValue(6);
    auto item = std::make_shared<rt::SourceItem>(L"Hips.kine.local.posx");
    item->owner = walk;
    item->fcurve = std::make_shared<rt::FCurveObject>();
    item->fcurve->keys = {{1, 0.25, 0, 0, 0, 0, 0, false}, {3, 0.75, 2, 0, 0, 0, 0, false}};
    walk->items.push_back(item);
    auto still = std::make_shared<rt::SourceItem>(L"Foot.RTKEffector.Contact");
    still->owner = walk;
    still->staticValue = CValue(true);
    walk->items.push_back(still);
    rt::CreateActionSource(rig, L"Idle");
    auto mixer = std::make_shared<rt::Container>(L"Mixer", siMixerID);
    mixer->owner = rig;
    rig->mixer = mixer;
    auto tracks = std::make_shared<rt::Container>(L"AnimTracks");
    tracks->owner = mixer;
    mixer->items.push_back(tracks);
    auto track = std::make_shared<rt::Object>(siTrackID, L"Track", L"track");
    track->owner = tracks;
    tracks->items.push_back(track);
    track->AddParam(rt::MakeParam(L"weight", siDouble, CValue(0.75)));

    // Scene level: a group, pass parameters, a second pass, preferences, play control, options.
    auto group = std::make_shared<rt::GroupObject>(L"Limbs");
    group->owner = scene.groups;
    group->members = {spine, ball, settings};
    scene.groups->items.push_back(group);
    Param(L"Passes.Default_Pass.ArchiveFileName").value = CValue(L"/tmp/out.zra");
    Param(L"Passes.Default_Pass.renderer.ArchiveAsciiOutput").value = CValue(true);
    rt::CreatePass(scene.passes, L"Beauty");
    scene.currentPass = L"Beauty";
    Param(L"preferences.scripting.cmdlog").value = CValue(false);
    Param(L"preferences.output_format.frame_rate").value = CValue(24.0);
    Param(L"PlayControl.Current").value = CValue(7.0);
    Param(L"dotZyraExportOptions.custompset").value = CValue(false);
  }

  std::string dir_;
};

TEST_F(SceneFileTest, EveryFeatureSurvivesSaveAndOpenAndASecondSaveGivesTheSameBytes) {
  BuildFeatureScene();
  const rt::Scene& live = rt::Host::Get().scene();
  CRef oldHips(rt::Resolve(L"Rig.Hips"));
  const std::string first = File("first.zyra");
  ASSERT_TRUE(rt::SaveSceneFile(first).Succeeded());
  EXPECT_FALSE(fs::exists(first + ".tmp"));

  {  // Read into a detached scene and compare with the open one, which is still alive.
    std::string text;
    ASSERT_TRUE(rt::ReadWholeFile(first, text).Succeeded());
    rt::Scene loaded;
    CStatus read = rt::ReadSceneText(text, first, loaded);
    ASSERT_TRUE(read.Succeeded()) << Message(read);
    ASSERT_NE(loaded.root, live.root);
    ExpectSameScene(live, loaded);
    EXPECT_EQ(CountOwned(loaded.root), CountOwned(live.root));
    auto target =
        loaded.root->Lookup(L"Rig")->Lookup(L"Hips")->Lookup(L"Settings")->Lookup(L"Target");
    EXPECT_EQ(dynamic_cast<rt::Parameter&>(*target).value.AsRef().Get(),
              loaded.root->Lookup(L"Rig")->Lookup(L"Spine"))
        << "a reference inside the file points into the loaded scene";
    rt::DestroySceneObjects(loaded);
  }

  CStatus opened = rt::OpenSceneFile(first);
  ASSERT_TRUE(opened.Succeeded()) << Message(opened);
  // Old handles go invalid; references inside the file point into the new scene.
  EXPECT_FALSE(oldHips.IsValid());
  auto spine = rt::Resolve(L"Rig.Spine");
  ASSERT_TRUE(spine);
  EXPECT_EQ(Param(L"Rig.Hips.Settings.Target").value.AsRef().Get(), spine);
  EXPECT_EQ(Param(L"Rig.Hips.Settings.List").value.AsArray()[3].AsRef().Get(),
            rt::Resolve(L"Rig.Inner"));
  auto body = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Body"));
  EXPECT_EQ(body->envelopes[0]->deformers[1].lock(), spine);
  auto armRoot = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Arm_Root"));
  ASSERT_TRUE(armRoot);
  EXPECT_EQ(armRoot->chainBones.size(), 2u);
  EXPECT_EQ(armRoot->chainEffector.lock(), rt::Resolve(L"Rig.Arm_Eff"));
  EXPECT_EQ(std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Arm_Bone1"))->chainRoot.lock(),
            armRoot);
  EXPECT_EQ(rt::Host::Get().FrameRate(), 24.0);
  EXPECT_EQ(rt::Host::Get().CurrentFrame(), 7.0);
  EXPECT_FALSE(rt::Host::Get().CommandLogging());
  EXPECT_EQ(ToUtf8(rt::Host::Get().scene().currentPass), "Beauty");

  const std::string second = File("second.zyra");
  ASSERT_TRUE(rt::SaveSceneFile(second).Succeeded());
  EXPECT_EQ(ReadBytes(first), ReadBytes(second));

  // The numbers are in the file as the shortest text that reads back exactly.
  std::string text = ReadBytes(first);
  for (const char* literal :
       {"0.1,", "0.3333333333333333,", "-0.0,", "5e-324,", "1.7976931348623157e+308,",
        "[10.0, 1e-07, 3, -1.5, 0.25, 1.5, -0.25]", "\"min\": {\"double\": \"-inf\"}"}) {
    EXPECT_NE(text.find(literal), std::string::npos) << literal;
  }
  auto doc = nlohmann::json::parse(text);
  EXPECT_EQ(doc["format"], "zyra-scene");
  EXPECT_EQ(doc["version"], 1);
  EXPECT_EQ(doc["scene"]["root"]["children"][0]["name"], "Rig");
}

TEST_F(SceneFileTest, BadFilesAreRefusedWithExactMessagesAndChangeNothing) {
  BuildFeatureScene();
  const std::string good = File("good.zyra");
  ASSERT_TRUE(rt::SaveSceneFile(good).Succeeded());
  const std::string goodText = ReadBytes(good);
  // Open state to check after every refusal: something of the scene was changed after saving.
  Param(L"Rig.Hips.posx").value = CValue(42.0);
  auto root = rt::Host::Get().scene().root;
  const size_t objects = CountOwned(root);
  CRef hips(rt::Resolve(L"Rig.Hips"));

  auto mutated = [&](const std::function<void(nlohmann::ordered_json&)>& change) {
    auto doc = nlohmann::ordered_json::parse(goodText);
    change(doc);
    return doc.dump(1);
  };
  struct Case {
    std::string name;
    std::string text;  // empty: the file does not exist
    std::string message;
  };
  const std::string p = dir_ + "/";
  std::vector<Case> cases = {
      {"missing.zyra", "", p + "missing.zyra: cannot open: No such file or directory"},
      {"other.zyra", R"({"format": "obj-scene", "version": 1, "scene": {}})",
       p + "other.zyra: not a Zyra scene file (format \"obj-scene\")"},
      {"array.zyra", "[1, 2]", p + "array.zyra: not a Zyra scene file (no \"format\")"},
      {"newer.zyra", R"({"format": "zyra-scene", "version": 2, "scene": {"future": true}})",
       p + "newer.zyra: written by a newer Zyra (scene file version 2; this host reads 1)"},
      {"version.zyra", R"({"format": "zyra-scene", "version": "1", "scene": {}})",
       p + "version.zyra: at version: expected a version number from 1, found \"1\""},
      {"noscene.zyra", R"({"format": "zyra-scene", "version": 1})",
       p + "noscene.zyra: missing \"scene\""},
      {"class.zyra", mutated([](auto& d) { d["scene"]["root"]["children"][0]["class"] = "74"; }),
       p + "class.zyra: at scene.root.children[0].class: expected an integer, found a string"},
      {"classid.zyra", mutated([](auto& d) { d["scene"]["root"]["children"][0]["class"] = 200; }),
       p + "classid.zyra: at scene.root.children[0].class: class 200 is not a 3D object class"},
      {"dotname.zyra",
       mutated([](auto& d) { d["scene"]["root"]["children"][0]["children"][1]["name"] = "A.B"; }),
       p + "dotname.zyra: at scene.root.children[0].children[1].name: \"A.B\" is not a name (it "
           "holds '.' or ',')"},
      {"twice.zyra",
       mutated([](auto& d) { d["scene"]["root"]["children"][0]["children"][1]["name"] = "Inner"; }),
       p + "twice.zyra: at scene.root.children[0].children[1].name: \"Rig.Inner\" names two "
           "objects (names are "
           "unique in a name space)"},
      {"order.zyra", mutated([](auto& d) {
         d["scene"]["root"]["children"][0]["children"][1]["children"][0]["properties"][0]
          ["properties"][0]["params"][5]["fcurve"]["keys"][1][0] = 0.5;
       }),
       p + "order.zyra: at "
           "scene.root.children[0].children[1].children[0].properties[0].properties[0].params[5]."
           "fcurve.keys[1][0]: keys must be in increasing frame order"},
      {"polygon.zyra", mutated([](auto& d) {
         d["scene"]["root"]["children"][0]["children"][2]["primitive"]["geometry"]["polygons"][3] =
             4;
       }),
       p + "polygon.zyra: at scene.root.children[0].children[2].primitive.geometry.polygons[3]: "
           "integer 4 out of range "
           "0..3"},
      {"weights.zyra", mutated([](auto& d) {
         d["scene"]["root"]["children"][0]["children"][2]["envelopes"][0]["weights"][1].erase(0);
       }),
       p + "weights.zyra: at scene.root.children[0].children[2].envelopes[0].weights[1]: 3 weights "
           "for a mesh of 4 points"},
      {"deformer.zyra", mutated([](auto& d) {
         d["scene"]["root"]["children"][0]["children"][2]["envelopes"][0]["deformers"][0] =
             "Rig.Ghost";
       }),
       p + "deformer.zyra: at scene.root.children[0].children[2].envelopes[0].deformers[0]: "
           "\"Rig.Ghost\" names no "
           "object of the file"},
      {"blob.zyra", mutated([](auto& d) {
         d["scene"]["root"]["children"][0]["children"][1]["properties"][3]["blob"] = "AB$=";
       }),
       p + "blob.zyra: at scene.root.children[0].children[1].properties[3].blob: not base64 data"},
      {"pass.zyra", mutated([](auto& d) { d["scene"]["currentPass"] = "Nowhere"; }),
       p + "pass.zyra: at scene.currentPass: no pass is named \"Nowhere\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = p + c.name;
    if (!c.text.empty()) WriteBytes(path, c.text);
    CStatus status = rt::OpenSceneFile(path);
    EXPECT_FALSE(status.Succeeded());
    EXPECT_EQ(Message(status), c.message);
    EXPECT_EQ(rt::Host::Get().scene().root, root);
    EXPECT_EQ(CountOwned(root), objects);
    EXPECT_TRUE(hips.IsValid());
    EXPECT_EQ(Param(L"Rig.Hips.posx").value.AsDouble(), 42.0);
    if (!c.text.empty()) {
      EXPECT_EQ(ReadBytes(path), c.text) << "the refused file is left as it was";
    }
  }

  // A truncated file names the line and column where parsing stopped.
  const std::string cut = p + "cut.zyra";
  WriteBytes(cut, goodText.substr(0, goodText.size() / 2));
  std::string message = Message(rt::OpenSceneFile(cut));
  EXPECT_EQ(message.rfind(cut + ": not a scene file: parse error at line ", 0), 0u) << message;
  EXPECT_NE(message.find("column"), std::string::npos) << message;
  EXPECT_EQ(CountOwned(root), objects);

  // Importing a bad file imports nothing.
  CValue result;
  CStatus imported = rt::Host::Get().Execute(L"ZrImportDotZyraFile",
                                             {CValue(p + "weights.zyra"), CValue(L"Rig")}, result);
  EXPECT_EQ(Message(imported), cases[12].message);
  EXPECT_TRUE(result.IsEmpty());
  EXPECT_EQ(CountOwned(root), objects);
}

TEST_F(SceneFileTest, SavesAreAtomicAndNeverLeaveATemporaryFile) {
  BuildFeatureScene();
  {  // The target folder does not exist.
    std::string path = File("no/such/dir/scene.zyra");
    EXPECT_EQ(Message(rt::SaveSceneFile(path)), path + ": cannot write: No such file or directory");
    EXPECT_FALSE(fs::exists(path + ".tmp"));
  }
  {  // The target is a folder: refused before anything is written.
    std::string path = File("folder.zyra");
    fs::create_directory(path);
    EXPECT_EQ(Message(rt::SaveSceneFile(path)),
              path + ": cannot write: it is a folder, not a regular file");
    EXPECT_FALSE(fs::exists(path + ".tmp"));
    EXPECT_TRUE(fs::is_directory(path));
  }
  auto entries = [this] {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_)) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  };
  const std::string earlier = File("earlier.zyra");
  WriteBytes(earlier, "the earlier save");
  const auto before = entries();
  {  // A value nested deeper than a reader can take: refused, naming it; 1000 levels still save.
    auto& deep = Param(L"Rig.Hips.Settings.List");
    CValue value(1);
    for (int level = 0; level < rt::kMaxValueDepth; ++level) value = CValue(CValueArray{value});
    deep.value = value;
    ASSERT_TRUE(rt::SaveSceneFile(File("deepest.zyra")).Succeeded());
    rt::Scene reread;
    CStatus read = rt::ReadSceneFile(File("deepest.zyra"), reread);
    EXPECT_TRUE(read.Succeeded()) << Message(read);
    rt::DestroySceneObjects(reread);
    fs::remove(File("deepest.zyra"));
    deep.value = CValue(CValueArray{value});
    EXPECT_EQ(Message(rt::SaveSceneFile(earlier)),
              earlier +
                  ": cannot write: the value of \"Rig.Hips.Settings.List\" nests arrays "
                  "deeper than 1000 levels");
    EXPECT_EQ(ReadBytes(earlier), "the earlier save");
    EXPECT_EQ(entries(), before) << "no temporary file is left";
    deep.value = CValue();
  }
  {  // A write that fails half way (the file size limit standing in for a full disk).
    struct rlimit old {};
    ::getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = old;
    small.rlim_cur = 4096;
    ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    CStatus saved = rt::SaveSceneFile(earlier);
    ::setrlimit(RLIMIT_FSIZE, &old);
    ::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(Message(saved), earlier + ": cannot write: File too large");
    EXPECT_EQ(ReadBytes(earlier), "the earlier save");
    EXPECT_EQ(entries(), before) << "no temporary file is left";
  }
  {  // Objects nested deeper than a reader takes: refused, naming the first one too deep.
    std::shared_ptr<rt::X3D> parent = rt::Host::Get().scene().root;
    for (int level = 0; level <= rt::kMaxObjectDepth; ++level) {
      parent = rt::CreateX3D(parent, siX3DObjectID, L"null", L"N" + std::to_wstring(level));
    }
    EXPECT_EQ(Message(rt::SaveSceneFile(earlier)),
              earlier + ": cannot write: \"N1000\" lies deeper than 1000 levels of objects");
    EXPECT_EQ(ReadBytes(earlier), "the earlier save");
    EXPECT_EQ(entries(), before) << "no temporary file is left";
  }
}

TEST_F(SceneFileTest, BranchesExportAndImportUnderAnotherParentWithUniqueNames) {
  BuildFeatureScene();
  rt::Host& host = rt::Host::Get();
  auto rig = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig"));
  auto hips = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Hips"));
  auto ball = rt::Resolve(L"Ball");
  CValue result;
  Param(L"dotZyraExportOptions.custompset").value = CValue(true);

  {  // A model's branch under another model: the model gets a free name, its inside keeps its own.
    std::string path = File("rig.zyra");
    ASSERT_TRUE(
        host.Execute(L"ZrExportDotZyraFile", {CValue(L"Rig"), CValue(path)}, result).Succeeded());
    auto holder = rt::CreateModel(host.scene().root, L"Holder");
    rt::CreateModel(holder, L"Rig");
    CStatus s = host.Execute(L"ZrImportDotZyraFile", {CValue(path), CValue(CRef(holder))}, result);
    ASSERT_TRUE(s.Succeeded()) << Message(s);
    auto copy = std::dynamic_pointer_cast<rt::X3D>(result.AsRef().Get());
    ASSERT_TRUE(copy);
    EXPECT_EQ(ToUtf8(copy->FullName()), "Holder.Rig1");
    EXPECT_EQ(copy->Parent(), holder);
    gShortLinkNames = true;
    ExpectSameObject(*rig, *copy, "Rig", false);
    gShortLinkNames = false;
    // Links inside the branch point at the copies, not at the originals.
    auto body = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Holder.Rig1.Body"));
    ASSERT_TRUE(body);
    EXPECT_EQ(body->envelopes[0]->deformers[0].lock(), rt::Resolve(L"Holder.Rig1.Hips"));
    EXPECT_NE(body->envelopes[0]->deformers[0].lock(), hips);
    EXPECT_EQ(Param(L"Holder.Rig1.Hips.Settings.Target").value.AsRef().Get(),
              rt::Resolve(L"Holder.Rig1.Spine"));
    auto armRoot = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Holder.Rig1.Arm_Root"));
    EXPECT_EQ(armRoot->chainEffector.lock(), rt::Resolve(L"Holder.Rig1.Arm_Eff"));
  }

  {  // A null's branch into a name space where its names are taken: renamed; an envelope bound
     // to deformers outside the branch keeps the ones the scene still has.
    auto mesh = rt::CreateX3D(hips, siX3DObjectID, L"polymsh", L"Skin");
    rt::SetCubeMesh(mesh, 2.0);
    ASSERT_TRUE(
        rt::AddEnvelope(mesh, {hips, std::dynamic_pointer_cast<rt::X3D>(ball)}).Succeeded());
    std::string path = File("hips.zyra");
    ASSERT_TRUE(rt::ExportBranch(hips, path).Succeeded());
    std::shared_ptr<rt::X3D> copy;
    CStatus s = rt::ImportBranch(path, rig, copy);
    ASSERT_TRUE(s.Succeeded()) << Message(s);
    EXPECT_EQ(ToUtf8(copy->FullName()), "Rig.Hips1");
    EXPECT_EQ(ToUtf8(copy->children[0]->FullName()), "Rig.Spine1");
    EXPECT_EQ(ToUtf8(copy->children[1]->FullName()), "Rig.Skin1");
    ExpectSameObject(*hips->children[0], *copy->children[0], "Spine", false);
    auto& envelope = *copy->children[1]->envelopes[0];
    ASSERT_EQ(envelope.deformers.size(), 2u);
    EXPECT_EQ(envelope.deformers[0].lock(), copy) << "inside the branch: the copy";
    EXPECT_EQ(envelope.deformers[1].lock(), ball) << "outside the branch: the scene's object";

    // Once the outside deformer is gone, its reference is dropped with its weights and a warning.
    rt::Destroy(ball);
    host.ClearLog();
    ASSERT_TRUE(rt::ImportBranch(path, rig, copy).Succeeded());
    EXPECT_EQ(ToUtf8(copy->name), "Hips2");
    ASSERT_EQ(copy->children[1]->envelopes[0]->deformers.size(), 1u);
    EXPECT_EQ(copy->children[1]->envelopes[0]->weights.size(), 1u);
    ASSERT_FALSE(host.LogLines().empty());
    EXPECT_EQ(ToUtf8(host.LogLines().back().text),
              "Scene file import: \"Ball\" (at scene.root.children[1].envelopes[0].deformers[1]) "
              "names no object; the "
              "reference is dropped.");
  }

  {  // Export options: no custom properties, animation as the value at the current frame.
    Param(L"dotZyraExportOptions.custompset").value = CValue(false);
    Param(L"dotZyraExportOptions.animall").value = CValue(false);
    Param(L"PlayControl.Current").value = CValue(6.0);
    auto spine = std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"Rig.Spine"));
    Curve(Param(L"Rig.Spine.posy"), 2,
          {{1, 0, 2, 0, 0, 0, 0, false}, {11, 10, 2, 0, 0, 0, 0, false}});
    rt::CreateProperty(spine, siCustomPropertyID, L"Custom_parameter_list", L"Extra");
    std::string path = File("spine.zyra");
    ASSERT_TRUE(rt::ExportBranch(spine, path).Succeeded());
    std::shared_ptr<rt::X3D> copy;
    ASSERT_TRUE(rt::ImportBranch(path, host.scene().root, copy).Succeeded());
    EXPECT_EQ(ToUtf8(copy->FullName()), "Spine");
    EXPECT_EQ(copy->FindProperty(L"Extra"), nullptr);
    EXPECT_NE(copy->FindProperty(L"visibility"), nullptr);
    const rt::Parameter* posy = copy->local->FindParam(L"posy");
    EXPECT_EQ(posy->fcurve, nullptr);
    EXPECT_DOUBLE_EQ(posy->value.AsDouble(), 5.0) << "halfway along a linear curve from 0 to 10";
    EXPECT_DOUBLE_EQ(copy->local->FindParam(L"posx")->value.AsDouble(), 5.0)
        << "a one-key curve's value";
  }

  {  // A whole-scene file imports as a model named after the file.
    std::string path = File("whole.scene.zyra");
    ASSERT_TRUE(host.Execute(L"SaveScene", {CValue(path)}, result).Succeeded());
    ASSERT_TRUE(host.Execute(L"ZrImportDotZyraFile", {CValue(path)}, result).Succeeded());
    auto model = std::dynamic_pointer_cast<rt::ModelObject>(result.AsRef().Get());
    ASSERT_TRUE(model);
    EXPECT_EQ(ToUtf8(model->FullName()), "whole_scene");
    EXPECT_EQ(model->Parent(), host.scene().root);
    EXPECT_TRUE(rt::Resolve(L"whole_scene.Rig.Hips"));
  }

  {  // Commands refuse arguments they cannot use.
    EXPECT_EQ(Message(host.Execute(L"ZrExportDotZyraFile",
                                   {CValue(L"Nobody"), CValue(File("x.zyra"))}, result)),
              "ZrExportDotZyraFile: the first argument must name a 3D object, got \"Nobody\".");
    EXPECT_EQ(Message(host.Execute(L"ZrExportDotZyraFile", {CValue(L"Rig")}, result)),
              "ZrExportDotZyraFile: the second argument must be a file name.");
    EXPECT_EQ(
        Message(host.Execute(L"ZrImportDotZyraFile",
                             {CValue(File("rig.zyra")), CValue(L"Rig.Settings")}, result)),
        "ZrImportDotZyraFile: the second argument must name a 3D object, got \"Rig.Settings\".");
    EXPECT_EQ(Message(host.Execute(L"OpenScene", {}, result)),
              "OpenScene: the argument must be a file name.");
    EXPECT_FALSE(fs::exists(File("x.zyra")));
  }
}

TEST_F(SceneFileTest, PluginPropertiesAreRemadeByTheirPluginAndKeepTheFileValues) {
  ASSERT_TRUE(rt::LoadPlugin(std::string(ZYRA_TEST_PLUGIN_DIR) + "/good.so").Succeeded());
  rt::Host& host = rt::Host::Get();
  auto hips = rt::CreateX3D(host.scene().root, siX3DObjectID, L"null", L"Hips");
  auto property = rt::CreatePluginProperty(hips, L"TstProp", L"Setup");
  ASSERT_TRUE(property);
  Param(L"Hips.Setup.Count").value = CValue(7);
  Param(L"Hips.Setup.Name").value = CValue(L"Fred");
  // A parameter added after the plug-in defined the property (as EditParameterDefinition users
  // and plug-in upgrades do) comes back too.
  property->AddParam(rt::MakeParam(L"Added", siDouble, CValue(2.5)));
  const std::string path = File("plugin.zyra");
  ASSERT_TRUE(rt::SaveSceneFile(path).Succeeded());

  std::string text;
  ASSERT_TRUE(rt::ReadWholeFile(path, text).Succeeded());
  rt::Scene loaded;
  ASSERT_TRUE(rt::ReadSceneText(text, path, loaded).Succeeded());
  auto copy = loaded.root->Lookup(L"Hips")->Lookup(L"Setup");
  auto setup = std::dynamic_pointer_cast<rt::Property>(copy);
  ASSERT_TRUE(setup);
  ExpectSameObject(*property, *setup, "Hips.Setup");
  EXPECT_TRUE(setup->layout) << "the plug-in defined it again, page included";
  EXPECT_EQ(setup->FindParam(L"Count")->value.AsInt(), 7);
  rt::DestroySceneObjects(loaded);

  // Without the plug-in the property still loads, as plain data of its type.
  rt::UnloadPlugins();
  rt::Scene plain;
  ASSERT_TRUE(rt::ReadSceneText(text, path, plain).Succeeded());
  auto data =
      std::dynamic_pointer_cast<rt::Property>(plain.root->Lookup(L"Hips")->Lookup(L"Setup"));
  ASSERT_TRUE(data);
  ExpectSameObject(*property, *data, "Hips.Setup");
  EXPECT_FALSE(data->layout);
  rt::DestroySceneObjects(plain);
}

TEST_F(SceneFileTest, OpenSceneAndNewSceneCommandsReplaceTheScene) {
  rt::Host& host = rt::Host::Get();
  CValue result;
  auto a = rt::CreateX3D(host.scene().root, siX3DObjectID, L"null", L"A");
  std::string path = File("a.zyra");
  ASSERT_TRUE(host.Execute(L"SaveScene", {CValue(path)}, result).Succeeded());
  ASSERT_TRUE(host.Execute(L"NewScene", {}, result).Succeeded());
  EXPECT_FALSE(CRef(a).IsValid());
  EXPECT_FALSE(rt::Resolve(L"A"));
  ASSERT_TRUE(host.Execute(L"OpenScene", {CValue(path)}, result).Succeeded());
  EXPECT_TRUE(rt::Resolve(L"A"));
  EXPECT_EQ(ToUtf8(host.scene().currentPass), "Default_Pass");

  // A branch file opens as a scene that holds the branch.
  std::string branch = File("branch.zyra");
  ASSERT_TRUE(
      rt::ExportBranch(std::dynamic_pointer_cast<rt::X3D>(rt::Resolve(L"A")), branch).Succeeded());
  rt::CreateX3D(host.scene().root, siX3DObjectID, L"null", L"B");
  ASSERT_TRUE(rt::OpenSceneFile(branch).Succeeded());
  EXPECT_TRUE(rt::Resolve(L"A"));
  EXPECT_FALSE(rt::Resolve(L"B"));
}

}  // namespace
