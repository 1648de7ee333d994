// "CreateActionSource": an empty action source that a caller fills item by item
// (ActionSource::AddSourceItem), for actions that are built rather than stored from parameters.
#include <string>

#include "host/args.h"
#include "host/host.h"
#include "model/model.h"

namespace Zyra::rt {

namespace {

// CreateActionSource(model, name [, start, end]): a new source without items on the model, with
// "FrameStart" and "FrameEnd" set (both 1 by default). A taken name gets a number appended.
// Refused: no model, an empty name or one holding '.' or ',', a bound that is no number, start
// after end.
CStatus CreateActionSourceCommand(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"CreateActionSource";
  std::shared_ptr<ModelObject> model;
  if (CStatus status = ArgModel(kCmd, args, 0, model); !status.Succeeded()) return status;
  const std::wstring name = Arg(args, 1).GetAsText().Wide();
  if (name.empty() || name.find_first_of(L".,") != std::wstring::npos) {
    return ArgError(kCmd, L"the name \"" + name + L"\" is empty or holds '.' or ','.");
  }
  double start = 1.0, end = 1.0;
  if (!Arg(args, 2).IsEmpty() && !ArgNumber(Arg(args, 2), start)) {
    return ArgError(kCmd, L"the start frame " + Quoted(Arg(args, 2)) + L" is not a number.");
  }
  if (!Arg(args, 3).IsEmpty() && !ArgNumber(Arg(args, 3), end)) {
    return ArgError(kCmd, L"the end frame " + Quoted(Arg(args, 3)) + L" is not a number.");
  }
  if (start > end) return ArgError(kCmd, L"the start frame is after the end frame.");
  auto source = CreateActionSource(model, name);
  source->FindParam(L"FrameStart")->value = CValue(start);
  source->FindParam(L"FrameEnd")->value = CValue(end);
  result = CValue(CRef(source));
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"CreateActionSource", CreateActionSourceCommand);

}  // namespace Zyra::rt
