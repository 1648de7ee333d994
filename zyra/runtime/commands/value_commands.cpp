// Host commands on parameter values and definitions, passes and render archives.
#include <cmath>
#include <cstdio>
#include <sstream>

#include "files/atomic_file.h"
#include "host/args.h"
#include "host/host.h"
#include "model/model.h"
#include "model/page_layout.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

CStatus ParameterArg(std::wstring_view command, const CValue& v, std::shared_ptr<Parameter>& out) {
  auto object = ArgObject(v);
  if (!object) return ArgError(command, L"no parameter is named \"" + v.GetAsText().Wide() + L"\".");
  out = std::dynamic_pointer_cast<Parameter>(object);
  if (!out) return ArgError(command, object->FullName() + L" is not a parameter.");
  return CStatus::OK;
}

double FrameArg(const CValueArray& args, long i) {
  CValue v = Arg(args, i);
  return v.IsEmpty() ? Host::Get().CurrentFrame() : v.AsDouble();
}

// SetValue(path, value[, frame]): writes the parameter's static value.
CStatus SetValueCommand(const CValueArray& args, CValue&) {
  std::shared_ptr<Parameter> p;
  CStatus s = ParameterArg(L"SetValue", Arg(args, 0), p);
  if (!s.Succeeded()) return s;
  if (args.GetCount() < 2) return ArgError(L"SetValue", L"no value given for " + p->FullName() + L".");
  s = p->Put(args[1], FrameArg(args, 2));
  return s.Succeeded() ? s : ArgError(L"SetValue", s.GetMessage().Wide());
}

// GetValue(path[, frame]): a parameter's value, or the object a path names.
CStatus GetValueCommand(const CValueArray& args, CValue& result) {
  auto object = ArgObject(Arg(args, 0));
  if (!object) return ArgError(L"GetValue", L"nothing is named \"" + Arg(args, 0).GetAsText().Wide() + L"\".");
  if (auto p = std::dynamic_pointer_cast<Parameter>(object)) {
    result = p->Evaluate(FrameArg(args, 1));
  } else {
    result = CValue(CRef(object));
  }
  return CStatus::OK;
}

// EditParameterDefinition(path, min, max, suggestedMin, suggestedMax, default, label,
// description): empty arguments keep what the parameter has.
CStatus EditParameterDefinitionCommand(const CValueArray& args, CValue&) {
  const wchar_t* command = L"EditParameterDefinition";
  std::shared_ptr<Parameter> p;
  CStatus s = ParameterArg(command, Arg(args, 0), p);
  if (!s.Succeeded()) return s;
  CValue* fields[] = {&p->minValue, &p->maxValue, &p->suggestedMin, &p->suggestedMax, &p->defaultValue};
  for (long i = 0; i < 5; ++i) {
    CValue v = Arg(args, i + 1);
    if (v.IsEmpty()) continue;
    CValue converted;
    s = v.ChangeType(p->valueType, converted);
    if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
    *fields[i] = converted;
  }
  if (!Arg(args, 6).IsEmpty()) p->label = Arg(args, 6).GetAsText().Wide();
  if (!Arg(args, 7).IsEmpty()) p->description = Arg(args, 7).GetAsText().Wide();
  // Keep the value inside the new range.
  return p->Put(p->value, Host::Get().CurrentFrame());
}

CStatus GetCurrentPassCommand(const CValueArray&, CValue& result) {
  Scene& scene = Host::Get().scene();
  auto pass = scene.passes->Lookup(scene.currentPass);
  if (!pass) return CStatus(CStatus::Fail, L"GetCurrentPass: the scene has no current pass.");
  result = CValue(CRef(pass));
  return CStatus::OK;
}

void WriteArchiveObjects(std::ostream& out, const X3D& parent, double frame) {
  for (const auto& child : parent.children) {
    Parameter* rendvis = child->visibility ? child->visibility->FindParam(L"rendvis") : nullptr;
    bool visible = !rendvis || rendvis->Evaluate(frame).AsBool();
    if (visible && child->primitive && child->primitive->geometry) {
      const Geometry& g = *child->primitive->geometry;
      MATH::CTransformation t = child->GlobalTransform(frame);
      MATH::CVector3 p = t.GetTranslation();
      MATH::CQuaternion q = t.GetRotationQuaternion();
      MATH::CVector3 s = t.GetScaling();
      char line[512];
      std::snprintf(line, sizeof line,
                    " t %.9g %.9g %.9g q %.9g %.9g %.9g %.9g s %.9g %.9g %.9g points %ld polygons %ld\n",
                    p.GetX(), p.GetY(), p.GetZ(), q.GetW(), q.GetX(), q.GetY(), q.GetZ(), s.GetX(),
                    s.GetY(), s.GetZ(), g.PointCount(), g.PolygonCount());
      out << "object \"" << ToUtf8(child->FullName()) << "\"" << line;
    }
    WriteArchiveObjects(out, *child, frame);
  }
}

// ExportRenderArchive(pass, first, last, step): writes the render-visible geometry of every
// frame to the pass's "ArchiveFileName".
CStatus ExportRenderArchiveCommand(const CValueArray& args, CValue&) {
  const wchar_t* command = L"ExportRenderArchive";
  auto pass = ArgObject(Arg(args, 0));
  if (!pass || pass->classId != siPassID) {
    return ArgError(command, Quoted(Arg(args, 0)) + L" is not a pass.");
  }
  long first = Arg(args, 1).IsEmpty() ? 1 : Arg(args, 1).AsInt();
  long last = Arg(args, 2).IsEmpty() ? first : Arg(args, 2).AsInt();
  long step = Arg(args, 3).IsEmpty() ? 1 : Arg(args, 3).AsInt();
  if (step <= 0) return ArgError(command, L"the frame step must be positive.");
  if (last < first) return ArgError(command, L"the last frame comes before the first.");
  std::wstring file = pass->FindParam(L"ArchiveFileName")->value.GetAsText().Wide();
  if (file.empty()) return ArgError(command, pass->FullName() + L".ArchiveFileName is empty.");
  std::ostringstream out;
  out << "zyra-render-archive 1\n";
  for (long frame = first; frame <= last; frame += step) {
    out << "frame " << frame << "\n";
    WriteArchiveObjects(out, *Host::Get().scene().root, static_cast<double>(frame));
    out << "end\n";
  }
  CStatus written = WriteFileReplacing(ToUtf8(file), out.str());
  if (!written.Succeeded()) return ArgError(command, written.GetMessage().Wide());
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"SetValue", SetValueCommand);
ZYRA_HOST_COMMAND(L"GetValue", GetValueCommand);
ZYRA_HOST_COMMAND(L"EditParameterDefinition", EditParameterDefinitionCommand);
ZYRA_HOST_COMMAND(L"GetCurrentPass", GetCurrentPassCommand);
ZYRA_HOST_COMMAND(L"ExportRenderArchive", ExportRenderArchiveCommand);

}  // namespace Zyra::rt
