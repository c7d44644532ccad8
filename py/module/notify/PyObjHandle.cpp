#include "ZelPy/PyObjHandle.h"

#include "support/Gil.h"
#include "Zel/Attr.h"
#include "Zel/Format.h"
#include "Zel/TypeOps.h"

namespace Zel {

PyObjHandle::PyObjHandle(PyObject* pyObject, bool passedRef)
    : pyObject_(pyObject), passedRef_(passedRef) {
    handleInit();
}

PyObjHandle::~PyObjHandle() {
    // No exception may leave a destructor; a throwing deallocation ends the
    // process here, as it would from any other destructor.
    handleDelete();
}

void PyObjHandle::pyObjectIs(PyObject* o) {
    GilEnsure gil;
    // The old reference goes first, whatever passedRef says.
    if (PyObject* old = pyObject_) Py_DECREF(old);
    pyObject_ = o;
    if (!passedRef_ && o) Py_INCREF(o);
}

void PyObjHandle::handleInit() {
    GilEnsure gil;
    PyObject* o = pyObject_;
    pyObject_ = nullptr;
    pyObjectIs(o);
}

void PyObjHandle::handleDelete() {
    if (!pyObject_) return;
    GilEnsure gil;
    Py_DECREF(pyObject_);
}

Ptr<PyObjHandle> pyObjHandleFactory(PyObject* pyObject, bool passedRef) {
    Ptr<PyObjHandle> h = zelNew<PyObjHandle>(pyObject, passedRef);
    if (!h) throw RangeException("null ValidPtr");
    return h;
}

namespace {

// "Zel::PyObjectPtr": a raw pointer, hashed, printed and compared by address.
uint32_t pyObjectPtrHash(GenericIf const& g) { return zelHashU32(*static_cast<PyObject* const*>(g.valuePtr())); }
String8 pyObjectPtrStrep(GenericIf const& g) {
    return format("PyObjectPtr(%p)", static_cast<void*>(*static_cast<PyObject* const*>(g.valuePtr())));
}
bool pyObjectPtrEqual(GenericIf const& a, GenericIf const& b) {
    return *static_cast<PyObject* const*>(a.valuePtr()) == *static_cast<PyObject* const*>(b.valuePtr());
}
Ptr<GenericIf> pyObjectPtrConstruct(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.empty()) return makeValue<PyObject*>(type, nullptr, isConst);
    if (args.size() != 1) throwConstructorCount(type, 1, args.size());
    return makeValue<PyObject*>(type, &GenericIfTraits<PyObject*>::from(args[0].ptr()), isConst);
}
constexpr TypeOps kPyObjectPtrOps{&makeValue<PyObject*>, &pyObjectPtrConstruct, &pyObjectPtrHash,
                                  &pyObjectPtrStrep, &pyObjectPtrEqual};

// Reflective construction goes through the factory, like every other
// creation of a handle.
Ptr<GenericIf> constructHandle(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.size() != 2) throwConstructorCount(type, 2, args.size());
    Ptr<PyObjHandle> h = pyObjHandleFactory(GenericIfTraits<PyObject*>::from(args[0].ptr()),
                                            GenericIfTraits<bool>::from(args[1].ptr()));
    return makeObject(h->fwkType(), h.ptr(), isConst);
}
constexpr TypeOps kHandleOps{&makeObject, &constructHandle, &objectHash, &objectStrep, &objectEqual};

constexpr AccessorAttr<&PyObjHandle::passedRef> kPassedRef;
constexpr MethodAttr<&PyObjHandle::handleDelete> kHandleDelete;
constexpr MethodAttr<&PyObjHandle::handleInit> kHandleInit;
constexpr ArgDesc kCtor[] = {{"pyObject", "Zel::PyObjectPtr"}, {"passedRef", "bool"}, {nullptr, nullptr}};

} // namespace

constexpr uint32_t kRefuses = ZelAttr::handlerRefuses_;

constinit ZelType const PyObjectPtrType::_zelType("Zel::PyObjectPtr", sizeof(PyObject*), nullptr,
                                                   ZelType::isValue_, nullptr, 0, nullptr,
                                                   &kPyObjectPtrOps);

constinit ZelType const PyObjHandle::_zelType("Zel::PyObjHandle", sizeof(PyObjHandle),
                                              &PtrInterface::_zelType, ZelType::hasOwnPtrInterface_,
                                              PyObjHandle::_zelAttrs, 3, kCtor, &kHandleOps);
// Every operation but a read of passedRef and a call of the functions is
// refused as not supported.
constinit ZelAttr const PyObjHandle::_zelAttrs[] = {
    {"passedRef", 131, &PyObjHandle::_zelType, &Builtin<bool>::_zelType, ZelAttr::readable_ | kRefuses, &kPassedRef},
    {"handleDelete", 132, &PyObjHandle::_zelType, nullptr, ZelAttr::isFunction_ | kRefuses, &kHandleDelete},
    {"handleInit", 133, &PyObjHandle::_zelType, nullptr, ZelAttr::isFunction_ | kRefuses, &kHandleInit},
};

namespace {
TypeRegistration const rPyObjectPtr(&PyObjectPtrType::_zelType);
TypeRegistration const rPyObjHandle(&PyObjHandle::_zelType);
} // namespace

} // namespace Zel
