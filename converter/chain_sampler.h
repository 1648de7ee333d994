// Global transforms of a few objects of a model at every frame of a take, without asking the
// host for one global transform at a time (each of which walks and evaluates the whole chain
// above the object): every object on the way from the model down to the sampled ones is
// evaluated once a frame from its local channels (an fcurve when the channel has one, else its
// static value) and composed under its parent, so chains that share their top share its cost.
// The local transform is the host's: translation, XYZ Euler angles in degrees, scaling.
#pragma once

#include <string>
#include <vector>

#include "loop_window.h"
#include "zyra/fcurve.h"
#include "zyra/math.h"
#include "zyra/x3dobject.h"

namespace knrconvert {

class ChainSampler {
 public:
  // Adds `object` (and the objects above it, up to but not including its model) and returns
  // its slot for Global().
  int Add(const Zyra::X3DObject& object);
  // Evaluates every added object at `frame`.
  void At(double frame);
  // The global transform of the object in `slot` at the last frame given to At().
  const Zyra::MATH::CTransformation& Global(int slot) const {
    return nodes_[static_cast<size_t>(slot)].global;
  }

 private:
  struct Channel {
    Zyra::FCurve curve;  // invalid: `value` holds
    double value = 0;
  };
  struct Node {
    std::wstring fullName;
    int parent = -1;      // -1: directly under `top`
    Channel channels[9];  // posx, posy, posz, rotx, roty, rotz, sclx, scly, sclz
    Zyra::MATH::CTransformation global;
  };
  int Slot(const Zyra::X3DObject& object);

  std::vector<Node> nodes_;  // parents before children
  Zyra::MATH::CTransformation top_;
};

// The pose relative to `cog` of `cog` and every object below it (`cog` is joint 0, the others
// depth first), as the action applied to its model now plays it, at frames first..last. `names`,
// when given, receives the objects' names in the same order.
RelativePoses SampleRelativePoses(const Zyra::X3DObject& cog, int first, int last, double frameTime,
                                  std::vector<std::string>* names = nullptr);

}  // namespace knrconvert
