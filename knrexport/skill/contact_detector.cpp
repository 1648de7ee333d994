// The foot-contact detector on heel samples (rules in contact_detector.h).
#include "knrexport/skill/contact_detector.h"

#include <algorithm>
#include <limits>

namespace {

constexpr float kFltMax = std::numeric_limits<float>::max();

// The heights when only they can tell where the contact is.
void HeightFallbacks(const std::vector<float>& height, float heightLimit, int start, int end,
                     ContactKeys& out) {
  const int n = end - start;
  auto key = [&out](int frame, int value) { out.keys.push_back({frame, value}); };
  out.found = true;
  if (n >= 1) {
    const float h0 = height[0], hL = height[static_cast<size_t>(n - 1)];
    if (n >= 2 && height[1] > h0 && h0 < heightLimit && hL > h0) {
      key(start, 1);
      key(start + 1, 0);
      out.contactFrame = start;
      return;
    }
    if (n >= 2 && h0 > hL && hL < heightLimit && height[static_cast<size_t>(n - 2)] > hL) {
      key(start, 0);
      key(end - 2, 1);
      out.contactFrame = end - 2;
      return;
    }
    for (int i = 1; i <= n - 3; ++i) {
      const size_t k = static_cast<size_t>(i);
      if (height[k - 1] > height[k] && height[k] < heightLimit && height[k + 1] > height[k]) {
        key(start, 0);
        key(start + i, 1);
        key(start + i + 1, 0);
        out.contactFrame = start + i;
        return;
      }
    }
  }
  key(start, 0);
  out.contactFrame = start;
  out.found = false;
}

}  // namespace

ContactKeys DetectContacts(const std::vector<float>& height, const std::vector<float>& speed2,
                           float threshold, int start, int end) {
  const int n = end - start;
  float low = kFltMax, high = -kFltMax, fastest = 0.0f;
  for (int i = 0; i < n; ++i) {
    low = std::min(low, height[static_cast<size_t>(i)]);
    high = std::max(high, height[static_cast<size_t>(i)]);
  }
  for (float s : speed2) fastest = std::max(fastest, s);
  const float speedLimit = threshold * threshold * fastest;
  const float heightLimit = low + threshold * (high - low);

  ContactKeys out;
  out.contactFrame = start - 1;
  auto contact = [&](int i) {
    return speed2[static_cast<size_t>(i)] < speedLimit &&
           height[static_cast<size_t>(i)] < heightLimit;
  };
  auto liftOff = [&](int j) {
    return speed2[static_cast<size_t>(j)] > speedLimit &&
           height[static_cast<size_t>(j)] > heightLimit;
  };
  int i = 0;
  while (i < n - 1) {
    if (!contact(i)) {
      ++i;
      continue;
    }
    if (out.keys.empty() && i > 0) out.keys.push_back({start, 0});
    out.keys.push_back({start + i, 1});
    out.contactFrame = start + i;
    int j = i + 1;
    while (j < n - 1 && !liftOff(j)) ++j;
    if (j >= n - 1) {
      out.keys.push_back({start + n - 1, 0});
      break;
    }
    out.keys.push_back({start + j, 0});
    i = j + 1;
  }
  if (!out.keys.empty()) {
    out.found = true;
    return out;
  }
  HeightFallbacks(height, heightLimit, start, end, out);
  return out;
}
