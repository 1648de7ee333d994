// Reading host commands' arguments; the rules are in args.h.
#include "host/args.h"

#include <cmath>

#include "model/scene_graph.h"

namespace Zyra::rt {

std::shared_ptr<Object> ArgObject(const CValue& arg) {
  if (arg.GetType() == siRef) return arg.AsRef().Get();
  if (arg.GetType() == siString) return Resolve(arg.GetAsText().Wide());
  if (arg.GetType() == siArray && arg.AsArray().GetCount() == 1) return ArgObject(arg.AsArray()[0]);
  return nullptr;
}

CStatus ArgObjects(const CValue& arg, std::vector<std::shared_ptr<Object>>& out) {
  out.clear();
  if (arg.GetType() == siArray) {
    for (const CValue& item : arg.AsArray()) {
      std::vector<std::shared_ptr<Object>> some;
      CStatus status = ArgObjects(item, some);
      if (!status.Succeeded()) return status;
      out.insert(out.end(), some.begin(), some.end());
    }
    return CStatus::OK;
  }
  if (arg.GetType() == siRef) {
    auto object = arg.AsRef().Get();
    if (!object) return CStatus(CStatus::InvalidArgument, L"The object was deleted.");
    out.push_back(object);
    return CStatus::OK;
  }
  if (arg.GetType() != siString) {
    return CStatus(CStatus::InvalidArgument,
                   L"Expected an object, got \"" + arg.GetAsText().Wide() + L"\".");
  }
  std::wstring list = arg.GetAsText().Wide();
  size_t start = 0;
  while (start <= list.size()) {
    size_t comma = list.find(L',', start);
    std::wstring name = list.substr(start, comma == std::wstring::npos ? comma : comma - start);
    while (!name.empty() && name.front() == L' ') name.erase(0, 1);
    while (!name.empty() && name.back() == L' ') name.pop_back();
    if (!name.empty()) {
      auto object = Resolve(name);
      if (!object)
        return CStatus(CStatus::InvalidArgument, L"No object is named \"" + name + L"\".");
      out.push_back(object);
    }
    if (comma == std::wstring::npos) break;
    start = comma + 1;
  }
  return CStatus::OK;
}

const CValue& Arg(const CValueArray& args, long i) {
  static const CValue kEmpty;
  return i >= 0 && i < args.GetCount() ? args[i] : kEmpty;
}

std::wstring Quoted(const CValue& arg) { return L"\"" + arg.GetAsText().Wide() + L"\""; }

bool ArgNumber(const CValue& arg, double& out) {
  CValue number;
  if (!arg.ChangeType(siDouble, number).Succeeded()) return false;
  out = number.AsDouble();
  return std::isfinite(out);
}

bool ArgInteger(const CValue& arg, int& out) {
  double number = 0;
  if (!ArgNumber(arg, number) || number != std::floor(number) || std::fabs(number) > 1e9) {
    return false;
  }
  out = static_cast<int>(number);
  return true;
}

CStatus ArgModel(std::wstring_view command, const CValueArray& args, long i,
                 std::shared_ptr<ModelObject>& out) {
  out = std::dynamic_pointer_cast<ModelObject>(ArgObject(Arg(args, i)));
  return out ? CStatus::OK : ArgError(command, Quoted(Arg(args, i)) + L" is not a model.");
}

CStatus ArgError(std::wstring_view command, const std::wstring& what) {
  return CStatus(CStatus::InvalidArgument, std::wstring(command) + L": " + what);
}

}  // namespace Zyra::rt
