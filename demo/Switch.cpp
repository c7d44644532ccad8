#include "demo/Switch.h"

#include <functional>
#include <map>
#include <new>

#include "Zel/CollectionAttr.h"
#include "Zel/CollectionQueueAttr.h"
#include "Zel/Format.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
using VlanAttr = Zel::CollectionAttr<&Switch::vlan>;
using EventAttr = Zel::CollectionAttr<&Switch::event>;
using LogAttr = Zel::CollectionQueueAttr<&Switch::log>;
constexpr Zel::CollectionAttr<&Switch::intf> kIntf;
constexpr EventAttr kEvent;
constexpr VlanAttr kVlan;
constexpr Zel::CollectionAttr<&Switch::color> kColor;
constexpr LogAttr kLog;
constexpr Zel::MethodAttr<&Switch::reset> kReset;
constexpr Zel::MethodAttr<&Switch::add> kAdd;
constexpr Zel::MethodAttr<&Switch::describe> kDescribe;
constexpr Zel::MethodAttr<&Switch::interfaceCount> kInterfaceCount;
constexpr Zel::MethodAttr<&Switch::fail> kFail;

constexpr Zel::ArgDesc kCtor[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::ArgDesc kIntfArgs[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::ArgDesc kEventArgs[] = {{"seq", "unsigned int"}, {"text", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::ArgDesc kNoArgs[] = {{nullptr, nullptr}};
constexpr Zel::ArgDesc kAddArgs[] = {{"a", "int"}, {"b", "int"}, {nullptr, nullptr}};
constexpr Zel::ArgDesc kFailArgs[] = {{"kind", "Zel::String"}, {"message", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::entityOps<Switch, Zel::String8>();

using A = Zel::ZelAttr;
using Zel::Builtin;
constexpr uint32_t kColl = A::readable_ | A::writable_ | A::deletable_ | A::isCollection_ | A::doesNotify_;
constexpr uint32_t kInst = kColl | A::instantiating_ | A::directLookup_;
} // namespace

constinit Zel::ZelType const Switch::_zelType("Demo::Switch", sizeof(Switch), &Zel::Entity::_zelType,
                                              Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_,
                                              Switch::_zelAttrs, 10, kCtor, &kOps);
constinit Zel::ZelAttr const Switch::_zelAttrs[] = {
    {"intf", 1, &Switch::_zelType, &Interface::_zelType, kInst, &kIntf, &Builtin<Zel::String8>::_zelType,
     kIntfArgs, "name"},
    {"event", 2, &Switch::_zelType, &Event::_zelType, kInst | A::hasAutomanagedKey_, &kEvent,
     &Builtin<unsigned>::_zelType, kEventArgs, nullptr, 0},
    {"vlan", 3, &Switch::_zelType, &Builtin<Zel::String8>::_zelType, kColl, &kVlan, &Builtin<int>::_zelType},
    {"color", 4, &Switch::_zelType, &ColorType::_zelType, kColl | A::directLookup_, &kColor,
     &Builtin<Zel::String8>::_zelType},
    {"log", 5, &Switch::_zelType, &Builtin<Zel::String8>::_zelType, kColl | A::isQueueCollection_, &kLog},
    {"reset", 6, &Switch::_zelType, nullptr, A::isFunction_, &kReset, nullptr, kNoArgs},
    {"add", 7, &Switch::_zelType, &Builtin<int>::_zelType, A::isFunction_, &kAdd, nullptr, kAddArgs},
    {"describe", 8, &Switch::_zelType, &Builtin<Zel::String8>::_zelType, A::isFunction_, &kDescribe, nullptr,
     kNoArgs},
    {"interfaceCount", 9, &Switch::_zelType, &Builtin<unsigned>::_zelType, A::isFunction_, &kInterfaceCount,
     nullptr, kNoArgs},
    {"fail", 10, &Switch::_zelType, nullptr, A::isFunction_, &kFail, nullptr, kFailArgs},
};

void Switch::reset() {
    VlanAttr::clear(this, _zelAttrs[2]);
    LogAttr::clear(this, _zelAttrs[4]);
    EventAttr::clear(this, _zelAttrs[1]);
}

Zel::String8 Switch::describe() const {
    return Zel::format("switch %s: %zu interfaces, %zu vlans, %zu events", name().value.c_str(), intf.size(),
                       vlan.size(), event.size());
}

namespace {

template <class E>
std::function<void(Zel::String8 const&)> thrower() {
    return [](Zel::String8 const& m) { throw E(m); };
}

// Every framework exception kind, by its name without the namespace.
std::map<std::string_view, std::function<void(Zel::String8 const&)>> const& throwers() {
    static auto const* m = new std::map<std::string_view, std::function<void(Zel::String8 const&)>>{
        {"Exception", thrower<Zel::Exception>()},
        {"NoTypeNodeException", thrower<Zel::NoTypeNodeException>()},
        {"TypeException", thrower<Zel::TypeException>()},
        {"IllegalNameException", thrower<Zel::IllegalNameException>()},
        {"NameInUseException", thrower<Zel::NameInUseException>()},
        {"UnknownAttrException", thrower<Zel::UnknownAttrException>()},
        {"ConstException", thrower<Zel::ConstException>()},
        {"NonwritableAttrException", thrower<Zel::NonwritableAttrException>()},
        {"NondeletableAttrException", thrower<Zel::NondeletableAttrException>()},
        {"NoImplementationException", thrower<Zel::NoImplementationException>()},
        {"RpcException", thrower<Zel::RpcException>()},
        {"RpcConnectionException", thrower<Zel::RpcConnectionException>()},
        {"RangeException", thrower<Zel::RangeException>()},
        {"MemoryException", thrower<Zel::MemoryException>()},
        {"InternalException", thrower<Zel::InternalException>()},
        {"PermissionException", thrower<Zel::PermissionException>()},
        {"OpNotSupportedException", thrower<Zel::OpNotSupportedException>()},
        {"ErrnoException", [](Zel::String8 const& m) { throw Zel::ErrnoException(2, m); }},
    };
    return *m;
}

} // namespace

void Switch::fail(Zel::String8 const& kind, Zel::String8 const& message) {
    if (kind == "bad_alloc") throw std::bad_alloc();
    if (kind == "int") throw 42;
    auto it = throwers().find(kind.view());
    if (it == throwers().end()) throw Zel::RangeException("fail: unknown kind " + kind);
    it->second(message);
}

namespace {
Zel::TypeRegistration const rSwitch(&Switch::_zelType);
} // namespace

} // namespace Demo
