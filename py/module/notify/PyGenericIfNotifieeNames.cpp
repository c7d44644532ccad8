#include "module/notify/PyGenericIfNotifieeNames.h"

#include <unordered_map>

#include "module/notify/Callback.h"

namespace Zel {

namespace {

// Attribute descriptors are static and live for the process, like the
// attribute wrappers of ZelTypes.cpp, so their addresses are lasting keys.
// Guarded by the interpreter lock.
struct NameCache {
    unsigned life = 0;
    std::unordered_map<ZelAttr const*, PyObject*> names;   // one reference each
};

NameCache& cache() {
    static NameCache* c = new NameCache;   // outlives every notifiee
    return *c;
}

} // namespace

PyObject* notifieeAttrName(ZelAttr const* attr) {
    NameCache& c = cache();
    if (c.life != interpreterLife()) {
        // Finalisation freed the strings of the last life.
        c.names.clear();
        c.life = interpreterLife();
    }
    auto it = c.names.find(attr);
    if (it != c.names.end()) return it->second;
    PyObject* name = Zel::compat::interned(attr->name());
    if (name) c.names.emplace(attr, name);
    return name;
}

} // namespace Zel
