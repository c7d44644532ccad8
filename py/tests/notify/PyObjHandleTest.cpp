// PyObjHandle's ownership of an adopted Python reference (one it takes
// itself: _Zel.handle in test_module_types).
#include "Support.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel {
namespace {

TEST(PyObjHandle, ReferenceCounts) {
    GilEnsure gil;
    PyRef o(PyList_New(0)), p(PyList_New(0));
    Py_ssize_t const base = Py_REFCNT(o.get());
    Py_INCREF(o.get());
    {
        Ptr<PyObjHandle> adopted = pyObjHandleFactory(o.get(), true);
        EXPECT_EQ(Py_REFCNT(o.get()), base + 1);
        // Adopting another object drops the old reference, takes none.
        Py_INCREF(p.get());
        adopted->pyObjectIs(p.get());
        EXPECT_EQ(Py_REFCNT(o.get()), base);
        EXPECT_EQ(Py_REFCNT(p.get()), 2);
    }
    EXPECT_EQ(Py_REFCNT(p.get()), 1);
    EXPECT_FALSE(pyObjHandleFactory(nullptr, false)->pyObject());
    EXPECT_EQ(typeNode("Zel::PyObjHandle")->baseType(), &PtrInterface::_zelType);
    EXPECT_EQ(typeNode("Zel::PyObjectPtr"), &PyObjectPtrType::_zelType);
    EXPECT_EQ(ZelTypeOf<PyObject*>::get(), &PyObjectPtrType::_zelType);
}

} // namespace
} // namespace Zel
