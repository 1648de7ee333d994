// The base classes of host objects: named objects, items with parameters, items with
// properties, properties and parameters. Each class is a handle built from a CRef; it is invalid
// when the CRef is of another class or its object was deleted.
#pragma once

#include <vector>

#include "zyra/core.h"

namespace Zyra {

class Parameter;
class Property;
class FCurve;

// Lets any handle initialise another typed handle (`CustomProperty p = obj.AddProperty(...)`);
// the result is invalid when the class does not fit.
#define ZYRA_HANDLE_FROM_OBJECT(Class) \
  Class(const ZrObject& other) : Class(other.GetRef()) {}  // NOLINT

// Anything with a name: the root of the handle classes.
class ZYRA_API ZrObject {
 public:
  ZrObject() = default;
  ZrObject(const CRef& ref);  // NOLINT: handles convert freely, like the host's references
  virtual ~ZrObject() = default;

  bool IsValid() const { return ref_.IsValid(); }
  const CRef& GetRef() const { return ref_; }
  operator CRef() const { return ref_; }  // NOLINT
  siClassID GetClassID() const { return ref_.GetClassID(); }
  bool IsA(siClassID id) const { return ref_.IsA(id); }

  CString GetName() const;
  // Renames; a name taken in the object's name space gets the smallest free number appended.
  CStatus PutName(const CString& name);
  CString GetFullName() const;
  // The object's type: "null", "polymsh", "sphere", "camera", "light", a property type, ...
  CString GetType() const;
  // The owner: a 3D object's parent, a property's object, a parameter's property.
  CRef GetParent() const;

 protected:
  // Keeps `ref` only when `accept` says its class fits.
  ZrObject(const CRef& ref, bool (*accept)(siClassID));
  CRef ref_;
};

// Source types for IsAnimated.
enum siSourceType : int { siAnySource = 0, siFCurveSource = 9, siExpressionSource = 10 };

// An object with parameters.
class ZYRA_API ProjectItem : public ZrObject {
 public:
  ProjectItem() = default;
  ProjectItem(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ProjectItem)

  CRefArray GetParameters() const;
  // The parameter named `name` (for 3D objects also the local transform's "posx" ... "sclz");
  // invalid when there is none.
  Parameter GetParameter(const CString& name) const;
  // The value at `time` (default: the current frame); empty when there is no such parameter.
  CValue GetParameterValue(const CString& name, const CTime& time = CTime::Current()) const;
  CStatus PutParameterValue(const CString& name, const CValue& value,
                            const CTime& time = CTime::Current());
  // True when a parameter is driven by a source of `type` (9: fcurves). With `local` false the
  // whole branch counts: properties and, for 3D objects, every descendant.
  bool IsAnimated(siSourceType type = siFCurveSource, bool local = true) const;

 protected:
  ProjectItem(const CRef& ref, bool (*accept)(siClassID)) : ZrObject(ref, accept) {}
};

// An object with properties.
class ZYRA_API SceneItem : public ProjectItem {
 public:
  SceneItem() = default;
  SceneItem(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(SceneItem)

  // The properties in creation order (built-in "kine", "visibility" first on 3D objects).
  CRefArray GetProperties() const;
  // Adds a property: "Custom_parameter_list" (an empty custom property), "UserDataBlob",
  // "DispProp" (named "Display Property"), or a property type a plug-in registered (its Define
  // callback runs). A taken name gets a number appended. `branch` is accepted and ignored.
  Property AddProperty(const CString& preset, bool branch = false, const CString& name = CString());
  CRefArray GetEnvelopes() const;

 protected:
  SceneItem(const CRef& ref, bool (*accept)(siClassID)) : ProjectItem(ref, accept) {}
};

class ZYRA_API Property : public ProjectItem {
 public:
  Property() = default;
  Property(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Property)

 protected:
  Property(const CRef& ref, bool (*accept)(siClassID)) : ProjectItem(ref, accept) {}
};

class ZYRA_API CustomProperty : public Property {
 public:
  CustomProperty() = default;
  CustomProperty(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(CustomProperty)

  // Adds a parameter. Empty min/max mean no range; empty suggested bounds take min/max.
  // `capabilities`: 1 animatable, 2 read-only, 4 persistable. Fails on a taken name.
  CStatus AddParameter(const CString& name, siValueType type, int capabilities,
                       const CString& label, const CString& description, const CValue& def,
                       const CValue& min, const CValue& max, const CValue& suggestedMin,
                       const CValue& suggestedMax, Parameter& out);
  // Without range.
  CStatus AddParameter(const CString& name, siValueType type, int capabilities,
                       const CString& label, const CString& description, const CValue& def,
                       Parameter& out);
};

// A property holding a byte array.
class ZYRA_API UserDataBlob : public Property {
 public:
  UserDataBlob() = default;
  UserDataBlob(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(UserDataBlob)
  // A copy of the bytes.
  std::vector<unsigned char> GetValue() const;
  CStatus PutValue(const unsigned char* data, size_t size);
};

// Capability flags of parameters.
enum siCapabilities : int {
  siAnimatable = 1,
  siReadOnly = 2,
  siPersistable = 4,
  siNotInspectable = 8,
};

// FCurve types for Parameter::AddFCurve: any of these makes a standard value curve.
enum siFCurveType : int { siDefaultFCurve = 0, siStandardFCurve = 20, siValueFCurve = 30 };

class ZYRA_API Parameter : public ProjectItem {
 public:
  Parameter() = default;
  Parameter(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Parameter)

  // The value at `time` (default: the current frame): the fcurve's when it has one.
  CValue GetValue(const CTime& time = CTime::Current()) const;
  // Writes the static value (converted to the parameter's type, clamped to its range); a
  // read-only parameter refuses.
  CStatus PutValue(const CValue& value, const CTime& time = CTime::Current());
  siValueType GetValueType() const;
  CValue GetDefault() const;
  CValue GetMin() const;
  CValue GetMax() const;
  CValue GetSuggestedMin() const;
  CValue GetSuggestedMax() const;
  int GetCapabilities() const;
  bool GetCapabilityFlag(int flag) const;
  CStatus PutCapabilityFlag(int flag, bool on);
  bool IsReadOnly() const { return GetCapabilityFlag(siReadOnly); }
  CString GetLabel() const;
  CString GetDescription() const;
  // The fcurve driving the parameter; invalid when none.
  CRef GetSource() const;
  // Gives the parameter a new fcurve (replacing an existing one), keyed with nothing yet.
  CStatus AddFCurve(int type, FCurve& out);
  // Removes the fcurve; the static value shows again.
  CStatus RemoveAnimation();
};

}  // namespace Zyra
