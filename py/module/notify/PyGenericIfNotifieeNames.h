// The attribute name a notifiee hands its Python handler: one interned
// string per attribute for the interpreter's life, so a notification
// neither builds a string nor hashes one, and handlers comparing names
// against literals compare pointers.
#pragma once

#include <Python.h>

#include "Zel/ZelType.h"

namespace Zel {

// A borrowed reference, valid until the interpreter is finalised; null
// with a Python error set when there is no memory. Call with the
// interpreter lock held.
PyObject* notifieeAttrName(ZelAttr const* attr);

} // namespace Zel
