// Bulk reads of a collection attribute, a batch per hold of the activity
// lock (see BatchRead.h).
#include "module/attributes/BatchRead.h"

#include <new>
#include <utility>
#include <vector>

#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"

using Zel::BatchCursor;
using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::NativePhase;
using Zel::PyResult;

namespace {

enum Mode : int { keys = 0, values = 1, items = 2 };

// New references to the `n` builtins of `type` at `from`, in `to`; false
// with a Python error set (and nothing left in `to`) when one fails.
bool convertBuiltins(GilHeld gil, Zel::ZelType const* type, void const* const* from, Py_ssize_t n, PyObject** to) {
    Py_ssize_t made = 0;
    Zel::native::visitBuiltin(type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (; made < n; ++made) {
            to[made] = Zel::native::toPython(gil, *static_cast<T const*>(from[made]));
            if (!to[made]) break;
        }
        return true;
    });
    if (made == n) return true;
    for (Py_ssize_t i = 0; i < made; ++i) Py_DECREF(to[i]);
    return false;
}

// The list of a batch from the converted keys and members (those the mode
// uses); takes their references.
PyResult assemble(GilHeld gil, int mode, Py_ssize_t n, PyObject** k, PyObject** v) {
    Zel::PyRef list(PyList_New(n));
    bool ok = static_cast<bool>(list);
    for (Py_ssize_t i = 0; i < n; ++i) {
        PyObject* member = mode == keys ? k[i] : mode == values ? v[i] : nullptr;
        if (mode == items) {
            member = ok ? PyTuple_New(2) : nullptr;
            if (member) {
                PyTuple_SET_ITEM(member, 0, k[i]);
                PyTuple_SET_ITEM(member, 1, v[i]);
            } else {
                Py_DECREF(k[i]);
                Py_DECREF(v[i]);
            }
        }
        if (ok && member) {
            PyList_SET_ITEM(list.get(), i, member);
            continue;
        }
        ok = false;   // the list (empty slots included) goes with the references it holds
        Py_XDECREF(member);
    }
    return ok ? PyResult::of(gil, list.release()) : PyResult::failed();
}

// A batch of a collection whose keys and members are builtins, converted
// where they lie (the activity lock, held until the frame ends, keeps
// them there). False with nothing done when its iterator has no such step.
bool readBuiltins(NativePhase& phase, BatchCursor& c, PyResult& result) {
    Zel::ZelType const* keyType = c.attr->indexType();
    Zel::ZelType const* memberType = c.attr->memberType();
    if (!keyType || !keyType->isBuiltinType() || !memberType || !memberType->isBuiltinType()) return false;
    void const* keyAt[Zel::kBatchMembers];
    void const* memberAt[Zel::kBatchMembers];
    Py_ssize_t n = 0;
    int stepped = 1;
    while (n < Zel::kBatchMembers && (stepped = c.it.impl()->nextNative(keyAt[n], memberAt[n])) > 0) ++n;
    if (stepped < 0 && n == 0) return false;
    c.done = stepped == 0;
    result = phase.finish([&](GilHeld gil) {
        PyObject* k[Zel::kBatchMembers];
        PyObject* v[Zel::kBatchMembers];
        if (c.mode != values && !convertBuiltins(gil, keyType, keyAt, n, k)) return PyResult::failed();
        if (c.mode != keys && !convertBuiltins(gil, memberType, memberAt, n, v)) {
            if (c.mode == items) {
                for (Py_ssize_t i = 0; i < n; ++i) Py_DECREF(k[i]);
            }
            return PyResult::failed();
        }
        return assemble(gil, c.mode, n, k, v);
    });
    return true;
}

// Any other batch: the framework's keys and members, then their
// conversions, as _Zel.GenericIfIterator makes them.
PyResult readGeneral(NativePhase& phase, BatchCursor& c) {
    std::vector<std::pair<Zel::Ptr<Zel::GenericIf const>, Zel::Ptr<Zel::GenericIf const>>> read;
    read.reserve(static_cast<size_t>(Zel::kBatchMembers));
    while (static_cast<Py_ssize_t>(read.size()) < Zel::kBatchMembers && c.it.valid()) {
        Zel::Ptr<Zel::GenericIf const> key, value;
        if (c.mode != values) key = c.it.key();
        if (c.mode != keys) value = c.it.value();
        c.it.advance();
        read.emplace_back(std::move(key), std::move(value));
    }
    c.done = !c.it.valid();
    return phase.finish([&](GilHeld gil) {
        std::vector<PyObject*> k(read.size(), nullptr), v(read.size(), nullptr);
        for (size_t i = 0; i < read.size(); ++i) {
            PyResult kr = c.mode != values ? Zel::toPython(gil, read[i].first) : PyResult::failed();
            PyResult vr = c.mode != keys && (kr || c.mode == values) ? Zel::toPython(gil, read[i].second)
                                                                      : PyResult::failed();
            k[i] = kr.raw();
            v[i] = vr.raw();
            if ((c.mode != values && !kr) || (c.mode != keys && !vr)) {
                for (PyObject* o : k) Py_XDECREF(o);
                for (PyObject* o : v) Py_XDECREF(o);
                return PyResult::failed();
            }
        }
        return assemble(gil, c.mode, static_cast<Py_ssize_t>(read.size()), k.data(), v.data());
    });
}

} // namespace

Zel::PyStatus Zel::batchStart(GilHeld gil, PyObject* self, BatchCursor& cursor) {
    if (static_cast<unsigned>(cursor.mode) > items) {
        PyErr_SetString(PyExc_ValueError, "Invalid iterator mode");
        return PyStatus::failed();
    }
    ZelAttr const* attr = cursor.attr;
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        phase.stageIs("error in iter : ");
        cursor.it = attr->genericIfIterator(gifOf(self));
        return phase.finish([](GilHeld) { return PyStatus::ok(); });
    });
}

PyResult Zel::batchRead(GilHeld gil, BatchCursor& cursor) {
    if (cursor.done || !cursor.it.impl()) {
        cursor.done = true;
        return PyResult::of(gil, PyList_New(0));
    }
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        PyResult result = PyResult::failed();
        if (readBuiltins(phase, cursor, result)) return result;
        return readGeneral(phase, cursor);
    });
}

void Zel::batchEnd(GilHeld gil, BatchCursor& cursor, PyObject* owner) {
    if (!cursor.it.impl()) return;
    // Dropping the object reference may destroy framework objects, which
    // expects the activity lock.
    if (!EntryPoint::run(gil, Activity{0, {}}, [&](NativePhase&) {
            cursor.it.reset();
            return PyStatus::ok();
        })) {
        new AttributeIterator(std::move(cursor.it));
        PyErr_WriteUnraisable(owner);
    }
}
