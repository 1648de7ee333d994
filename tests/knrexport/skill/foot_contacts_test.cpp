// The contact detector on heel samples whose contacts are known: planted, lifting off, planted
// throughout, contacts from the first sample, the height-only fallbacks, one and two samples and
// a threshold of 0.
#include "knrexport/skill/foot_contacts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Keys(const ContactKeys& found) {
  std::string out;
  for (const ContactKey& k : found.keys) out += std::to_string(k.value) + "@" + std::to_string(k.frame) + " ";
  return out;
}

TEST(DetectContacts, KeysEachContactFromItsFirstSampleToItsLiftOff) {
  struct Case {
    const char* name;
    std::vector<float> height;
    std::vector<float> speed2;
    float threshold;
    std::string keys;  // at start frame 10
    int contactFrame;
    bool found;
  };
  const Case cases[] = {
      {"free, then two stances", {5, 0, 0, 6, 6, 0, 0, 6, 6, 6}, {9, 0, 9, 9, 9, 0, 9, 9, 9}, 0.2f,
       "0@10 1@11 0@13 1@15 0@17 ", 15, true},
      {"planted from the first sample", {0, 0, 6, 6, 6}, {0, 9, 9, 9}, 0.2f, "1@10 0@12 ", 10, true},
      {"planted throughout: fast but low never lifts off", {0, 0, 1, 0, 0, 0}, {0, 9, 0, 9, 0}, 0.2f, "1@10 0@15 ", 10,
       true},
      {"a contact that never lifts off ends at the last sample", {6, 0, 0, 0}, {9, 0, 0}, 0.2f, "0@10 1@11 0@13 ", 11,
       true},
      {"too fast everywhere: the first sample is the lowest and the heel rises", {0, 2, 4, 6}, {4, 4, 4}, 0.5f,
       "1@10 0@11 ", 10, true},
      {"too fast everywhere: the last sample is the lowest", {6, 4, 2, 0}, {4, 4, 4}, 0.5f, "0@10 1@12 ", 12, true},
      {"too fast everywhere: the first interior minimum", {3, 1, 2, 0.5f, 2, 3}, {4, 4, 4, 4, 4}, 0.5f,
       "0@10 1@11 0@12 ", 11, true},
      {"threshold 0: no strict test can pass", {3, 1, 2, 0.5f, 2, 3}, {4, 0, 4, 4, 4}, 0.0f, "0@10 ", 10, false},
      {"a still heel at one height", {3, 3, 3, 3}, {0, 0, 0}, 0.5f, "0@10 ", 10, false},
      {"one sample: the scan is skipped", {0}, {}, 0.5f, "0@10 ", 10, false},
      {"two samples: the heel rises", {0, 3}, {9}, 0.5f, "1@10 0@11 ", 10, true},
      {"two samples: the heel falls", {3, 0}, {9}, 0.5f, "0@10 1@10 ", 10, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int end = 10 + static_cast<int>(c.height.size());
    const ContactKeys found = DetectContacts(c.height, c.speed2, c.threshold, 10, end);
    EXPECT_EQ(Keys(found), c.keys);
    EXPECT_EQ(found.contactFrame, c.contactFrame);
    EXPECT_EQ(found.found, c.found);
  }
}

}  // namespace
