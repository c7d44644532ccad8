#include "Zel/NamedEntityOps.h"

namespace Zel {

Name nameFromArg(GenericIf const* g) {
    if (g && g->type() == &Name::_zelType) return *static_cast<Name const*>(g->valuePtr());
    if (g && g->type() == &Builtin<String8>::_zelType) {
        return Name(*static_cast<String8 const*>(g->valuePtr()));
    }
    throw TypeException(String8("expected Zel::Name or Zel::String, got ") +
                        (g ? g->type()->name() : "a null value"));
}

} // namespace Zel
