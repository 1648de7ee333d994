// Thinning long plot series so a page draws them fast and stays small.
//
// Rules:
//   1. A series at or under the point budget is kept as it is.
//   2. Time series (values over frames) are thinned min/max per bucket: the frames are cut into
//      budget/2 consecutive buckets and each bucket keeps two points, at its first and last frame,
//      carrying the smallest and largest value of the bucket in the order they occurred. Peaks
//      and dips survive, which is what a reader looks for in a heel height or a loop seam.
//   3. Several series over the same frames are thinned together so they stay aligned; each keeps
//      its own minima and maxima.
//   4. NaN stands for a missing value; a bucket whose values are all missing keeps two NaN.
//   5. A path (x/z pairs) is thinned by even steps along it, first and last point kept: min/max
//      per coordinate would tear the path apart.
#pragma once

#include <cstddef>
#include <vector>

namespace knrconvert {

// Thins `frames` and every series in `series` (each as long as `frames`) to at most `budget`
// points (rules 1 to 4). A budget under 2 counts as 2.
void ThinTimeSeries(std::vector<double>& frames, std::vector<std::vector<double>*> series,
                    size_t budget);

// Thins the path given by `x` and `z` (same length) to at most `budget` points (rules 1 and 5).
void ThinPath(std::vector<double>& x, std::vector<double>& z, size_t budget);

}  // namespace knrconvert
