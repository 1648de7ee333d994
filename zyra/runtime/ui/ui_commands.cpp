// Host commands of the headless user interface: "InspectObj" (a modal property page run from
// a queued answer), "Close" (the page that is open) and "PickObject".
#include <cmath>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "host/args.h"
#include "host/host.h"
#include "host/nearest_name.h"
#include "model/page_layout.h"
#include "model/scene_graph.h"
#include "plugins/plugin_objects.h"
#include "zyra/plugin.h"

namespace Zyra::rt {

namespace {

// Pages open right now, innermost last; "Close" closes the last.
struct OpenPage {
  std::wstring title;
  bool closed = false;
};
std::vector<OpenPage>& OpenPages() {
  static std::vector<OpenPage> pages;
  return pages;
}

// Takes the first queued page answer for `title` (or for any title).
bool TakePageAnswer(const std::wstring& title, PageAnswer& out) {
  auto& answers = Host::Get().ui().pageAnswers;
  for (auto it = answers.begin(); it != answers.end(); ++it) {
    if (it->title.empty() || it->title == title) {
      out = *it;
      answers.erase(it);
      return true;
    }
  }
  return false;
}

// The value an answer's text gives a parameter: a combo choice by its label, else the text
// converted by the parameter itself.
CValue AnswerValue(const Parameter& param, const PPGLayoutObject* layout,
                   const std::wstring& text) {
  if (param.valueType == siString) return CValue(CString(text));
  if (layout) {
    if (auto item = layout->Find(param.name)) {
      const CValueArray& choices = item->uiItems;
      for (long i = 0; i + 1 < choices.GetCount(); i += 2) {
        if (choices[i].GetAsText().Wide() == text) return choices[i + 1];
      }
    }
  }
  return CValue(CString(text));
}

bool Flag(const std::shared_ptr<ContextObject>& context, const wchar_t* name) {
  return context && context->attributes.Get(name).AsBool();
}

class PageRun {
 public:
  PageRun(std::shared_ptr<Object> target, std::wstring title)
      : target_(std::move(target)), title_(std::move(title)) {
    property_ = std::dynamic_pointer_cast<Property>(target_);
    if (property_) layout_ = LayoutOf(property_);
    OpenPages().push_back(OpenPage{title_, false});
    depth_ = OpenPages().size() - 1;
  }
  ~PageRun() { OpenPages().resize(depth_); }

  // Runs the page from `answer` (or confirmed unchanged without one); true when cancelled.
  bool Run(const PageAnswer* answer) {
    Host& host = Host::Get();
    host.Log(kSevInfo, L"[Page] " + title_ + L" (" + target_->FullName() + L")");
    Event(siOnInit, target_);
    if (layout_ && !layout_->items.empty()) host.Log(kSevInfo, L"  " + layout_->Describe());

    if (!answer) host.Log(kSevInfo, L"  (no answer queued)");
    // An answer that cannot be applied (no such parameter, a read-only one, a value of the wrong
    // type or out of range) closes the page as cancelled and fails the script line: the command
    // must not go on with values the script did not ask for.
    bool refused = false;
    if (answer) {
      for (const auto& [name, text] : answer->values) {
        if (Closed(L"the answer " + name + L"=" + text)) continue;
        if (!SetValue(name, text)) {
          refused = true;
          break;
        }
      }
      for (size_t i = 0; i < answer->presses.size() && !refused; ++i) {
        if (Closed(L"the press of " + answer->presses[i])) continue;
        if (!Press(answer->presses[i])) refused = true;
      }
    }
    Event(siOnClosed, target_);
    bool cancelled = refused || (answer && answer->cancel);
    if (cancelled) {
      // Cancel undoes the user's edits; what the page's events did themselves stays.
      for (auto& [param, value] : edited_) param->value = value;
    }
    host.Log(kSevInfo, cancelled ? L"  -> Cancel" : L"  -> OK");
    return cancelled;
  }

 private:
  void Event(int id, const std::shared_ptr<Object>& source, const std::wstring& button = {}) {
    if (!property_) return;
    auto context = RunPageEvent(property_, id, source, button);
    if (Flag(context, L"Close")) OpenPages()[depth_].closed = true;
    if (Flag(context, L"Refresh") && layout_ && id != siOnInit) {
      Host::Get().Log(kSevInfo, L"  refreshed: " + layout_->Describe());
    }
  }

  bool Closed(const std::wstring& what) {
    if (!OpenPages()[depth_].closed) return false;
    Host::Get().Log(kSevWarning, L"InspectObj: the page \"" + title_ + L"\" was closed; " + what +
                                     L" is ignored.");
    return true;
  }

  // Records why an answer cannot be applied; always false.
  bool Refuse(const std::wstring& why) {
    std::wstring message = L"InspectObj: the page \"" + title_ + L"\" " + why;
    Host::Get().Log(kSevInfo, L"  " + message);
    Host::Get().ui().lineFailures.push_back(message);
    return false;
  }

  // Puts an answered value on its parameter and runs the change event; false (recorded) when the
  // answer cannot be applied as it stands.
  bool SetValue(const std::wstring& name, const std::wstring& text) {
    Host& host = Host::Get();
    auto param = FindParameter(name);
    if (!param) return Refuse(L"has no parameter \"" + name + L"\"" + Nearest(name) + L".");
    if (param->capabilities & kReadOnly) {
      return Refuse(L"cannot take " + name + L"=" + text + L": the parameter is read-only.");
    }
    CValue value = AnswerValue(*param, layout_.get(), text);
    CValue converted;
    if (param->valueType != siEmpty && param->valueType != siString &&
        !value.ChangeType(param->valueType, converted).Succeeded()) {
      return Refuse(L"cannot take " + name + L"=" + text + L": " + TypeName(param->valueType) +
                    L" expected.");
    }
    const bool numeric =
        param->valueType == siInt4 || param->valueType == siFloat || param->valueType == siDouble;
    if (numeric) {
      const double v = converted.AsDouble();
      const bool low = !param->minValue.IsEmpty() && v < param->minValue.AsDouble();
      const bool high = !param->maxValue.IsEmpty() && v > param->maxValue.AsDouble();
      if (!std::isfinite(v)) {
        return Refuse(L"cannot take " + name + L"=" + text + L": not a finite number.");
      }
      if (low || high) {
        return Refuse(L"cannot take " + name + L"=" + text + L": the value must lie in " +
                      Bound(param->minValue) + L" .. " + Bound(param->maxValue) + L".");
      }
    }
    CValue before = param->value;
    CStatus status = param->Put(value, host.CurrentFrame());
    if (!status.Succeeded())
      return Refuse(L"cannot take " + name + L"=" + text + L": " + status.GetMessage().Wide());
    bool seen = false;
    for (const auto& edit : edited_) seen = seen || edit.first == param;
    if (!seen) edited_.emplace_back(param, before);
    host.Log(kSevInfo, L"  " + name + L" = " + param->value.GetAsText().Wide());
    Event(siParameterChange, param);
    return true;
  }

  bool Press(const std::wstring& button) {
    auto item = layout_ ? layout_->Find(button) : nullptr;
    if (!item || item->type != siControlButton) {
      return Refuse(L"has no button \"" + button + L"\".");
    }
    Host::Get().Log(kSevInfo, L"  press " + button);
    Event(siButtonClicked, target_, button);
    return true;
  }

  // " (did you mean "Scale"?)" for a name that looks like a slip for a parameter of the page.
  std::wstring Nearest(const std::wstring& name) const {
    std::vector<std::wstring> names;
    for (const auto& param : target_->params) names.push_back(param->name);
    std::wstring best = NearestName(name, names);
    return best.empty() ? std::wstring() : L" (did you mean \"" + best + L"\"?)";
  }

  // A range bound as a person writes it (0.0001, not 9.999999747378752e-05).
  static std::wstring Bound(const CValue& bound) {
    if (bound.IsEmpty()) return L"any";
    std::wostringstream text;
    text << std::setprecision(bound.GetType() == siFloat ? 7 : 15) << bound.AsDouble();
    return text.str();
  }

  static std::wstring TypeName(int type) {
    switch (type) {
      case siInt4:
        return L"a whole number";
      case siFloat:
      case siDouble:
        return L"a number";
      case siBool:
        return L"true or false";
      default:
        return L"a value of type " + std::to_wstring(type);
    }
  }

  std::shared_ptr<Parameter> FindParameter(const std::wstring& name) const {
    for (const auto& param : target_->params) {
      if (param->name == name) return param;
    }
    auto found = Resolve(target_->FullName() + L"." + name);
    return found && found->classId == siParameterID ? std::static_pointer_cast<Parameter>(found)
                                                    : nullptr;
  }

  std::shared_ptr<Object> target_;
  std::wstring title_;
  std::shared_ptr<Property> property_;
  std::shared_ptr<PPGLayoutObject> layout_;
  std::vector<std::pair<std::shared_ptr<Parameter>, CValue>>
      edited_;  // value before the first edit
  size_t depth_ = 0;
};

// InspectObj(objects, keywords, title, mode, throw): see docs/host-ui.md.
CStatus InspectObjCommand(const CValueArray& args, CValue& result) {
  if (Arg(args, 0).IsEmpty()) {
    return ArgError(L"InspectObj", L"no object to inspect was given.");
  }
  std::vector<std::shared_ptr<Object>> objects;
  CStatus status = ArgObjects(args[0], objects);
  if (!status.Succeeded()) return ArgError(L"InspectObj", status.GetMessage().Wide());
  if (objects.empty()) return ArgError(L"InspectObj", L"no object to inspect was given.");
  std::wstring title = Arg(args, 2).GetAsText().Wide();
  if (title.empty()) title = objects.front()->FullName();
  bool throwOnCancel = Arg(args, 4).AsBool();

  PageAnswer answer;
  bool answered = TakePageAnswer(title, answer);
  PageRun page(objects.front(), title);
  bool cancelled = page.Run(answered ? &answer : nullptr);
  result = CValue(cancelled);
  if (cancelled && throwOnCancel) {
    return CStatus(CStatus::Abort, L"InspectObj: the page \"" + title + L"\" was cancelled.");
  }
  return CStatus::OK;
}

// PickObject(leftText, rightText): [button, modifier, object]; button 1 when an object was
// picked, 0 when nothing was.
CStatus PickObjectCommand(const CValueArray& args, CValue& result) {
  Host& host = Host::Get();
  std::wstring prompt = Arg(args, 0).GetAsText().Wide();
  auto& picks = host.ui().pickAnswers;
  std::shared_ptr<Object> picked;
  std::wstring name;
  if (!picks.empty()) {
    name = picks.front();
    picks.pop_front();
    if (!name.empty()) {
      picked = Resolve(name);
      if (!picked) {
        host.Log(kSevWarning,
                 L"PickObject: no object is named \"" + name + L"\"; nothing is picked.");
      }
    }
  }
  CValueArray out;
  out.Add(CValue(picked ? 1 : 0));
  out.Add(CValue(0));
  out.Add(picked ? CValue(CRef(picked)) : CValue());
  result = CValue(out);
  host.Log(kSevInfo, L"[Pick] " + prompt + L"\n  -> " +
                         (picked ? picked->FullName() : std::wstring(L"nothing picked")));
  return CStatus::OK;
}

// Close(): closes the property page that is open (the innermost one), as a page's own button
// does when it is done.
CStatus CloseCommand(const CValueArray&, CValue&) {
  if (!OpenPages().empty()) OpenPages().back().closed = true;
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"InspectObj", InspectObjCommand);
ZYRA_HOST_COMMAND(L"PickObject", PickObjectCommand);
ZYRA_HOST_COMMAND(L"Close", CloseCommand);

}  // namespace Zyra::rt
