// The keys of a function curve, stored by columns so that a key costs only what it uses.
//
// Layout (each column widens on the first edit that needs it, and never narrows back except on
// Clear or a whole assignment, so every number reads back exactly as it was stored):
//   1. Frames: evenly spaced keys keep only a start and a step, frame i being exactly
//      `start + step * i` in double arithmetic; any other frame turns the column into one double
//      per key.
//   2. Values: one float per key while every value is exactly a float (sampled takes are); the
//      first value that is not makes it one double per key.
//   3. Key interpolation codes (0..3): one code shared by all keys, or one byte per key once two
//      keys differ.
//   4. Tangents: only the keys that have them, as entries sorted by key index. A key without
//      tangents has none stored: its tangent fields read as 0.
// A curve sampled every frame therefore costs 4 bytes a key. The storage itself does not order
// keys; FCurveObject keeps them sorted by frame, one per frame, except inside an edit.
//
// Besides its own accessors the class offers a small container interface (size, operator[],
// front, back, iteration) whose elements are whole FCurveKey records, for code that thinks key by
// key; writes through it go back into the columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zyra::rt {

struct FCurveKey {
  double frame = 0;
  double value = 0;
  int interpolation = 0;  // 0 default (the curve's), 1 constant, 2 linear, 3 cubic
  // Tangents as (frame offset, value offset); used for cubic keys when `hasTangents`.
  double leftTanX = 0, leftTanY = 0, rightTanX = 0, rightTanY = 0;
  bool hasTangents = false;
};

// The tangents of one key, and the index of that key.
struct KeyTangents {
  size_t key = 0;
  double leftX = 0, leftY = 0, rightX = 0, rightY = 0;
};

class FCurveKeys;

// One field of one key, read and written through the columns.
template <class T, T FCurveKey::*Field>
class KeyField {
 public:
  KeyField(FCurveKeys* keys, size_t index) : keys_(keys), index_(index) {}
  operator T() const;  // NOLINT: reads like the field itself
  KeyField& operator=(T value);
  KeyField& operator=(const KeyField& other) { return *this = static_cast<T>(other); }

 private:
  FCurveKeys* keys_;
  size_t index_;
};

// A whole key of the columns, with fields named like FCurveKey's.
struct KeyRef {
  KeyRef(FCurveKeys* keys, size_t i)
      : frame(keys, i),
        value(keys, i),
        interpolation(keys, i),
        leftTanX(keys, i),
        leftTanY(keys, i),
        rightTanX(keys, i),
        rightTanY(keys, i),
        hasTangents(keys, i),
        keys_(keys),
        index_(i) {}
  operator FCurveKey() const;  // NOLINT
  KeyRef& operator=(const FCurveKey& key);

  KeyField<double, &FCurveKey::frame> frame;
  KeyField<double, &FCurveKey::value> value;
  KeyField<int, &FCurveKey::interpolation> interpolation;
  KeyField<double, &FCurveKey::leftTanX> leftTanX;
  KeyField<double, &FCurveKey::leftTanY> leftTanY;
  KeyField<double, &FCurveKey::rightTanX> rightTanX;
  KeyField<double, &FCurveKey::rightTanY> rightTanY;
  KeyField<bool, &FCurveKey::hasTangents> hasTangents;

 private:
  FCurveKeys* keys_;
  size_t index_;
};

class FCurveKeys {
 public:
  FCurveKeys() = default;
  // Whole assignment from key records; the columns take their most compact form.
  FCurveKeys& operator=(const std::vector<FCurveKey>& keys);
  operator std::vector<FCurveKey>() const;  // NOLINT: a copy, key by key

  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }

  double Frame(size_t i) const {
    return even_ ? start_ + step_ * static_cast<double>(i) : frames_[i];
  }
  double Value(size_t i) const { return wide_ ? doubles_[i] : static_cast<double>(floats_[i]); }
  int Interpolation(size_t i) const { return codes_.empty() ? common_ : codes_[i]; }
  // Key i's tangents; null when it has none.
  const KeyTangents* TangentsOf(size_t i) const;
  FCurveKey Get(size_t i) const;

  // Replaces key i, appends, inserts before key i, removes keys [first, last).
  void Set(size_t i, const FCurveKey& key);
  void PushBack(const FCurveKey& key);
  void Insert(size_t i, const FCurveKey& key);
  void Erase(size_t first, size_t last);
  void Clear() { *this = FCurveKeys(); }
  void Reserve(size_t n);

  // Replaces every key by `n` keys of the given frames and values, all with key interpolation
  // `code` and without tangents. The frames are stored as start and step when they are exactly
  // that, the values as floats when they all are floats.
  void Assign(const double* frames, const double* values, size_t n, int code);
  // The same for keys known to be evenly spaced: frame i is start + step * i.
  void AssignEven(double start, double step, const double* values, size_t n, int code);
  // Both with single-precision values, taken over as the value column without a copy (a value
  // that is not a finite float, which no float column holds, widens the column as above).
  void Assign(const double* frames, std::vector<float> values, int code);
  void AssignEven(double start, double step, std::vector<float> values, int code);

  // Searches over frames sorted in increasing order: the first key at or after `frame`, and the
  // first key after it (size() when there is none). NaN lies before every key.
  size_t LowerBound(double frame) const;
  size_t UpperBound(double frame) const;

  // What the keys are, whatever their storage: true with start and step when the frames are
  // evenly spaced (two keys or more, frame i exactly start + step * i); true when every value is
  // a float; true with the code when every key has the same interpolation. Quick when the
  // column is stored compact, a scan otherwise.
  bool EvenFrames(double& start, double& step) const;
  bool FloatValues() const;
  bool CommonInterpolation(int& code) const;
  // True when `v` is exactly a single-precision number (finite).
  static bool IsFloat(double v);
  const std::vector<KeyTangents>& Tangents() const { return tangents_; }
  // Bytes of key data held.
  size_t Bytes() const;

  // ---- Container interface, key by key --------------------------------------------------------
  template <class Keys, class Ref>
  class Iterator {
   public:
    Iterator(Keys* keys, size_t i) : keys_(keys), i_(i) {}
    Ref operator*() const { return (*keys_)[i_]; }
    Iterator& operator++() {
      ++i_;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return i_ != other.i_; }
    bool operator==(const Iterator& other) const { return i_ == other.i_; }

   private:
    Keys* keys_;
    size_t i_;
  };
  using iterator = Iterator<FCurveKeys, KeyRef>;
  using const_iterator = Iterator<const FCurveKeys, FCurveKey>;

  KeyRef operator[](size_t i) { return KeyRef(this, i); }
  FCurveKey operator[](size_t i) const { return Get(i); }
  KeyRef front() { return KeyRef(this, 0); }
  KeyRef back() { return KeyRef(this, count_ - 1); }
  FCurveKey front() const { return Get(0); }
  FCurveKey back() const { return Get(count_ - 1); }
  iterator begin() { return {this, 0}; }
  iterator end() { return {this, count_}; }
  const_iterator begin() const { return {this, 0}; }
  const_iterator end() const { return {this, count_}; }

 private:
  void WidenFrames();
  void WidenValues();
  void SplitCodes();
  void PushFrame(double frame);
  void PushValue(double value);
  void PushCode(int code);
  void PutTangents(size_t i, const FCurveKey& key);

  size_t count_ = 0;
  bool even_ = true;  // frames are start_ + step_ * i (step_ is 0 below two keys)
  double start_ = 0, step_ = 0;
  std::vector<double> frames_;  // when !even_
  bool wide_ = false;
  std::vector<float> floats_;    // when !wide_
  std::vector<double> doubles_;  // when wide_
  int common_ = 0;               // every key's code while codes_ is empty
  std::vector<uint8_t> codes_;
  std::vector<KeyTangents> tangents_;  // sorted by key
};

template <class T, T FCurveKey::*Field>
KeyField<T, Field>::operator T() const {
  return keys_->Get(index_).*Field;
}

template <class T, T FCurveKey::*Field>
KeyField<T, Field>& KeyField<T, Field>::operator=(T value) {
  FCurveKey key = keys_->Get(index_);
  key.*Field = value;
  keys_->Set(index_, key);
  return *this;
}

inline KeyRef::operator FCurveKey() const { return keys_->Get(index_); }

inline KeyRef& KeyRef::operator=(const FCurveKey& key) {
  keys_->Set(index_, key);
  return *this;
}

}  // namespace Zyra::rt
