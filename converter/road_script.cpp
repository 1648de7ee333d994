// Script text and scene lookups of the converter's road (road_script.h).
#include "road_script.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "zyra/action.h"
#include "zyra/application.h"

namespace knrconvert {

std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string Num(double value) {
  char buffer[40];
  for (int digits = 1; digits <= 17; ++digits) {  // the shortest text that reads back exactly
    std::snprintf(buffer, sizeof buffer, "%.*g", digits, value);
    if (std::strtod(buffer, nullptr) == value) break;
  }
  std::string text = buffer;
  if (text.find_first_of(".eE") == std::string::npos) text += ".0";
  return text;
}

std::string ActorName(const std::string& take) {
  std::string name;
  for (char c : take) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0]))) name = "Take_" + name;
  return name;
}

Zyra::X3DObject Find(const std::string& path) {
  return Zyra::X3DObject(Zyra::Application().GetObjectFromPath(Zyra::FromUtf8(path)));
}

std::map<std::string, Zyra::FCurve> CurveItems(const std::string& sourcePath) {
  std::map<std::string, Zyra::FCurve> curves;
  Zyra::ActionSource source(Zyra::Application().GetObjectFromPath(Zyra::FromUtf8(sourcePath)));
  if (!source.IsValid()) return curves;
  for (const Zyra::CRef& ref : source.GetItems()) {
    Zyra::AnimationSourceItem item(ref);
    if (!item.IsValid() || item.IsStatic()) continue;
    Zyra::FCurve curve(item.GetSource());
    if (curve.IsValid()) curves.emplace(Zyra::ToUtf8(item.GetTarget().Wide()), curve);
  }
  return curves;
}

}  // namespace knrconvert
