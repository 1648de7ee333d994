// The local channels of one node over a loop's cycle, as sampled and then modified.
//
// A LoopData keeps, for one node, nine arrays of doubles with one entry per frame of the cycle
// (end - start + 1 entries), for "posx", "posy", "posz", "rotx", "roty", "rotz" (degrees),
// "sclx", "scly", "sclz" in that order. Rules it keeps:
//  1. Only a channel the node animates (its parameter has an fcurve when Init runs) gets an
//     array; the others stay empty and are neither sampled back nor written as keys.
//  2. Every allocated array has exactly the frame count given to Init.
//  3. Set writes one frame of all nine values and skips the channels without an array.
#pragma once

#include <array>
#include <vector>

#include "zyra/fcurve.h"
#include "zyra/x3dobject.h"

inline constexpr int kLoopChannelCount = 9;
// The channel names in LoopData order.
inline constexpr const wchar_t* kLoopChannels[kLoopChannelCount] = {
    L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz", L"sclx", L"scly", L"sclz"};

class LoopData {
 public:
  // Looks the node's nine channels up and allocates `frameCount` entries for each animated one.
  // A second call starts afresh.
  void Init(int frameCount, Zyra::X3DObject& node);
  // Stores the nine values of frame `index` (0 .. frame count - 1) into every allocated array.
  void Set(int index, const double values[kLoopChannelCount]);
  // The value of channel `channel` at `frame` in the scene as it is now: the channel's fcurve
  // when Init found one, else the parameter's static value read at Init.
  double Sample(int channel, double frame) const;

  bool IsInitialised() const { return initialised_; }
  int FrameCount() const { return frameCount_; }
  bool HasChannel(int channel) const { return !values_[static_cast<size_t>(channel)].empty(); }
  // Whether any channel is animated.
  bool HasAnyChannel() const;
  const std::vector<double>& Values(int channel) const { return values_[static_cast<size_t>(channel)]; }

 private:
  bool initialised_ = false;
  int frameCount_ = 0;
  std::array<std::vector<double>, kLoopChannelCount> values_;
  std::array<Zyra::FCurve, kLoopChannelCount> curves_;
  std::array<double, kLoopChannelCount> statics_{};
};
