// Foot contacts of a locomotion skill: for each foot, the frames at which its heel touches the
// ground, keyed 1 (planted) and 0 (free) with constant interpolation on the foot's
// RTKEffector.Contact, and a channel named after the foot on the root's RTKActor.
//
// The detector (contact_detector.h) works on heel samples expressed in the frame of the root's
// parent at the first frame: height (y) and the squared speed in the vertical and forward plane
// (y, z); sideways (x) sliding never counts. A foot for which no rule found a contact gets an
// informational line in the log.
#pragma once

#include <vector>

#include "knrexport/skill/contact_detector.h"
#include "zyra/action.h"
#include "zyra/x3dobject.h"

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
