// The host command ExportGLTF (docs/host.md): its arguments checked, then ExportGltf.
#include <sstream>

#include "gltf/gltf_export.h"
#include "host/args.h"
#include "host/host.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

// ---- ExportGLTF model, file [, sources] [, metres per unit] ------------------------------------

CStatus ExportGltfCommand(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"ExportGLTF";
  std::shared_ptr<ModelObject> model;
  if (CStatus status = ArgModel(kCmd, args, 0, model); !status.Succeeded()) return status;
  const std::wstring file = Arg(args, 1).GetAsText().Wide();
  if (Arg(args, 1).GetType() != siString || file.empty())
    return ArgError(kCmd, L"no file name given.");
  GltfExportOptions options;
  if (!Arg(args, 3).IsEmpty() &&
      (!ArgNumber(Arg(args, 3), options.metresPerUnit) || !(options.metresPerUnit > 0))) {
    return ArgError(kCmd,
                    L"the metres per unit " + Quoted(Arg(args, 3)) + L" is not a number above 0.");
  }
  const CValue& list = Arg(args, 2);
  if (list.IsEmpty() || (list.GetType() == siString && list.GetAsText().Wide().empty())) {
    if (model->sources) {
      for (const auto& item : model->sources->items) {
        if (auto source = std::dynamic_pointer_cast<ActionSourceObject>(item))
          options.sources.push_back(source);
      }
    }
  } else {
    // Names are looked up among the model's sources first, then as full names.
    std::vector<std::wstring> names;
    std::vector<CValue> values;
    if (list.GetType() == siString) {
      std::wstringstream text(list.GetAsText().Wide());
      for (std::wstring name; std::getline(text, name, L',');) {
        while (!name.empty() && name.front() == L' ') name.erase(0, 1);
        while (!name.empty() && name.back() == L' ') name.pop_back();
        if (!name.empty()) values.emplace_back(CValue(CString(name)));
      }
    } else if (list.GetType() == siArray) {
      for (const CValue& item : list.AsArray()) values.push_back(item);
    } else {
      values.push_back(list);
    }
    for (const CValue& value : values) {
      std::shared_ptr<Object> object;
      if (value.GetType() == siString)
        object = Resolve(model->FullName() + L".Sources." + value.GetAsText().Wide());
      if (!object) object = ArgObject(value);
      auto source = std::dynamic_pointer_cast<ActionSourceObject>(object);
      if (!source)
        return ArgError(kCmd,
                        Quoted(value) + L" is not an action source of " + model->FullName() + L".");
      auto owner = source->Owner();
      if (!owner || owner->Owner() != model)
        return ArgError(kCmd, source->FullName() + L" is an action source of another model than " +
                                  model->FullName() + L".");
      options.sources.push_back(source);
    }
  }
  CStatus status = ExportGltf(*model, ToUtf8(file), options);
  if (!status.Succeeded()) return status;
  result = CValue(CString(file));
  return CStatus::OK;
}

ZYRA_HOST_COMMAND(L"ExportGLTF", ExportGltfCommand);

}  // namespace

}  // namespace Zyra::rt
