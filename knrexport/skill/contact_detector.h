// The foot-contact detector on heel samples, apart from the scene: the Locomotion skill keys
// what it decides, and tools outside the plug-in (the converter) ask it what a threshold would
// key before they choose one.
//
// A sample is in contact when its squared speed is below threshold^2 * (the largest squared
// speed) and its height below lo + threshold * (hi - lo), both strictly; it lifts off when both
// are strictly above. When no sample passes, the heights alone decide: a contact at the first
// frame, at the last, or at the first interior local minimum below the height limit; failing all
// of them the foot gets a single 0 key and `found` is false.
#pragma once

#include <vector>

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
