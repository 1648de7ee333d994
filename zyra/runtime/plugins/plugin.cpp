// The plug-in interface's handles: registrar, registered items, contexts, commands and their
// arguments, page-event contexts.
#include "zyra/plugin.h"

#include <algorithm>
#include <cwctype>

#include "plugins/plugin_objects.h"

namespace Zyra {

namespace rt {

void CommandObject::ForEachOwned(
    const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  for (const auto& argument : arguments) visit(argument);
}

void RegistrarObject::ForEachOwned(
    const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  for (const auto& item : items) visit(item);
}

namespace {

template <class T>
T* As(const CRef& ref, siClassID id) {
  auto object = ref.Get();
  return object && object->classId == id ? static_cast<T*>(object.get()) : nullptr;
}

ContextObject* ContextOf(const CRef& ref) {
  auto object = ref.Get();
  if (!object || (object->classId != siContextID && object->classId != siPPGEventContextID)) {
    return nullptr;
  }
  return static_cast<ContextObject*>(object.get());
}

std::wstring WithoutBlanks(const std::wstring& text) {
  std::wstring out;
  for (wchar_t c : text) {
    if (!std::iswspace(static_cast<wint_t>(c))) out += c;
  }
  return out;
}

const CStatus kInvalidHandle(CStatus::InvalidArgument, L"The handle is not valid.");

}  // namespace
}  // namespace rt

// ---- PluginItem ---------------------------------------------------------------------------------

PluginItem::PluginItem(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siPluginItemID; }) {}

CString PluginItem::GetName() const {
  auto* item = rt::As<rt::PluginItemObject>(ref_, siPluginItemID);
  return item ? CString(item->name) : CString();
}
CString PluginItem::GetScriptName() const {
  auto* item = rt::As<rt::PluginItemObject>(ref_, siPluginItemID);
  return item ? CString(item->scriptName) : CString();
}
bool PluginItem::IsCommand() const {
  auto* item = rt::As<rt::PluginItemObject>(ref_, siPluginItemID);
  return item && item->command;
}

// ---- PluginRegistrar ----------------------------------------------------------------------------

PluginRegistrar::PluginRegistrar(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siPluginRegistrarID; }) {}

namespace {
rt::RegistrarObject* Registrar(const CRef& ref) {
  return rt::As<rt::RegistrarObject>(ref, siPluginRegistrarID);
}
}  // namespace

CStatus PluginRegistrar::PutAuthor(const CString& author) {
  auto* r = Registrar(ref_);
  if (!r) return rt::kInvalidHandle;
  r->author = author.Wide();
  return CStatus::OK;
}
CString PluginRegistrar::GetAuthor() const {
  auto* r = Registrar(ref_);
  return r ? CString(r->author) : CString();
}
CStatus PluginRegistrar::PutName(const CString& name) {
  auto* r = Registrar(ref_);
  if (!r) return rt::kInvalidHandle;
  r->pluginName = name.Wide();
  return CStatus::OK;
}
CString PluginRegistrar::GetName() const {
  auto* r = Registrar(ref_);
  return r ? CString(r->pluginName) : CString();
}
CStatus PluginRegistrar::PutVersion(long major, long minor) {
  auto* r = Registrar(ref_);
  if (!r) return rt::kInvalidHandle;
  r->major = major;
  r->minor = minor;
  return CStatus::OK;
}
long PluginRegistrar::GetMajor() const {
  auto* r = Registrar(ref_);
  return r ? r->major : 0;
}
long PluginRegistrar::GetMinor() const {
  auto* r = Registrar(ref_);
  return r ? r->minor : 0;
}
CString PluginRegistrar::GetOriginPath() const {
  auto* r = Registrar(ref_);
  return r ? CString(r->originPath) : CString();
}

PluginItem PluginRegistrar::RegisterCommand(const CString& displayName, const CString& scriptName) {
  auto* r = Registrar(ref_);
  std::wstring bare = rt::WithoutBlanks(displayName.Wide());
  if (!r || bare.empty()) return PluginItem();
  std::wstring script = scriptName.IsEmpty() ? bare : scriptName.Wide();
  if (rt::WithoutBlanks(script) != script) return PluginItem();
  auto item = std::make_shared<rt::PluginItemObject>(displayName.Wide(), script, true);
  item->owner = r->weak_from_this();
  r->items.push_back(item);
  return PluginItem(CRef(item));
}

PluginItem PluginRegistrar::RegisterProperty(const CString& name) {
  auto* r = Registrar(ref_);
  if (!r || name.IsEmpty() || rt::WithoutBlanks(name.Wide()) != name.Wide()) return PluginItem();
  auto item = std::make_shared<rt::PluginItemObject>(name.Wide(), L"", false);
  item->owner = r->weak_from_this();
  r->items.push_back(item);
  return PluginItem(CRef(item));
}

CRefArray PluginRegistrar::GetItems() const {
  CRefArray out;
  if (auto* r = Registrar(ref_)) {
    for (const auto& item : r->items) out.Add(CRef(item));
  }
  return out;
}

// ---- Context ----------------------------------------------------------------------------------

Context::Context(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siContextID || id == siPPGEventContextID; }) {}

CRef Context::GetSource() const {
  auto* context = rt::ContextOf(ref_);
  return context ? CRef(context->source) : CRef();
}
CValue Context::GetAttribute(const CString& name) const {
  auto* context = rt::ContextOf(ref_);
  return context ? context->attributes.Get(name.Wide()) : CValue();
}
CStatus Context::PutAttribute(const CString& name, const CValue& value) {
  auto* context = rt::ContextOf(ref_);
  if (!context) return rt::kInvalidHandle;
  if (name.IsEmpty()) return CStatus(CStatus::InvalidArgument, L"An attribute needs a name.");
  context->attributes.Put(name.Wide(), value);
  return CStatus::OK;
}

PPGEventContext::PPGEventContext(const CRef& ref)
    : Context(ref, [](siClassID id) { return id == siPPGEventContextID; }) {}

siPPGEventID PPGEventContext::GetEventID() const {
  auto* context = rt::ContextOf(ref_);
  return static_cast<siPPGEventID>(context ? context->eventId : -1);
}
CRef PPGEventContext::GetSource() const { return Context::GetSource(); }

// ---- Arguments and commands -------------------------------------------------------------------

namespace {
rt::CommandObject* CommandOf(const CRef& ref) {
  return rt::As<rt::CommandObject>(ref, siCommandID);
}
rt::ArgumentObject* ArgumentOf(const CRef& ref) {
  return rt::As<rt::ArgumentObject>(ref, siArgumentID);
}
}  // namespace

Argument::Argument(const CRef& ref)
    : ZrObject(ref, [](siClassID id) { return id == siArgumentID; }) {}

CString Argument::GetName() const {
  auto* a = ArgumentOf(ref_);
  return a ? CString(a->name) : CString();
}
CValue Argument::GetValue() const {
  auto* a = ArgumentOf(ref_);
  return a ? a->value : CValue();
}
CStatus Argument::PutValue(const CValue& value) {
  auto* a = ArgumentOf(ref_);
  if (!a) return rt::kInvalidHandle;
  a->value = value;
  return CStatus::OK;
}
CValue Argument::GetDefault() const {
  auto* a = ArgumentOf(ref_);
  return a ? a->defaultValue : CValue();
}

CStatus ArgumentArray::Add(const CString& name, const CValue& defaultValue) {
  auto* command = CommandOf(command_);
  if (!command) return rt::kInvalidHandle;
  if (name.IsEmpty()) {
    return CStatus(CStatus::InvalidArgument, command->name + L": an argument needs a name.");
  }
  for (const auto& argument : command->arguments) {
    if (argument->name == name.Wide()) {
      return CStatus(CStatus::InvalidArgument,
                     command->name + L": the argument \"" + name.Wide() + L"\" is declared twice.");
    }
  }
  auto argument = std::make_shared<rt::ArgumentObject>(name.Wide(), defaultValue);
  argument->owner = command->weak_from_this();
  command->arguments.push_back(argument);
  return CStatus::OK;
}
long ArgumentArray::GetCount() const {
  auto* command = CommandOf(command_);
  return command ? static_cast<long>(command->arguments.size()) : 0;
}
Argument ArgumentArray::GetItem(long i) const {
  auto* command = CommandOf(command_);
  if (!command || i < 0 || i >= static_cast<long>(command->arguments.size())) return Argument();
  return Argument(CRef(command->arguments[static_cast<size_t>(i)]));
}
Argument ArgumentArray::GetItem(const CString& name) const {
  auto* command = CommandOf(command_);
  if (!command) return Argument();
  for (const auto& argument : command->arguments) {
    if (argument->name == name.Wide()) return Argument(CRef(argument));
  }
  return Argument();
}

Command::Command(const CRef& ref) : ZrObject(ref, [](siClassID id) { return id == siCommandID; }) {}

CString Command::GetName() const {
  auto* c = CommandOf(ref_);
  return c ? CString(c->name) : CString();
}
CString Command::GetScriptName() const {
  auto* c = CommandOf(ref_);
  return c ? CString(c->scriptName) : CString();
}
ArgumentArray Command::GetArguments() const {
  return ArgumentArray(CommandOf(ref_) ? ref_ : CRef());
}
CStatus Command::PutFlag(int flag, bool on) {
  auto* c = CommandOf(ref_);
  if (!c) return rt::kInvalidHandle;
  c->flags = on ? (c->flags | flag) : (c->flags & ~flag);
  return CStatus::OK;
}
bool Command::GetFlag(int flag) const {
  auto* c = CommandOf(ref_);
  return c && flag != 0 && (c->flags & flag) == flag;
}
CStatus Command::EnableReturnValue(bool on) {
  auto* c = CommandOf(ref_);
  if (!c) return rt::kInvalidHandle;
  c->returnValue = on;
  return CStatus::OK;
}
bool Command::IsReturnValueEnabled() const {
  auto* c = CommandOf(ref_);
  return c && c->returnValue;
}

}  // namespace Zyra
