#include "chain_sampler.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "model/scene_graph.h"
#include "script/script.h"
#include "zyra/application.h"
#include "zyra/kinematics.h"

namespace knrconvert {
namespace {

// The sampler against the host's own global transforms (the oracle) on a chain that is keyed,
// static, scaled and placed under a moved model, at key frames and between them.
TEST(ChainSampler, MatchesTheHostsGlobalTransforms) {
  Zyra::rt::Host::Get().NewScene();
  const char* script =
      "CreateModel \"M\"\nCreateNull \"A\" M\nCreateNull \"B\" M.A\nCreateNull \"C\" "
      "M.B\nCreateNull \"D\" M.A\n"
      "SetValue M.posx 5.0\nSetValue M.roty 30.0\nSetValue M.A.sclx 2.0\nSetValue M.B.posy "
      "3.0\nSetValue M.C.posz 4.0\n"
      "SetValue M.D.rotz 45.0\n"
      "SetKey M.A.posz 0 0.0\nSetKey M.A.posz 10 20.0\nSetKey M.A.rotx 0 -30.0\nSetKey M.A.rotx 10 "
      "60.0\n"
      "SetKey M.B.roty 0 10.0\nSetKey M.B.roty 4 -80.0\nSetKey M.B.roty 10 170.0\nSetKey M.C.rotz "
      "0 0.0\n"
      "SetKey M.C.rotz 10 90.0\n";
  ASSERT_TRUE(Zyra::rt::RunScriptText(Zyra::FromUtf8(script), "scene").Succeeded());
  ChainSampler sampler;
  const char* names[] = {"M.C", "M.D", "M.A"};
  std::vector<int> slots;
  for (const char* name : names) {
    slots.push_back(
        sampler.Add(Zyra::X3DObject(Zyra::Application().GetObjectFromPath(Zyra::FromUtf8(name)))));
  }
  EXPECT_EQ(slots[2], sampler.Add(Zyra::X3DObject(Zyra::Application().GetObjectFromPath(L"M.A"))));
  for (double frame : {0.0, 2.5, 4.0, 7.0, 10.0, 12.0}) {
    sampler.At(frame);
    for (size_t i = 0; i < slots.size(); ++i) {
      const Zyra::X3DObject object(Zyra::Application().GetObjectFromPath(Zyra::FromUtf8(names[i])));
      const auto expected = object.GetKinematics().GetGlobal().GetTransform(Zyra::CTime(frame));
      const auto& got = sampler.Global(slots[i]);
      for (const auto& [a, b] : {std::pair{expected.GetTranslation(), got.GetTranslation()},
                                 std::pair{expected.GetScaling(), got.GetScaling()}}) {
        EXPECT_NEAR(a.GetX(), b.GetX(), 1e-6) << names[i] << " at " << frame;
        EXPECT_NEAR(a.GetY(), b.GetY(), 1e-6) << names[i] << " at " << frame;
        EXPECT_NEAR(a.GetZ(), b.GetZ(), 1e-6) << names[i] << " at " << frame;
      }
      const auto x = expected.GetRotationQuaternion().Rotate(Zyra::MATH::CVector3(1, 2, 3));
      const auto y = got.GetRotationQuaternion().Rotate(Zyra::MATH::CVector3(1, 2, 3));
      EXPECT_NEAR((x - y).GetLength(), 0, 1e-6) << names[i] << " at " << frame;
    }
  }
}

}  // namespace
}  // namespace knrconvert
