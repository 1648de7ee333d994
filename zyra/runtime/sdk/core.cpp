// Value types of the SDK: strings, handles and variants.
#include "zyra/core.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra {

bool IsX3DObjectClass(siClassID id) {
  switch (id) {
    case siX3DObjectID:
    case siModelID:
    case siChainBoneID:
    case siChainEffectorID:
    case siChainRootID:
    case siCameraID:
    case siLightID:
    case siCameraInterestID:
    case siLightInterestID:
      return true;
    default:
      return false;
  }
}

// ---- UTF-8 ------------------------------------------------------------------------------------

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (wchar_t wc : text) {
    auto c = static_cast<uint32_t>(wc);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::wstring FromUtf8(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    auto b = static_cast<unsigned char>(text[i]);
    uint32_t c = 0;
    int extra = 0;
    if (b < 0x80) {
      c = b;
    } else if ((b & 0xE0) == 0xC0) {
      c = b & 0x1F;
      extra = 1;
    } else if ((b & 0xF0) == 0xE0) {
      c = b & 0x0F;
      extra = 2;
    } else if ((b & 0xF8) == 0xF0) {
      c = b & 0x07;
      extra = 3;
    } else {
      out += L'\uFFFD';  // a stray continuation or invalid lead byte
      ++i;
      continue;
    }
    if (i + static_cast<size_t>(extra) >= text.size()) {  // truncated sequence at the end
      out += L'\uFFFD';
      break;
    }
    bool ok = true;
    for (int k = 1; k <= extra; ++k) {
      auto cb = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
      if ((cb & 0xC0) != 0x80) {
        ok = false;
        break;
      }
      c = (c << 6) | (cb & 0x3F);
    }
    if (!ok) {
      out += L'\uFFFD';
      ++i;
      continue;
    }
    out += static_cast<wchar_t>(c);
    i += static_cast<size_t>(extra) + 1;
  }
  return out;
}

// ---- CString ----------------------------------------------------------------------------------

CString::CString(const wchar_t* text) : text_(text ? text : L"") {}
CString::CString(std::wstring text) : text_(std::move(text)) {}
CString::CString(const char* utf8) : text_(utf8 ? FromUtf8(utf8) : std::wstring()) {}
CString::CString(const std::string& utf8) : text_(FromUtf8(utf8)) {}

std::string CString::GetAsciiString() const { return ToUtf8(text_); }

CString CString::GetSubString(size_t start, size_t count) const {
  if (start >= text_.size()) return CString();
  return CString(text_.substr(start, count));
}

// ---- CRef -------------------------------------------------------------------------------------

CRef::CRef(std::shared_ptr<rt::Object> object) : object_(object) {}

std::shared_ptr<rt::Object> CRef::Get() const {
  auto object = object_.lock();
  if (object && !object->alive) return nullptr;
  return object;
}

bool CRef::IsValid() const { return Get() != nullptr; }

siClassID CRef::GetClassID() const {
  auto object = Get();
  return object ? object->classId : siUnknownClassID;
}

bool CRef::IsA(siClassID id) const {
  siClassID own = GetClassID();
  if (own == siUnknownClassID) return false;
  if (own == id) return true;
  switch (id) {
    case siX3DObjectID:
      return IsX3DObjectClass(own);
    case siPropertyID:
      return own == siCustomPropertyID || own == siUserDataBlobID || own == siKinematicsID ||
             own == siKinematicStateID;
    case siGeometryID:
      return own == siPolygonMeshID;
    default:
      return false;
  }
}

CString CRef::GetAsText() const {
  auto object = Get();
  return object ? CString(object->FullName()) : CString();
}

CStatus CRef::Set(const CString& path) {
  auto object = rt::Resolve(path.Wide());
  if (!object) {
    object_.reset();
    return CStatus(CStatus::MemberNotFound, L"No object is named \"" + path.Wide() + L"\".");
  }
  object_ = object;
  return CStatus::OK;
}

bool operator==(const CRef& a, const CRef& b) {
  auto x = a.Get();
  auto y = b.Get();
  return x == y;
}

CRef CRefArray::GetItem(const CString& name) const {
  for (const CRef& ref : items_) {
    auto object = ref.Get();
    if (object && object->name == name.Wide()) return ref;
  }
  return CRef();
}

// ---- CValue -----------------------------------------------------------------------------------

CValue::CValue() = default;
CValue::CValue(int v) : type_(siInt4) { num_.i = v; }
CValue::CValue(long v) : type_(siInt4) { num_.i = static_cast<int>(v); }
CValue::CValue(float v) : type_(siFloat) { num_.f = v; }
CValue::CValue(double v) : type_(siDouble) { num_.d = v; }
CValue::CValue(bool v) : type_(siBool) { num_.b = v; }
CValue::CValue(const wchar_t* v) : type_(siString), text_(v) {}
CValue::CValue(const char* utf8) : type_(siString), text_(utf8) {}
CValue::CValue(const CString& v) : type_(siString), text_(v) {}
CValue::CValue(const CRef& v) : type_(siRef), ref_(v) {}
CValue::CValue(const CValueArray& v) : type_(siArray), array_(std::make_shared<CValueArray>(v)) {}
CValue::CValue(const CValue& other) = default;
CValue& CValue::operator=(const CValue& other) = default;
CValue::~CValue() = default;

namespace {

// Reads the whole of `text` as a number; false when it is not one.
bool ParseNumber(const std::wstring& text, double& out) {
  std::string s = ToUtf8(text);
  size_t b = s.find_first_not_of(" \t");
  size_t e = s.find_last_not_of(" \t");
  if (b == std::string::npos) return false;
  s = s.substr(b, e - b + 1);
  if (!s.empty() && s[0] == '+') s.erase(0, 1);
  auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && ptr == s.data() + s.size();
}

}  // namespace

double CValue::AsDouble() const {
  switch (type_) {
    case siInt4:
      return num_.i;
    case siFloat:
      return num_.f;
    case siDouble:
      return num_.d;
    case siBool:
      return num_.b ? 1.0 : 0.0;
    case siString: {
      double v = 0;
      if (ParseNumber(text_.Wide(), v)) return v;
      if (text_ == L"true") return 1.0;
      return 0.0;
    }
    default:
      return 0.0;
  }
}

int CValue::AsInt() const {
  if (type_ == siInt4) return num_.i;
  double d = AsDouble();
  if (!(d == d)) return 0;
  if (d >= 2147483647.0) return 2147483647;
  if (d <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int>(d);
}

bool CValue::AsBool() const {
  switch (type_) {
    case siBool:
      return num_.b;
    case siString:
      return text_ == L"true" || text_ == L"True" || AsDouble() != 0.0;
    case siRef:
      return ref_.IsValid();
    default:
      return AsDouble() != 0.0;
  }
}

CString CValue::GetAsText() const {
  switch (type_) {
    case siEmpty:
      return CString();
    case siInt4:
      return CString(std::to_wstring(num_.i));
    case siBool:
      return CString(num_.b ? L"true" : L"false");
    case siFloat:
    case siDouble: {
      double v = type_ == siFloat ? static_cast<double>(num_.f) : num_.d;
      char buffer[64];
      auto [ptr, ec] = std::to_chars(buffer, buffer + sizeof buffer, v);
      (void)ec;
      return CString(std::string(buffer, ptr));
    }
    case siString:
      return text_;
    case siRef:
      return ref_.GetAsText();
    case siArray: {
      std::wstring out;
      for (const CValue& v : *array_) {
        if (!out.empty()) out += L",";
        out += v.GetAsText().Wide();
      }
      return CString(out);
    }
  }
  return CString();
}

CRef CValue::AsRef() const {
  if (type_ == siRef) return ref_;
  if (type_ == siString) {
    CRef ref;
    ref.Set(text_);
    return ref;
  }
  return CRef();
}

CValueArray CValue::AsArray() const {
  if (type_ == siArray) return *array_;
  if (type_ == siEmpty) return CValueArray();
  CValueArray one;
  one.Add(*this);
  return one;
}

CStatus CValue::ChangeType(siValueType type, CValue& out) const {
  double number = 0;
  bool numeric = type_ == siInt4 || type_ == siFloat || type_ == siDouble || type_ == siBool ||
                 (type_ == siString && (ParseNumber(text_.Wide(), number) || text_ == L"true" ||
                                        text_ == L"false"));
  switch (type) {
    case siEmpty:
      out = CValue();
      return CStatus::OK;
    case siInt4:
    case siFloat:
    case siDouble:
    case siBool:
      if (!numeric) {
        return CStatus(CStatus::InvalidArgument,
                       L"\"" + GetAsText().Wide() + L"\" is not a number.");
      }
      if (type == siInt4) out = CValue(AsInt());
      if (type == siFloat) out = CValue(AsFloat());
      if (type == siDouble) out = CValue(AsDouble());
      if (type == siBool) out = CValue(AsBool());
      return CStatus::OK;
    case siString:
      out = CValue(GetAsText());
      return CStatus::OK;
    case siRef: {
      CRef ref = AsRef();
      if (!ref.IsValid()) {
        return CStatus(CStatus::InvalidArgument,
                       L"\"" + GetAsText().Wide() + L"\" names no object.");
      }
      out = CValue(ref);
      return CStatus::OK;
    }
    case siArray:
      out = CValue(AsArray());
      return CStatus::OK;
  }
  return CStatus(CStatus::InvalidArgument, L"Unknown value type.");
}

bool operator==(const CValue& a, const CValue& b) {
  if (a.type_ != b.type_) {
    bool an = a.type_ == siInt4 || a.type_ == siFloat || a.type_ == siDouble || a.type_ == siBool;
    bool bn = b.type_ == siInt4 || b.type_ == siFloat || b.type_ == siDouble || b.type_ == siBool;
    return an && bn && a.AsDouble() == b.AsDouble();
  }
  switch (a.type_) {
    case siEmpty:
      return true;
    case siInt4:
      return a.num_.i == b.num_.i;
    case siFloat:
      return a.num_.f == b.num_.f;
    case siDouble:
      return a.num_.d == b.num_.d;
    case siBool:
      return a.num_.b == b.num_.b;
    case siString:
      return a.text_ == b.text_;
    case siRef:
      return a.ref_ == b.ref_;
    case siArray: {
      if (a.array_->GetCount() != b.array_->GetCount()) return false;
      for (long i = 0; i < a.array_->GetCount(); ++i) {
        if ((*a.array_)[i] != (*b.array_)[i]) return false;
      }
      return true;
    }
  }
  return false;
}

}  // namespace Zyra
