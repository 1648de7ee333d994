// Make Skill through the real module and host scripts on a recorded boxing take: an actor and
// its action imported from BVH, the COG and feet tagged, then a Locomotion or Basic skill made
// from the action source. The body the take plays is computed in the test before the command
// and compared at every frame with what the skill plays.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/host.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "script/script.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/x3dobject.h"

namespace {

using namespace Zyra;

const std::wstring kTake = FromUtf8(KNR_SHARED_DATA_DIR "/bvh/Boxing_Toes.bvh");

class SkillRealTakeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    rt::Host::Get().NewScene();
    CStatus loaded = rt::LoadPlugin(KNR_MODULE_PATH);
    ASSERT_TRUE(loaded.Succeeded()) << ToUtf8(loaded.GetMessage().Wide());
  }
  static void TearDownTestSuite() { rt::UnloadPlugins(); }

  static void Script(const std::wstring& text) {
    CStatus ran = rt::RunScriptText(text, "skill_real_take");
    ASSERT_TRUE(ran.Succeeded()) << ToUtf8(ran.GetMessage().Wide());
  }
  static X3DObject Object(const wchar_t* name) {
    CRef ref;
    ref.Set(name);
    return X3DObject(ref);
  }
  // Plays the take and reads `node`'s global transform at every whole frame of it.
  static std::vector<MATH::CTransformation> Play(X3DObject node, int frames) {
    Script(L"ApplyAction Boxer.Sources.Take");
    std::vector<MATH::CTransformation> out;
    for (int f = 0; f < frames; ++f) out.push_back(node.GetKinematics().GetGlobal().GetTransform(CTime(f)));
    Script(L"RemoveAllAnimation Boxer \"\" 1 9");
    return out;
  }
};

TEST_F(SkillRealTakeTest, LocomotionAndBasicKeepTheBoxersBody) {
  for (const wchar_t* kind : {L"Locomotion", L"Basic"}) {
    SCOPED_TRACE(ToUtf8(kind));
    rt::Host::Get().NewScene();
    Script(L"Answer Page \"Import BVH Actor\" BVHFile=\"" + kTake +
           L"\" ActorName=\"Boxer\" Box=false Scale=0.125 Filter=\"\" Remove=\"\"\n"
           L"KnrImportBVHActor\n"
           L"KnrAddBVHAction Boxer \"" + kTake + L"\" \"Take\" 0.125 true \"\" \"\" true\n"
           L"SelectObj Boxer.Hips\nKnrSetCOG\n"
           L"SelectObj Boxer.LeftAnkle\nKnrSetFoot\nSelectObj Boxer.RightAnkle\nKnrSetFoot\n");
    ActionSource take(Model(Object(L"Boxer")).GetSources()[0]);
    const double last = take.GetParameterValue(L"FrameEnd").AsDouble();
    const int frames = static_cast<int>(last) + 1;
    ASSERT_GT(frames, 900);
    X3DObject hips = Object(L"Boxer.Hips"), root = Object(L"Boxer.GlobalSRT");
    const auto body = Play(hips, frames);
    // The lowest point of the feet's spheres over the take, from the played body.
    double lowest = 1e300;
    for (const wchar_t* name : {L"Boxer.LeftAnkle_CS", L"Boxer.RightAnkle_CS"}) {
      X3DObject sphere = Object(name);
      ASSERT_TRUE(sphere.IsValid()) << ToUtf8(name);
      const auto path = Play(sphere, frames);
      const double radius = sphere.GetActivePrimitive().GetParameterValue(L"radius").AsDouble();
      for (const auto& t : path) lowest = std::fmin(lowest, t.GetTranslation().GetY() - radius);
    }
    const bool loco = std::wstring(kind) == L"Locomotion";
    // A Basic skill needs a keyed root: the animator keys it where it stands, over the take.
    if (!loco) {
      const std::wstring x = std::to_wstring(root.GetParameterValue(L"posx").AsDouble());
      Script(L"SetKey Boxer.GlobalSRT.posx 0 " + x + L"\nSetKey Boxer.GlobalSRT.posx " + std::to_wstring(last) + L" " + x);
    }
    Script(L"SelectObj Boxer.Sources.Take\nAnswer Page \"Make Skill\" Skill=" + std::wstring(kind) +
           L"\nKnrMakeSkill\n");
    take = ActionSource(Model(Object(L"Boxer")).GetSources()[0]);
    EXPECT_EQ(take.GetParameterValue(L"type").AsInt(), loco ? 2 : 1);
    const auto after = Play(hips, frames);
    const auto base = Play(root, frames);
    const double lift = loco ? -lowest : 0.0;
    const MATH::CVector3 firstForward = base[0].GetRotationQuaternion().Rotate(MATH::CVector3(0, 0, 1));
    if (!loco) {
      EXPECT_NEAR(firstForward.GetX(), 0.0, 1e-6) << "the Basic root faces ahead at the first frame";
    }
    int failures = 0;
    for (int f = 0; f < frames && failures < 5; ++f) {
      const MATH::CVector3 was = body[static_cast<size_t>(f)].GetTranslation(), is = after[static_cast<size_t>(f)].GetTranslation();
      const MATH::CVector3 up = base[static_cast<size_t>(f)].GetRotationQuaternion().Rotate(MATH::CVector3(0, 1, 0));
      const double turn = std::fabs((body[static_cast<size_t>(f)].GetRotationQuaternion().Conjugate() *
                                     after[static_cast<size_t>(f)].GetRotationQuaternion()).GetW());
      const bool good = std::fabs(is.GetX() - was.GetX()) < 2e-3 && std::fabs(is.GetZ() - was.GetZ()) < 2e-3 &&
                        std::fabs(is.GetY() - was.GetY() - lift) < 2e-3 && turn > 1.0 - 1e-7 && up.GetY() > 1.0 - 1e-9 &&
                        std::fabs(base[static_cast<size_t>(f)].GetTranslation().GetY()) < 1e-9 &&
                        (!loco || std::fabs(base[static_cast<size_t>(f)].GetTranslation().GetX()) < 1e-9);
      if (!good) ++failures;
      EXPECT_TRUE(good) << "frame " << f << ": body (" << was.GetX() << ", " << was.GetY() << ", " << was.GetZ()
                        << ") became (" << is.GetX() << ", " << is.GetY() << ", " << is.GetZ() << ")";
    }
  }
}

}  // namespace
