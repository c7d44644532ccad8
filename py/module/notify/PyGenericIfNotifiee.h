// Zel::PyGenericIfNotifiee: the attribute notifiee made by GifPtr's
// newNotifiee. Each notification that passes the filter calls the Python
// handler with (attribute name, new value).
#pragma once

#include <Python.h>

#include "module/core/EntryPoint.h"
#include "module/notify/PyGenericIfNotifieeBase.h"

namespace Zel {

class ZEL_API PyGenericIfNotifiee : public PyGenericIfNotifieeBase {
public:
    using PyGenericIfNotifieeBase::PyGenericIfNotifieeBase;

    // Runs with the activity lock held; releases it around the Python call.
    // A handler that raises ends the process.
    void onAttribute(ZelAttr const* attr, Ptr<GenericIf const> const& value) override;

private:
    // The handler's name argument for the attribute notified last (a
    // borrowed reference of notifieeAttrName's cache), used with the
    // interpreter lock held; notifications mostly repeat one attribute.
    PyObject* name(ZelAttr const* attr);

    ZelAttr const* nameAttr_ = nullptr;
    PyObject* name_ = nullptr;
    unsigned nameLife_ = 0;
};

} // namespace Zel

// GifPtr method newNotifiee(handler, activity): the body of its entry point.
Zel::PyResult FwkPyGenericIf_newNotifiee(Zel::GilHeld gil, PyObject* self, PyObject* args);
