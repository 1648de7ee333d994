// Columns of fcurve keys: reads, edits that widen a column only when they must, and searches
// that are a division on evenly spaced frames and a binary search otherwise.
#include "model/fcurve_keys.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace Zyra::rt {

namespace {

bool ByKey(const KeyTangents& t, size_t key) { return t.key < key; }

// FCurveKeys::IsFloat, inlined into the loops over whole columns.
inline bool IsFloatValue(double v) {
  if (!(std::fabs(v) <= std::numeric_limits<float>::max())) return false;  // also NaN
  return static_cast<double>(static_cast<float>(v)) == v;
}

// A long column about to be written whole has its pages mapped in one call rather than one page
// fault per page (a fault costs far more than the page itself on a virtual machine). Columns of
// a few pages are left alone; where the system cannot, the pages fault in as usual.
void PrepareForWriting(void* data, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
  constexpr size_t kWorthIt = size_t{256} << 10;
  const long page = sysconf(_SC_PAGESIZE);
  if (bytes < kWorthIt || page <= 0) return;
  const auto mask = ~(static_cast<std::uintptr_t>(page) - 1);
  const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(data) + ~mask) & mask;
  const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & mask;
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
  (void)data;
  (void)bytes;
#endif
}

}  // namespace

bool FCurveKeys::IsFloat(double v) { return IsFloatValue(v); }

FCurveKeys& FCurveKeys::operator=(const std::vector<FCurveKey>& keys) {
  Clear();
  Reserve(keys.size());
  for (const FCurveKey& k : keys) PushBack(k);
  return *this;
}

FCurveKeys::operator std::vector<FCurveKey>() const {
  std::vector<FCurveKey> out;
  out.reserve(count_);
  for (size_t i = 0; i < count_; ++i) out.push_back(Get(i));
  return out;
}

const KeyTangents* FCurveKeys::TangentsOf(size_t i) const {
  if (tangents_.empty()) return nullptr;
  auto it = std::lower_bound(tangents_.begin(), tangents_.end(), i, ByKey);
  return it != tangents_.end() && it->key == i ? &*it : nullptr;
}

FCurveKey FCurveKeys::Get(size_t i) const {
  FCurveKey k;
  k.frame = Frame(i);
  k.value = Value(i);
  k.interpolation = Interpolation(i);
  if (const KeyTangents* t = TangentsOf(i)) {
    k.leftTanX = t->leftX;
    k.leftTanY = t->leftY;
    k.rightTanX = t->rightX;
    k.rightTanY = t->rightY;
    k.hasTangents = true;
  }
  return k;
}

void FCurveKeys::WidenFrames() {
  if (!even_) return;
  frames_.resize(count_);
  for (size_t i = 0; i < count_; ++i) frames_[i] = Frame(i);
  even_ = false;
}

void FCurveKeys::WidenValues() {
  if (wide_) return;
  doubles_.assign(floats_.begin(), floats_.end());
  std::vector<float>().swap(floats_);
  wide_ = true;
}

void FCurveKeys::SplitCodes() {
  if (codes_.empty()) codes_.assign(count_, static_cast<uint8_t>(common_));
}

void FCurveKeys::PushFrame(double frame) {
  if (even_) {
    if (count_ == 0) {
      start_ = frame;
      return;
    }
    if (count_ == 1) {
      double step = frame - start_;
      if (step > 0 && start_ + step == frame) {
        step_ = step;
        return;
      }
    } else if (start_ + step_ * static_cast<double>(count_) == frame &&
               frame > Frame(count_ - 1)) {  // rounding may repeat a frame far from 0
      return;
    }
    WidenFrames();
  }
  frames_.push_back(frame);
}

void FCurveKeys::PushValue(double value) {
  if (!wide_ && !IsFloat(value)) WidenValues();
  if (wide_) {
    doubles_.push_back(value);
  } else {
    floats_.push_back(static_cast<float>(value));
  }
}

void FCurveKeys::PushCode(int code) {
  if (count_ == 0 && codes_.empty()) common_ = code;
  if (codes_.empty() && code != common_) SplitCodes();
  if (!codes_.empty()) codes_.push_back(static_cast<uint8_t>(code));
}

// Stores, replaces or drops key i's tangents after its other fields are in place.
void FCurveKeys::PutTangents(size_t i, const FCurveKey& key) {
  auto it = std::lower_bound(tangents_.begin(), tangents_.end(), i, ByKey);
  bool present = it != tangents_.end() && it->key == i;
  if (!key.hasTangents) {
    if (present) tangents_.erase(it);
    return;
  }
  KeyTangents t{i, key.leftTanX, key.leftTanY, key.rightTanX, key.rightTanY};
  if (present) {
    *it = t;
  } else {
    tangents_.insert(it, t);
  }
}

void FCurveKeys::PushBack(const FCurveKey& key) {
  PushFrame(key.frame);
  PushValue(key.value);
  PushCode(key.interpolation);
  ++count_;
  if (key.hasTangents) {
    tangents_.push_back({count_ - 1, key.leftTanX, key.leftTanY, key.rightTanX, key.rightTanY});
  }
}

void FCurveKeys::Set(size_t i, const FCurveKey& key) {
  if (key.frame != Frame(i)) {
    WidenFrames();
    frames_[i] = key.frame;
  }
  if (!wide_ && !IsFloat(key.value)) WidenValues();
  if (wide_) {
    doubles_[i] = key.value;
  } else {
    floats_[i] = static_cast<float>(key.value);
  }
  if (codes_.empty() && key.interpolation != common_) SplitCodes();
  if (!codes_.empty()) codes_[i] = static_cast<uint8_t>(key.interpolation);
  PutTangents(i, key);
}

void FCurveKeys::Insert(size_t i, const FCurveKey& key) {
  if (i == count_) {
    PushBack(key);
    return;
  }
  WidenFrames();
  frames_.insert(frames_.begin() + static_cast<std::ptrdiff_t>(i), key.frame);
  if (!wide_ && !IsFloat(key.value)) WidenValues();
  if (wide_) {
    doubles_.insert(doubles_.begin() + static_cast<std::ptrdiff_t>(i), key.value);
  } else {
    floats_.insert(floats_.begin() + static_cast<std::ptrdiff_t>(i), static_cast<float>(key.value));
  }
  if (codes_.empty() && key.interpolation != common_) SplitCodes();
  if (!codes_.empty()) {
    codes_.insert(codes_.begin() + static_cast<std::ptrdiff_t>(i),
                  static_cast<uint8_t>(key.interpolation));
  }
  ++count_;
  for (KeyTangents& t : tangents_) t.key += t.key >= i;
  PutTangents(i, key);
}

void FCurveKeys::Erase(size_t first, size_t last) {
  last = std::min(last, count_);
  if (first >= last) return;
  const size_t n = last - first;
  auto cut = [first, last](auto& column) {
    if (!column.empty()) {
      column.erase(column.begin() + static_cast<std::ptrdiff_t>(first),
                   column.begin() + static_cast<std::ptrdiff_t>(last));
    }
  };
  if (even_ && last != count_) WidenFrames();  // a shifted start would not be exact
  cut(frames_);
  cut(floats_);
  cut(doubles_);
  cut(codes_);
  count_ -= n;
  if (even_ && count_ < 2) step_ = 0;
  tangents_.erase(
      std::remove_if(tangents_.begin(), tangents_.end(),
                     [&](const KeyTangents& t) { return t.key >= first && t.key < last; }),
      tangents_.end());
  for (KeyTangents& t : tangents_) t.key -= t.key >= last ? n : 0;
  if (count_ == 0) Clear();
}

void FCurveKeys::Reserve(size_t n) {
  if (!even_) frames_.reserve(n);
  if (wide_) {
    doubles_.reserve(n);
  } else {
    floats_.reserve(n);
  }
}

namespace {

// True when the `n` frames are exactly start + step * i with a positive step, or fewer than two.
bool EvenlySpaced(const double* frames, size_t n, double& start, double& step) {
  bool even = n >= 2 && frames[1] - frames[0] > 0;
  start = n > 0 ? frames[0] : 0.0;
  step = n >= 2 ? frames[1] - frames[0] : 0.0;
  for (size_t i = 0; even && i < n; ++i) {
    even =
        start + step * static_cast<double>(i) == frames[i] && (i == 0 || frames[i] > frames[i - 1]);
  }
  return even || n < 2;
}

}  // namespace

void FCurveKeys::Assign(const double* frames, const double* values, size_t n, int code) {
  double start = 0, step = 0;
  if (EvenlySpaced(frames, n, start, step)) {
    AssignEven(start, step, values, n, code);
    return;
  }
  AssignEven(0, 0, values, n, code);
  frames_.assign(frames, frames + n);
  even_ = false;
  step_ = 0;
}

void FCurveKeys::Assign(const double* frames, std::vector<float> values, int code) {
  const size_t n = values.size();
  double start = 0, step = 0;
  if (EvenlySpaced(frames, n, start, step)) {
    AssignEven(start, step, std::move(values), code);
    return;
  }
  AssignEven(0, 0, std::move(values), code);
  frames_.assign(frames, frames + n);
  even_ = false;
  step_ = 0;
}

void FCurveKeys::AssignEven(double start, double step, std::vector<float> values, int code) {
  if (!std::all_of(values.begin(), values.end(), [](float v) { return IsFloat(v); })) {
    const std::vector<double> wide(values.begin(), values.end());
    AssignEven(start, step, wide.data(), wide.size(), code);
    return;
  }
  Clear();
  count_ = values.size();
  start_ = count_ > 0 ? start : 0.0;
  step_ = count_ >= 2 ? step : 0.0;
  common_ = code;
  wide_ = false;
  floats_ = std::move(values);
}

void FCurveKeys::AssignEven(double start, double step, const double* values, size_t n, int code) {
  Clear();
  count_ = n;
  start_ = n > 0 ? start : 0.0;
  step_ = n >= 2 ? step : 0.0;
  common_ = code;
  wide_ = !std::all_of(values, values + n, IsFloatValue);
  if (wide_) {
    doubles_.assign(values, values + n);
  } else {
    // Converted as copied: no zero fill of a column about to be overwritten.
    floats_.reserve(n);
    PrepareForWriting(floats_.data(), n * sizeof(float));
    floats_.assign(values, values + n);
  }
}

size_t FCurveKeys::LowerBound(double frame) const {
  if (!even_) {
    return static_cast<size_t>(std::lower_bound(frames_.begin(), frames_.end(), frame) -
                               frames_.begin());
  }
  if (count_ == 0 || !(frame > start_)) return 0;
  if (frame > Frame(count_ - 1)) return count_;
  // The division lands on the key or next to it; the frames themselves settle it.
  size_t i = std::min(count_ - 1, static_cast<size_t>(std::ceil((frame - start_) / step_)));
  while (i > 0 && Frame(i - 1) >= frame) --i;
  while (i < count_ && Frame(i) < frame) ++i;
  return i;
}

size_t FCurveKeys::UpperBound(double frame) const {
  if (!even_) {
    return static_cast<size_t>(std::upper_bound(frames_.begin(), frames_.end(), frame) -
                               frames_.begin());
  }
  if (count_ == 0 || std::isnan(frame)) return count_;
  if (frame < start_) return 0;
  if (frame >= Frame(count_ - 1)) return count_;
  size_t i = std::min(count_ - 1, static_cast<size_t>(std::floor((frame - start_) / step_)) + 1);
  while (i > 0 && Frame(i - 1) > frame) --i;
  while (i < count_ && Frame(i) <= frame) ++i;
  return i;
}

bool FCurveKeys::EvenFrames(double& start, double& step) const {
  if (count_ < 2) return false;
  start = Frame(0);
  step = even_ ? step_ : Frame(1) - start;
  if (even_) return true;
  if (!(step > 0)) return false;
  for (size_t i = 2; i < count_; ++i) {
    if (start + step * static_cast<double>(i) != frames_[i] || !(frames_[i] > frames_[i - 1])) {
      return false;
    }
  }
  return start + step == frames_[1];
}

bool FCurveKeys::FloatValues() const {
  return !wide_ || std::all_of(doubles_.begin(), doubles_.end(), IsFloat);
}

bool FCurveKeys::CommonInterpolation(int& code) const {
  code = count_ > 0 ? Interpolation(0) : common_;
  for (uint8_t c : codes_) {
    if (c != code) return false;
  }
  return true;
}

size_t FCurveKeys::Bytes() const {
  return frames_.size() * sizeof(double) + floats_.size() * sizeof(float) +
         doubles_.size() * sizeof(double) + codes_.size() + tangents_.size() * sizeof(KeyTangents);
}

}  // namespace Zyra::rt
