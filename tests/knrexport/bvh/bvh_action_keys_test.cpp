// The action import keys its curves straight from the frames as they are parsed. Its keys must be,
// float for float, those of the take read as samples (ReadBvhForImport), pruned on the samples
// (RemoveBvhJoints), placed in the model's space and turned into continuous Euler angles; and a
// take it cannot read must be refused with the message of the sampled read.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/scene/pose_storage.h"
#include "model/scene_graph.h"
#include "tests/knrexport/bvh/bvh_test_text.h"
#include "zyra/action.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

const std::string kWalk = KNR_SHARED_DATA_DIR "/bvh/01_03.bvh";
const std::string kBoxing = KNR_SHARED_DATA_DIR "/bvh/Boxing_Toes.bvh";
constexpr const wchar_t* kChannels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};

struct Options {
  bool optimize;
  const wchar_t* filter;
  const wchar_t* subtree;
  bool keepRoot;
};

// The keys of one object's channels, as the samples of the pruned take give them.
struct SampledJoint {
  std::wstring object;
  bool translate = false;
  std::array<std::vector<float>, 6> keys;
};

std::vector<SampledJoint> KeysFromSamples(Model& actor, const std::string& path, float scale,
                                          const Options& o) {
  ZyraBvFile file;
  MocapData data;
  EXPECT_TRUE(ReadBvhForImport(file, data, CString(path), scale, false));
  RemoveBvhJoints(file, data, o.filter, o.subtree, o.keepRoot, false);
  const ZyraBvHierarchy& hierarchy = *file.Hierarchy();
  std::vector<std::string> repeated;
  const std::vector<CString> names = BvhJointObjectNames(hierarchy, repeated);
  DrvTransform model;
  DrvTransform_SetIdentity(&model);
  GetGlobalTransform(actor, model);
  std::vector<SampledJoint> out;
  for (int i = 0; i < hierarchy.nodeCount; ++i) {
    const CString name = names[static_cast<size_t>(i)];
    X3DObject object = actor.FindChild(actor.GetName() + L"." + name, CString(), CRefArray(), true);
    if (!object.IsValid()) continue;
    X3DObject parent(object.GetParent());
    const bool placed = hierarchy.nodes[i].parent < 0 && parent.GetRef() != actor.GetRef();
    DrvTransform toParent;
    DrvTransform_SetIdentity(&toParent);
    if (placed) {
      GetGlobalTransform(parent, toParent);
      DrvTransform_Invert(&toParent);
      DrvTransform_Multiply(&toParent, &toParent, &model);
    }
    SampledJoint joint{name.Wide(), i == 0 || !o.optimize, {}};
    const MocapRecord& record = data.records[i];
    float previous[3] = {};
    for (int f = 0; f < record.frameCount; ++f) {
      DrvTransform sample = record.samples[f];
      if (placed) DrvTransform_Multiply(&sample, &toParent, &sample);
      joint.keys[0].push_back(sample.translation.x);
      joint.keys[1].push_back(sample.translation.y);
      joint.keys[2].push_back(sample.translation.z);
      DrvVector radians;
      DrvQuaternion_GetEulerAngles(&sample.rotation, &radians);
      const float angles[3] = {radians.x / kBvDegToRad, radians.y / kBvDegToRad,
                               radians.z / kBvDegToRad};
      for (int a = 0; a < 3; ++a) {
        previous[a] = f > 0 ? EnforceContinuity(angles[a], previous[a]) : angles[a];
        joint.keys[static_cast<size_t>(3 + a)].push_back(previous[a]);
      }
    }
    out.push_back(std::move(joint));
  }
  return out;
}

class BvhActionKeysTest : public ::testing::Test {
 protected:
  void SetUp() override { rt::Host::Get().NewScene(); }
  static rt::UiState& ui() { return rt::Host::Get().ui(); }
  // The actor as the Import BVH Actor command makes it (initialized, home pose set, so that its
  // root null stands off the model's origin).
  static Model ImportActor(const std::string& path) {
    rt::Host::Get().NewScene();
    ui().messageBoxes.clear();
    ui().pageAnswers.push_back({L"Import BVH Actor",
                                {{L"BVHFile", CString(path).Wide()},
                                 {L"ActorName", L"Take"},
                                 {L"Box", L"false"},
                                 {L"Scale", L"0.125"}},
                                {},
                                false});
    EXPECT_TRUE(ImportBVHActor());
    return Model(Application().GetObjectFromPath(L"Take"));
  }
  // 01_03.bvh's frames repeated to `frames`, one a line: megabytes, read by two threads.
  static std::string LongTake(int frames) {
    const std::string text = Slurp(kWalk);
    const std::size_t motion = text.find("Frames:");
    const std::size_t first = text.find('\n', text.find("Frame Time:")) + 1;
    std::string out = text.substr(0, motion) + "Frames: " + std::to_string(frames) +
                      text.substr(text.find('\n', motion), first - text.find('\n', motion));
    std::vector<std::string> lines;
    for (std::size_t at = first, end; at < text.size(); at = end + 1) {
      end = text.find('\n', at);
      if (end == std::string::npos) end = text.size();
      if (end > at + 1) lines.push_back(text.substr(at, end - at));
    }
    for (int f = 0; f < frames; ++f) out += lines[static_cast<size_t>(f) % lines.size()] + "\n";
    return out;
  }
  static std::string WriteTemp(const std::string& name, const std::string& text) {
    const std::string path =
        ::testing::TempDir() + "bvh_action_keys_" + std::to_string(getpid()) + "_" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
};

TEST_F(BvhActionKeysTest, CurvesEqualThePrunedPlacedSamplesOfTheTake) {
  const std::string longTake = WriteTemp("long.bvh", LongTake(6000));
  const struct {
    const char* label;
    std::string file;
    Options options;
  } cases[] = {
      {"whole take, optimized", kWalk, {true, L"", L"", true}},
      // Spine1 folds into Neck first, then Spine into that: the order the folds replay in.
      {"two filter passes over one chain, a subtree with its root",
       kWalk,
       {false, L"Spine1;Spine", L"LeftHand", false}},
      {"root and hip joints filtered: new roots under other objects",
       kWalk,
       {true, L"Hips;Joint", L"RightArm", true}},
      {"another skeleton, a chain folded in one pass", kBoxing, {true, L"Ab;Chest", L"", true}},
      {"a long take read by two threads", longTake, {false, L"Spine1;Spine", L"", true}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    Model actor = ImportActor(c.file);
    ASSERT_TRUE(actor.IsValid());
    const std::vector<SampledJoint> expected = KeysFromSamples(actor, c.file, 0.125f, c.options);
    ASSERT_TRUE(AddBVHAction(actor, CString(c.file), L"Act", 0.125f, c.options.optimize,
                             c.options.filter, c.options.subtree, c.options.keepRoot));
    ActionSource source(actor.GetSources()[actor.GetSources().GetCount() - 1]);
    long items = 0;
    for (const SampledJoint& joint : expected) {
      for (int ch = joint.translate ? 0 : 3; ch < 6; ++ch, ++items) {
        const std::wstring target = joint.object + L".kine.local." + kChannels[ch];
        FCurve curve;
        for (const CRef& ref : source.GetItems()) {
          AnimationSourceItem item(ref);
          if (item.GetTarget().Wide() == target) curve = FCurve(item.GetSource());
        }
        ASSERT_TRUE(curve.IsValid()) << CString(target).GetAsciiString();
        const std::vector<float>& want = joint.keys[static_cast<size_t>(ch)];
        ASSERT_EQ(curve.GetKeyCount(), static_cast<long>(want.size()));
        long wrong = 0, firstWrong = -1;
        for (long k = 0; k < curve.GetKeyCount(); ++k) {
          if (curve.GetKeyValue(k).AsDouble() == want[static_cast<size_t>(k)]) continue;
          if (wrong++ == 0) firstWrong = k;
        }
        EXPECT_EQ(wrong, 0) << CString(target).GetAsciiString() << ", first at key " << firstWrong;
      }
    }
    EXPECT_EQ(source.GetItems().GetCount(), items);
  }
  std::remove(longTake.c_str());
}

TEST_F(BvhActionKeysTest, AnUnreadableTakeIsRefusedWithTheMessageOfTheSampledRead) {
  std::string broken = LongTake(6000);
  broken.replace(broken.rfind(' ', broken.size() - 40000), 1, " x");  // a word near the end
  const struct {
    const char* label;
    std::string text;
  } cases[] = {
      {"a word in the second reader's half", broken},
      {"no frames", LongTake(0)},
      {"a frame time of zero",
       [] {
         std::string text = LongTake(20);
         const std::size_t at = text.find("Frame Time:");
         return text.replace(at, text.find('\n', at) - at, "Frame Time: 0");
       }()},
  };
  Model actor = ImportActor(kWalk);
  ASSERT_TRUE(actor.IsValid());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string path = WriteTemp("broken.bvh", c.text);
    ui().messageBoxes.clear();
    ZyraBvFile file;
    MocapData data;
    EXPECT_FALSE(ReadBvhForImport(file, data, CString(path), 0.125f, false));
    EXPECT_FALSE(AddBVHAction(actor, CString(path), L"Broken", 0.125f, true, L"", L"", true));
    ASSERT_EQ(ui().messageBoxes.size(), 2u);
    EXPECT_EQ(ui().messageBoxes[1], ui().messageBoxes[0]);
    EXPECT_EQ(actor.GetSources().GetCount(), 0);
    std::remove(path.c_str());
  }
}

}  // namespace
