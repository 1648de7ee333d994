// Adding typed parameters to the plug-in's custom properties.
#include "knrexport/scene/parameters.h"

using namespace Zyra;

Parameter AddParam(CustomProperty& property, const wchar_t* name, siValueType type, int capabilities,
                   const CValue& def, const CValue& min, const CValue& max, const CValue& suggestedMin,
                   const CValue& suggestedMax, const wchar_t* label) {
  Parameter out;
  property.AddParameter(name, type, capabilities, label, L"", def, min, max, suggestedMin, suggestedMax, out);
  return out;
}
