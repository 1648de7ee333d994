// Foot contacts of a locomotion skill: for each foot, the frames at which its heel touches the
// ground, keyed 1 (planted) and 0 (free) with constant interpolation on the foot's
// RTKEffector.Contact, and a channel named after the foot on the root's RTKActor.
//
// The detector works on heel samples expressed in the frame of the root's parent at the first
// frame: height (y) and the squared speed in the vertical and forward plane (y, z); sideways (x)
// sliding never counts. With m the maximum squared speed and [lo, hi] the height range, a sample
// is in contact when its speed is below threshold^2 * m and its height below lo + threshold *
// (hi - lo), both strictly; it lifts off when both are strictly above. When no sample passes,
// the heights alone decide: a contact at the first frame, at the last, or at the first interior
// local minimum below the height limit; failing all of them the foot gets a single 0 key and an
// informational line in the log.
#pragma once

#include <vector>

#include "zyra/action.h"
#include "zyra/x3dobject.h"

struct ContactKey {
  int frame;
  int value;  // 1 planted, 0 free
};

// What the detector decided for one foot over frames start .. end - 1.
struct ContactKeys {
  std::vector<ContactKey> keys;  // in the order they are set; a later key at a frame replaces
  int contactFrame = 0;          // the frame a contact began (the last one found)
  bool found = false;            // false: no rule found a contact, the keys are a single 0
};

// The detector on samples: `height` has end - start entries, `speed2[i]` is the squared speed
// of the step from sample i to i + 1.
ContactKeys DetectContacts(const std::vector<float>& height, const std::vector<float>& speed2,
                           float threshold, int start, int end);
// Samples the heel of `foot` over start .. end - 1, keys the foot's contacts and its channel on
// the root's RTKActor, and appends both parameters' full names to `markers`. False when the foot
// has no RTKEffector or the root no RTKActor.
bool FindAndInsertContact(Zyra::ActionSource& source, Zyra::X3DObject& root, Zyra::X3DObject& foot,
                          Zyra::X3DObject& heel, float threshold, int start, int end,
                          Zyra::CString& markers);
// Keys the contacts of every foot (heels[i] belongs to feet[i]) over the source's whole frames.
// The first foot that fails is named in a message box and the later ones are not keyed.
bool AddLocoKeys(Zyra::Model& model, Zyra::ActionSource& source, Zyra::CRefArray& feet,
                 Zyra::CRefArray& heels, float threshold, Zyra::CString& markers);
