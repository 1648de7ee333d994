// A well-formed test plug-in: one command with two arguments and one property type whose page
// events leave a trace in its "Events" parameter, so that tests can check what ran and in which
// order.
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

ZYRA_PLUGIN_CALLBACK CStatus ZyraLoadPlugin(PluginRegistrar& registrar) {
  registrar.PutAuthor(L"Zyra tests");
  registrar.PutName(L"Zyra Test Plugin");
  registrar.PutVersion(1, 2);
  registrar.RegisterCommand(L"Say Hello", L"TstSayHello");
  registrar.RegisterProperty(L"TstProp");
  return CStatus::OK;
}

ZYRA_PLUGIN_CALLBACK CStatus ZyraUnloadPlugin(const PluginRegistrar&) { return CStatus::OK; }

// ---- Say Hello: greeting (default "Hello"), count (default 2) -----------------------------

ZYRA_PLUGIN_CALLBACK CStatus SayHello_Init(CRef& in) {
  Context context(in);
  Command command(context.GetSource());
  command.PutFlag(siNoLogging, true);
  command.EnableReturnValue(true);
  ArgumentArray arguments = command.GetArguments();
  arguments.Add(L"greeting", CValue(L"Hello"));
  arguments.Add(L"count", CValue(2));
  return CStatus::OK;
}

// Returns the greeting repeated `count` times, separated by blanks; a negative count fails.
ZYRA_PLUGIN_CALLBACK CStatus SayHello_Execute(CRef& in) {
  Context context(in);
  CValueArray args = context.GetAttribute(L"Arguments").AsArray();
  if (args.GetCount() != 2)
    return CStatus(CStatus::Unexpected, L"TstSayHello: expected 2 arguments.");
  CString greeting = args[0].GetAsText();
  int count = args[1].AsInt();
  if (count < 0) return CStatus(CStatus::InvalidArgument, L"TstSayHello: count is negative.");
  CString out;
  for (int i = 0; i < count; ++i) out += (i ? L" " : L"") + greeting;
  Application().LogMessage(L"TstSayHello: " + out);
  context.PutAttribute(L"ReturnValue", CValue(out));
  return CStatus::OK;
}

// ---- TstProp --------------------------------------------------------------------------------

namespace {

void AppendEvent(ProjectItem property, const CString& what) {
  CString events = property.GetParameterValue(L"Events").GetAsText();
  property.PutParameterValue(L"Events", CValue(events.IsEmpty() ? what : events + L";" + what));
}

void SetReadOnly(ProjectItem property, const CString& name, bool on) {
  Parameter param = property.GetParameter(name);
  param.PutCapabilityFlag(siReadOnly, on);
}

}  // namespace

ZYRA_PLUGIN_CALLBACK CStatus TstProp_Define(CRef& in) {
  Context context(in);
  CustomProperty property(context.GetSource());
  if (!property.IsValid()) return CStatus(CStatus::Unexpected, L"TstProp_Define: no property.");
  Parameter p;
  const int kKeep = siPersistable;
  property.AddParameter(L"Name", siString, kKeep, L"", L"", CValue(L"Actor"), p);
  property.AddParameter(L"Count", siInt4, kKeep, L"", L"", CValue(3), CValue(0), CValue(10),
                        CValue(0), CValue(10), p);
  property.AddParameter(L"Scale", siDouble, kKeep, L"", L"", CValue(0.5), CValue(0.0), CValue(1.0),
                        CValue(0.0), CValue(1.0), p);
  property.AddParameter(L"Enabled", siBool, kKeep, L"", L"", CValue(true), p);
  property.AddParameter(L"Mode", siInt4, kKeep, L"", L"", CValue(0), CValue(0), CValue(2),
                        CValue(0), CValue(2), p);
  property.AddParameter(L"File", siString, kKeep, L"", L"", CValue(L""), p);
  property.AddParameter(L"Events", siString, kKeep, L"", L"", CValue(L""), p);
  return CStatus::OK;
}

ZYRA_PLUGIN_CALLBACK CStatus TstProp_DefineLayout(CRef& in) {
  Context context(in);
  PPGLayout layout(context.GetSource());
  layout.Clear();
  layout.PutAttribute(siUIHelpFile, L"https://example.invalid/tstprop.html");
  layout.AddGroup(L"Main");
  layout.AddItem(L"Name", L"Actor Name");
  layout.AddRow();
  layout.AddItem(L"Count");
  layout.AddItem(L"Scale");
  layout.EndRow();
  CValueArray modes{CValue(L"Walk"), CValue(0),       CValue(L"Run"),
                    CValue(1),       CValue(L"Jump"), CValue(2)};
  layout.AddEnumControl(L"Mode", modes, L"Motion", siControlCombo);
  layout.EndGroup();
  layout.AddGroup(L"Options", false);
  layout.AddItem(L"Enabled");
  PPGItem file = layout.AddItem(L"File", L"Input File", siControlFilePath);
  file.PutAttribute(siUIFileFilter, L"Text Files (*.txt)|*.txt|");
  layout.AddButton(L"Apply", L"Apply Now");
  layout.AddButton(L"Done");
  layout.EndGroup();
  return CStatus::OK;
}

// OnInit makes Count read-only; changing Enabled makes Scale read-only while it is false; Apply
// renames; Done closes the page. Every event appends to "Events".
ZYRA_PLUGIN_CALLBACK CStatus TstProp_PPGEvent(CRef& in) {
  PPGEventContext context(in);
  switch (context.GetEventID()) {
    case siOnInit: {
      CustomProperty property(context.GetSource());
      SetReadOnly(property, L"Count", true);
      AppendEvent(property, L"init");
      context.PutAttribute(L"Refresh", true);
      break;
    }
    case siParameterChange: {
      Parameter changed(context.GetSource());
      CustomProperty property(changed.GetParent());
      if (changed.GetName() == L"Enabled") {
        SetReadOnly(property, L"Scale", !changed.GetValue().AsBool());
      }
      AppendEvent(property, L"change:" + changed.GetName());
      break;
    }
    case siButtonClicked: {
      CustomProperty property(context.GetSource());
      CString button = context.GetAttribute(L"Button").GetAsText();
      if (button == L"Apply") property.PutParameterValue(L"Name", CValue(L"Applied"));
      if (button == L"Done") context.PutAttribute(L"Close", true);
      AppendEvent(property, L"button:" + button);
      break;
    }
    case siOnClosed:
      AppendEvent(CustomProperty(context.GetSource()), L"closed");
      break;
  }
  return CStatus::OK;
}
