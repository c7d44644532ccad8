#include "Zel/Attr.h"

#include "Zel/Format.h"

namespace Zel {

void AttrHandler::refuse(ZelAttr const& a, char const* operation) {
    throw OpNotSupportedException(String8("attribute ") + a.name() + " does not support " + operation);
}

Ptr<GenericIf const> AttrHandler::get(ZelAttr const& a, GenericIf const&, GenericIf const*) const {
    refuse(a, "get");
}
void AttrHandler::set(ZelAttr const& a, GenericIf const&, GenericIf const*, GenericIf const*) const {
    refuse(a, "set");
}
Ptr<GenericIf const> AttrHandler::setArgs(ZelAttr const& a, GenericIf const&, ArgVector const&) const {
    refuse(a, "set from arguments");
}
void AttrHandler::del(ZelAttr const& a, GenericIf const&, GenericIf const*) const { refuse(a, "del"); }
bool AttrHandler::exist(ZelAttr const& a, GenericIf const&, GenericIf const*) const { refuse(a, "exist"); }
uint64_t AttrHandler::members(ZelAttr const& a, GenericIf const&) const { refuse(a, "members"); }
void AttrHandler::add(ZelAttr const& a, GenericIf const&, GenericIf const*) const { refuse(a, "add"); }
Ptr<GenericIf const> AttrHandler::addArgs(ZelAttr const& a, GenericIf const&, ArgVector const&) const {
    refuse(a, "add from arguments");
}
Ptr<GenericIf const> AttrHandler::remove(ZelAttr const& a, GenericIf const&) const { refuse(a, "remove"); }
uint64_t AttrHandler::version(ZelAttr const& a, GenericIf const&) const { refuse(a, "version"); }
AttributeIterator AttrHandler::iterator(ZelAttr const& a, GenericIf const&) const { refuse(a, "iteration"); }
AttributeIterator AttrHandler::iteratorKey(ZelAttr const& a, GenericIf const&, GenericIf const*) const {
    refuse(a, "iteration");
}
Ptr<GenericIf const> AttrHandler::call(ZelAttr const& a, GenericIf const&, ArgVector const&) const {
    refuse(a, "call");
}
void const* AttrHandler::getNative(ZelAttr const&, GenericIf const&, void*) const { return nullptr; }
bool AttrHandler::setNative(ZelAttr const&, GenericIf const&, void const*) const { return false; }
bool AttrHandler::lookupNative(ZelAttr const&, GenericIf const&, void const*, void const*&) const { return false; }
bool AttrHandler::callNative(ZelAttr const&, GenericIf const&, void const* const*, size_t, void*) const {
    return false;
}

Ptr<GenericIf const> ConstStringAttr::get(ZelAttr const&, GenericIf const&, GenericIf const*) const {
    return GenericIfTraits<String8>::to(String8(text_), true);
}

Ptr<GenericIf const> ConstBoolAttr::get(ZelAttr const&, GenericIf const&, GenericIf const*) const {
    return GenericIfTraits<bool>::to(value_, true);
}

void throwArgumentCount(ZelAttr const& a, size_t want, size_t got) {
    throw TypeException(format("%s expects %zu arguments, got %zu", a.name(), want, got));
}

} // namespace Zel
