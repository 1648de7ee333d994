// Plot series thinning; the rules are in plot_series.h.
#include "converter/report/plot_series.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace knrconvert {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

// Appends the smallest and largest value of values[first..last] in the order they occur.
void AppendMinMax(const std::vector<double>& values, size_t first, size_t last,
                  std::vector<double>& out) {
  size_t low = last + 1;
  size_t high = last + 1;
  for (size_t i = first; i <= last; ++i) {
    if (std::isnan(values[i])) continue;
    if (low > last || values[i] < values[low]) low = i;
    if (high > last || values[i] > values[high]) high = i;
  }
  if (low > last) {
    out.insert(out.end(), {kMissing, kMissing});
  } else if (low <= high) {
    out.insert(out.end(), {values[low], values[high]});
  } else {
    out.insert(out.end(), {values[high], values[low]});
  }
}

}  // namespace

void ThinTimeSeries(std::vector<double>& frames, std::vector<std::vector<double>*> series,
                    size_t budget) {
  budget = std::max<size_t>(budget, 2);
  const size_t count = frames.size();
  if (count <= budget) return;
  const size_t buckets = budget / 2;
  std::vector<double> thin_frames;
  thin_frames.reserve(buckets * 2);
  std::vector<std::vector<double>> thin(series.size());
  for (auto& values : thin) values.reserve(buckets * 2);
  for (size_t b = 0; b < buckets; ++b) {
    // count > budget >= 2 * buckets, so every bucket holds at least two frames.
    const size_t first = b * count / buckets;
    const size_t last = (b + 1) * count / buckets - 1;
    thin_frames.insert(thin_frames.end(), {frames[first], frames[last]});
    for (size_t s = 0; s < series.size(); ++s) AppendMinMax(*series[s], first, last, thin[s]);
  }
  frames = std::move(thin_frames);
  for (size_t s = 0; s < series.size(); ++s) *series[s] = std::move(thin[s]);
}

void ThinPath(std::vector<double>& x, std::vector<double>& z, size_t budget) {
  budget = std::max<size_t>(budget, 2);
  const size_t count = x.size();
  if (count <= budget) return;
  std::vector<double> thin_x(budget);
  std::vector<double> thin_z(budget);
  for (size_t i = 0; i < budget; ++i) {
    const size_t at = i * (count - 1) / (budget - 1);
    thin_x[i] = x[at];
    thin_z[i] = z[at];
  }
  x = std::move(thin_x);
  z = std::move(thin_z);
}

}  // namespace knrconvert
