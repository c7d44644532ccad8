// The functions libZelPy exports to native callers that neither _Zel's own
// use (the Python suite) nor _ZelTestHelper reaches: the interpreter lock
// released, a null attribute, a second module, the ordering helper.
#include "PyVersion.h"
#include "Support.h"

using namespace Zel;
using namespace zeltest;

namespace {

using Exports = PyTest;

// The pending error as "type: str(value)"; taken (cleared).
std::string takeError() {
    PyObject *type, *value, *trace;
    PyErr_Fetch(&type, &value, &trace);
    PyRef t(type), v(value), b(trace);
    return std::string(reinterpret_cast<PyTypeObject*>(type)->tp_name) + ": " + pyStr(value);
}

TEST_F(Exports, WhatOnlyNativeCallersReach) {
    {
        ReleasedGil released;
        GilPyErr_SetString(PyExc_ValueError, "set without the lock");
    }
    EXPECT_EQ(takeError(), pyver::builtinException("ValueError") + ": set without the lock");
    EXPECT_EQ(GenericIf_TypeAttributeString(nullptr).str(), "");
    // The backtrace type goes into _Zel only, once per process.
    PyRef fresh(PyModule_New("fresh"));
    initBacktrace(fresh.get());
    EXPECT_FALSE(PyObject_HasAttrString(fresh.get(), "Backtrace"));
    ZelType const* all = typeNode("Demo::AllTypes");
    ZelAttr const *i32 = all->attr("i32"), *peer = all->attr("peer");
    EXPECT_EQ(compareZelAttrsById(i32, peer), i32->attributeId() < peer->attributeId());
    EXPECT_EQ(compareZelAttrsById(peer, i32), peer->attributeId() < i32->attributeId());
    EXPECT_FALSE(compareZelAttrsById(i32, i32));
}

} // namespace
