// The fcurve work that every skill converter shares: the six local channels of a node, the key
// range of the root, the marker list of the curves a skill holds, sampling of local transforms
// and the final store that turns the rig's animation back into an action source.
//
// Rules the converters rely on:
//  1. A node's channels are "posx", "posy", "posz" (lengths) and "rotx", "roty", "rotz"
//     (degrees, XYZ order); keys written by the converters are one per whole frame.
//  2. Angles written for consecutive frames never differ by more than 180 degrees: each is
//     moved by whole turns towards the previous frame's value, so a curve never spins round
//     between two keys. Values within 1e-7 of zero are written as exactly zero, so a still
//     channel stays exactly still.
//  3. The marker list is comma-joined parameter full names. It names every curve that the
//     stored skill is to hold: the animated local channels of the root's whole branch, then what
//     a converter adds (contact channels).
#pragma once

#include <memory>
#include <vector>

#include "knrexport/math/drv_math.h"
#include "zyra/action.h"
#include "zyra/fcurve.h"
#include "zyra/math.h"
#include "zyra/x3dobject.h"

inline constexpr float kRadToDeg = 57.29578f;
inline constexpr int kChannelCount = 6;
inline constexpr const wchar_t* kChannels[kChannelCount] = {L"posx", L"posy", L"posz",
                                                            L"rotx", L"roty", L"rotz"};

// The fcurve of one local channel of `node`; a channel without one is given an empty linear
// curve. Invalid only when the node has no such channel.
Zyra::FCurve GetFCurve(Zyra::X3DObject& node, Zyra::CString channel);
// Lowers `first` to the earliest and raises `last` to the latest key time over the root's six
// channel curves that exist. Callers start them crossed (first = FrameEnd, last = FrameStart), so
// a root without keys leaves first > last.
void ExtractStartEndKey(Zyra::X3DObject& root, double& first, double& last);
// Makes the six channel curves of `node` and of its branch linear. A key that carries its own
// interpolation keeps it (a step the animator set on purpose stays a step).
void MakeLinear(Zyra::X3DObject& node);
// Starts the marker list: the full names of every local channel ("posx" .. "sclz") with an
// fcurve on the root and below it, comma-joined. Replaces what `markers` held.
void ExtractMarkers(Zyra::X3DObject& root, Zyra::CString& markers);
// Replaces `source` by a new action source with the same name made from the current animation
// of the parameters in `markers` over start .. end; the curves are removed from the rig. The new
// source's "type" is `kind` and its range start .. end; `source` then refers to it. False (with
// a message) when the host refuses to store, and the old source is kept.
bool StoreFCurves(Zyra::Model& model, Zyra::X3DObject& root, Zyra::ActionSource& source,
                  Zyra::CString& markers, int kind, double start, double end);

// Runs "ApplyAction": the source's curves go onto the parameters they target.
void ApplyAction(Zyra::ActionSource& source);
// The local transforms of `node` at the whole frames start .. end - 1.
void SampleLocal(Zyra::X3DObject& node, int start, int end, std::vector<DrvTransform>& out);
// The global transforms of `node` at the whole frames start .. end - 1, composed from the local
// transforms of its ancestors as the host composes them. An object whose own parameters are not
// animated is evaluated once: a long take costs one evaluation per frame of each animated object
// on the way, not of the whole chain.
void SampleGlobal(Zyra::X3DObject& node, int start, int end, std::vector<Zyra::MATH::CTransformation>& out);
// While one is alive, SampleGlobal keeps the local transforms it evaluates, per object and frame
// range, and reuses them; ChannelTrack::Write forgets the object it writes. Open one around work
// that samples the same chains again and again and changes local channels only through
// ChannelTrack (a locomotion conversion: sphere bottoms, then every heel). Not nestable.
class LocalSampleCache {
 public:
  LocalSampleCache();
  ~LocalSampleCache();
  LocalSampleCache(const LocalSampleCache&) = delete;
  LocalSampleCache& operator=(const LocalSampleCache&) = delete;
  // The open cache, or null.
  static LocalSampleCache* Active();
  // The samples of `object` over start .. end - 1, or null when they are not kept.
  const std::vector<Zyra::MATH::CTransformation>* Find(const Zyra::CRef& object, int start, int end) const;
  const std::vector<Zyra::MATH::CTransformation>& Keep(const Zyra::CRef& object, int start, int end,
                                                       std::vector<Zyra::MATH::CTransformation> samples);
  void Forget(const Zyra::CRef& object);

 private:
  struct Entry {
    Zyra::CRef object;
    int start, end;
    std::vector<Zyra::MATH::CTransformation> samples;
  };
  std::vector<std::unique_ptr<Entry>> entries_;  // entries stay put while others come and go
};

// The lowest point of the spheres (their global y minus their radius times their global y
// scaling) over the whole frames start .. end - 1; `bottom` is lowered to it.
void LowerToSphereBottom(Zyra::CRefArray& spheres, int start, int end, float& bottom);
// The integer part of a frame value, as the range arithmetic of the converters takes it.
int WholeFrame(double frame);

// Per-frame values of a node's six channels, built frame by frame and then written as keys.
class ChannelTrack {
 public:
  explicit ChannelTrack(size_t frames);
  // Appends a frame: the translation, and the rotation as XYZ Euler angles in degrees, each
  // made continuous with the previous frame's (rule 2).
  void Add(const DrvTransform& t);
  std::vector<double>& Values(int channel) { return values_[channel]; }
  // Removes the keys of the node's six curves over start .. start + frames - 1 and writes one
  // linear key per frame there.
  void Write(Zyra::X3DObject& node, int start);

 private:
  std::vector<double> values_[kChannelCount];
};

// Replaces the keys of `curve` over frames[0] .. frames.back() by one key per frame (all with
// `interpolation`); keys outside stay.
void ReplaceKeys(Zyra::FCurve& curve, const std::vector<double>& frames,
                 const std::vector<double>& values, int interpolation);
