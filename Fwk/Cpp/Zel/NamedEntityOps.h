// Reflective construction of entities made from one name, given either as
// a Zel::Name or as a Zel::String (ActivityConfig, TraceHandle, ...).
#pragma once

#include "Zel/TypeOps.h"
#include "Zel/Values.h"

namespace Zel {

// The name carried by `g`; throws TypeException for any other type.
ZEL_API Name nameFromArg(GenericIf const* g);

// TypeOps::construct for a type whose objects come from `Make(name)`.
template <class T, Ptr<T> (*Make)(Name const&)>
Ptr<GenericIf> constructFromName(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.size() != 1) throwConstructorCount(type, 1, args.size());
    Ptr<T> obj = Make(nameFromArg(args[0].ptr()));
    return makeObject(obj->fwkType(), obj.ptr(), isConst);
}

template <class T, Ptr<T> (*Make)(Name const&)>
constexpr TypeOps namedEntityOps() {
    return TypeOps{&makeObject, &constructFromName<T, Make>, &objectHash, &objectStrep, &objectEqual};
}

} // namespace Zel
