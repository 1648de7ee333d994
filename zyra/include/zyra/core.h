// The SDK's value types: wide strings, statuses, object handles, variants, arrays and frame times.
// Everything a plug-in passes to or gets from the host is one of these; none of them throws.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#if defined(__GNUC__)
#define ZYRA_API __attribute__((visibility("default")))
#else
#define ZYRA_API
#endif

namespace Zyra {

namespace rt {
class Object;
}

// Class identifiers of host objects. The 3D-object family (73..85) has fixed numbers that plug-ins
// test against; the others only need to be distinct.
enum siClassID : int {
  siUnknownClassID = 0,
  siX3DObjectID = 73,
  siModelID = 74,
  siChainBoneID = 77,
  siChainEffectorID = 78,
  siChainRootID = 79,
  siCameraID = 80,
  siLightID = 81,
  siCameraInterestID = 84,
  siLightInterestID = 85,
  siPropertyID = 200,
  siCustomPropertyID = 201,
  siUserDataBlobID = 202,
  siKinematicsID = 203,
  siKinematicStateID = 204,
  siParameterID = 210,
  siFCurveID = 211,
  siActionSourceID = 220,
  siAnimationSourceItemID = 221,
  siMixerID = 222,
  siTrackID = 223,
  siPrimitiveID = 230,
  siGeometryID = 231,
  siPolygonMeshID = 232,
  siEnvelopeID = 233,
  siGroupID = 240,
  siPassID = 241,
  siContainerID = 242,  // a named folder of objects: "Passes", "Sources", "AnimTracks", ...
  siPreferencesID = 243,
  siProgressBarID = 250,
  siFileBrowserID = 251,
  siUIToolkitID = 252,  // the "Zyra.UIToolkit" scripting object
  siCommandID = 260,
  siContextID = 261,
  siPPGLayoutID = 262,
  siPPGItemID = 263,
  siPPGEventContextID = 264,
  siArgumentID = 265,
  siPluginRegistrarID = 266,
  siPluginItemID = 267,
};

// True for every class of the 3D-object family (models, chains, cameras and lights included).
ZYRA_API bool IsX3DObjectClass(siClassID id);

// A wide-character string; converts to and from UTF-8.
class ZYRA_API CString {
 public:
  CString() = default;
  CString(const wchar_t* text);  // NOLINT: implicit like a string literal
  CString(std::wstring text);    // NOLINT
  CString(const char* utf8);     // NOLINT
  CString(const std::string& utf8);  // NOLINT

  const wchar_t* GetWideString() const { return text_.c_str(); }
  // UTF-8 copy of the text.
  std::string GetAsciiString() const;
  const std::wstring& Wide() const { return text_; }
  std::wstring& Wide() { return text_; }
  size_t Length() const { return text_.size(); }
  bool IsEmpty() const { return text_.empty(); }
  void Clear() { text_.clear(); }
  wchar_t operator[](size_t i) const { return text_[i]; }
  // Position of the first occurrence of `what` at or after `from`, or npos.
  size_t FindString(const CString& what, size_t from = 0) const { return text_.find(what.text_, from); }
  CString GetSubString(size_t start, size_t count = std::wstring::npos) const;
  static constexpr size_t npos = std::wstring::npos;

  CString& operator+=(const CString& other) {
    text_ += other.text_;
    return *this;
  }
  CString& operator+=(wchar_t c) {
    text_ += c;
    return *this;
  }
  friend CString operator+(CString a, const CString& b) { return a += b; }
  friend bool operator==(const CString& a, const CString& b) { return a.text_ == b.text_; }
  friend bool operator!=(const CString& a, const CString& b) { return a.text_ != b.text_; }
  friend bool operator<(const CString& a, const CString& b) { return a.text_ < b.text_; }

 private:
  std::wstring text_;
};

ZYRA_API std::string ToUtf8(std::wstring_view text);
ZYRA_API std::wstring FromUtf8(std::string_view text);

// The result of an SDK call: OK, or a failure code with a message that says what went wrong.
class ZYRA_API CStatus {
 public:
  enum Code : int {
    OK = 0,
    Fail = 1,
    InvalidArgument = 2,
    MemberNotFound = 3,
    AccessDenied = 4,
    Abort = 5,
    NotImpl = 6,
    Unexpected = 7,
  };
  CStatus() = default;
  CStatus(Code code) : code_(code) {}  // NOLINT
  CStatus(Code code, CString message) : code_(code), message_(std::move(message)) {}

  Code GetCode() const { return code_; }
  const CString& GetMessage() const { return message_; }
  bool Succeeded() const { return code_ == OK; }
  bool operator==(Code code) const { return code_ == code; }
  bool operator!=(Code code) const { return code_ != code; }

 private:
  Code code_ = OK;
  CString message_;
};

// A handle to a host object. It never owns the object: once the object is deleted the handle
// reports IsValid() false, and every typed class built from it is invalid too.
class ZYRA_API CRef {
 public:
  CRef() = default;
  explicit CRef(std::shared_ptr<rt::Object> object);

  bool IsValid() const;
  siClassID GetClassID() const;
  // True when the object is of `id` or of a class derived from it.
  bool IsA(siClassID id) const;
  // The object's full name ("Model.Hips", "Model.Hips.kine.local.posx"); empty when invalid.
  CString GetAsText() const;
  // Resolves a full name or path; fails with MemberNotFound when nothing answers to it.
  CStatus Set(const CString& path);

  // The runtime object, or null when it was deleted. For the host's own code.
  std::shared_ptr<rt::Object> Get() const;

  friend ZYRA_API bool operator==(const CRef& a, const CRef& b);
  friend bool operator!=(const CRef& a, const CRef& b) { return !(a == b); }

 private:
  std::weak_ptr<rt::Object> object_;
};

class CValue;

// A plain sequence of handles.
class ZYRA_API CRefArray {
 public:
  CRefArray() = default;
  explicit CRefArray(std::vector<CRef> items) : items_(std::move(items)) {}
  long GetCount() const { return static_cast<long>(items_.size()); }
  const CRef& operator[](long i) const { return items_[static_cast<size_t>(i)]; }
  CRef& operator[](long i) { return items_[static_cast<size_t>(i)]; }
  void Add(const CRef& ref) { items_.push_back(ref); }
  void Clear() { items_.clear(); }
  // The first item whose name (not full name) is `name`; an invalid handle when none.
  CRef GetItem(const CString& name) const;
  CRef GetItem(long i) const { return items_[static_cast<size_t>(i)]; }
  const std::vector<CRef>& Items() const { return items_; }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

 private:
  std::vector<CRef> items_;
};

// A frame number at the scene frame rate.
class ZYRA_API CTime {
 public:
  CTime() = default;
  CTime(double frame) : frame_(frame) {}  // NOLINT
  double GetTime() const { return frame_; }
  void PutTime(double frame) { frame_ = frame; }
  // "The current frame": calls that take a time read PlayControl.Current for it.
  static CTime Current() { return CTime(kCurrent); }
  bool IsCurrent() const { return frame_ == kCurrent; }

 private:
  static constexpr double kCurrent = -1.7976931348623157e308;

 public:

 private:
  double frame_ = 1.0;
};

// Arrays of numbers that geometry and weight calls use.
template <class T>
class CNumberArray {
 public:
  CNumberArray() = default;
  explicit CNumberArray(long count, T value = T()) : items_(static_cast<size_t>(count), value) {}
  explicit CNumberArray(std::vector<T> items) : items_(std::move(items)) {}
  long GetCount() const { return static_cast<long>(items_.size()); }
  T& operator[](long i) { return items_[static_cast<size_t>(i)]; }
  const T& operator[](long i) const { return items_[static_cast<size_t>(i)]; }
  void Add(T value) { items_.push_back(value); }
  void Resize(long count) { items_.resize(static_cast<size_t>(count)); }
  void Clear() { items_.clear(); }
  const T* GetArray() const { return items_.data(); }
  const std::vector<T>& Items() const { return items_; }
  std::vector<T>& Items() { return items_; }

 private:
  std::vector<T> items_;
};
using CDoubleArray = CNumberArray<double>;
using CFloatArray = CNumberArray<float>;
using CLongArray = CNumberArray<long>;

// Value type codes of CValue.
enum siValueType : int {
  siEmpty = 0,
  siInt4 = 3,
  siFloat = 4,
  siDouble = 5,
  siString = 8,
  siBool = 11,
  siArray = 8204,
  siRef = 666,
};

class CValueArray;

// A variant: empty, int, float, double, string, bool, object reference or array of values.
// Conversions between the numeric types and bool are free; a string converts to a number when
// it reads as one. A conversion that cannot be made gives the type's zero.
class ZYRA_API CValue {
 public:
  CValue();
  CValue(int v);                 // NOLINT
  CValue(long v);                // NOLINT
  CValue(float v);               // NOLINT
  CValue(double v);              // NOLINT
  CValue(bool v);                // NOLINT
  CValue(const wchar_t* v);      // NOLINT
  CValue(const char* utf8);      // NOLINT
  CValue(const CString& v);      // NOLINT
  CValue(const CRef& v);         // NOLINT
  CValue(const CValueArray& v);  // NOLINT
  CValue(const CValue& other);
  CValue& operator=(const CValue& other);
  ~CValue();

  siValueType GetType() const { return type_; }
  bool IsEmpty() const { return type_ == siEmpty; }

  int AsInt() const;
  long AsLong() const { return AsInt(); }
  float AsFloat() const { return static_cast<float>(AsDouble()); }
  double AsDouble() const;
  bool AsBool() const;
  // Numbers as text with full precision; references as full names.
  CString GetAsText() const;
  CRef AsRef() const;
  CValueArray AsArray() const;

  explicit operator int() const { return AsInt(); }
  explicit operator long() const { return AsInt(); }
  explicit operator float() const { return AsFloat(); }
  explicit operator double() const { return AsDouble(); }
  explicit operator bool() const { return AsBool(); }
  explicit operator CString() const { return GetAsText(); }
  explicit operator CRef() const { return AsRef(); }

  // A copy converted to `type`; fails with InvalidArgument when the value cannot be.
  CStatus ChangeType(siValueType type, CValue& out) const;

  friend ZYRA_API bool operator==(const CValue& a, const CValue& b);
  friend bool operator!=(const CValue& a, const CValue& b) { return !(a == b); }

 private:
  siValueType type_ = siEmpty;
  union {
    int i;
    float f;
    double d;
    bool b;
  } num_{};
  CString text_;
  CRef ref_;
  std::shared_ptr<CValueArray> array_;
};

class ZYRA_API CValueArray {
 public:
  CValueArray() = default;
  explicit CValueArray(long count) : items_(static_cast<size_t>(count)) {}
  CValueArray(std::initializer_list<CValue> items) : items_(items) {}
  long GetCount() const { return static_cast<long>(items_.size()); }
  CValue& operator[](long i) { return items_[static_cast<size_t>(i)]; }
  const CValue& operator[](long i) const { return items_[static_cast<size_t>(i)]; }
  void Add(const CValue& v) { items_.push_back(v); }
  void Resize(long count) { items_.resize(static_cast<size_t>(count)); }
  void Clear() { items_.clear(); }
  const std::vector<CValue>& Items() const { return items_; }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

 private:
  std::vector<CValue> items_;
};

}  // namespace Zyra
