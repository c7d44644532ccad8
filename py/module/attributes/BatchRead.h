// Bulk reads of a collection attribute (the Zel package's keys(), values(),
// items() and iteration): the framework's iterator is walked a batch of
// members at a time, each batch read and converted to Python objects under
// one hold of the activity lock, instead of one entry point per member.
// Batches are bounded, so a bulk read of a large collection keeps no other
// thread waiting for the activity lock longer than one batch takes. Between
// batches the framework's iterator is left as it is between the steps of
// a _Zel.GenericIfIterator: changes made meanwhile are met as that
// iterator meets them.
#pragma once

#include "module/core/Module.h"
#include "Zel/AttributeIterator.h"

namespace Zel {

// Members read per hold of the activity lock.
inline constexpr Py_ssize_t kBatchMembers = 1024;

// A bulk read's place in one collection attribute of one object; `mode`
// is a _Zel.IteratorMode (keys, values or items).
struct BatchCursor {
    ZelAttr const* attr = nullptr;
    int mode = 0;
    AttributeIterator it;
    bool done = false;
};

// Makes the framework's iterator of the GifPtr `self`, with the errors of
// attributeIter.
PyStatus batchStart(GilHeld gil, PyObject* self, BatchCursor& cursor);
// A new list of the next members (at most kBatchMembers), converted as the
// module's iterator converts them (keys, values or (key, value) tuples;
// entities as GifPtrs); empty, with `done` set, at the end.
PyResult batchRead(GilHeld gil, BatchCursor& cursor);
// Lets the framework's iterator go, under the activity lock; when that
// cannot be taken, the iterator is leaked and the error reported as
// unraisable for `owner`.
void batchEnd(GilHeld gil, BatchCursor& cursor, PyObject* owner);

} // namespace Zel
