// The ptr getter of a GifPtr runs without the activity lock, on any Python
// thread, while other threads change reference counts under that lock and
// read the process-wide lock-check switch as they do. So the getter must
// change no count (with the check on, a debug build would abort) and leave
// the switch as it found it, whether it answers or refuses (writing it at
// all is a data race, which the soak test shows under ThreadSanitizer).
#include "Support.h"
#include "Zel/Activity.h"
#include "Zel/Entity.h"

namespace Zel {
namespace {

// Framework references are made and dropped with the activity lock held, as _Zel does.
struct Locked {
    Lock* lock = ActivityLockAnchor::lock();
    bool taken = lock->lock();
    ~Locked() {
        if (taken) lock->unlock();
    }
};

TEST(GifPtr, AddressReadsWithTheLockCheckOnAndLeavesItOn) {
    GilEnsure gil;
    Ptr<ActivityConfig> entity;
    PyObject* object;
    PyObject* value;
    {
        Locked locked;
        entity = zelNew<ActivityConfig>(Name("addressed"));
        object = MakeFwkPyGenericIf(Ptr<GenericIf const>(entity->fwkType()->genericIf(entity.ptr(), false)));
        value = MakeFwkPyGenericIf(GenericIfTraits<int32_t>::to(7));
    }
    ASSERT_TRUE(object && value);
    enableSmartPtrLockCheck = true;
    PyRef address(PyObject_GetAttrString(object, "ptr"));
    bool const onAfterAddress = enableSmartPtrLockCheck;
    PyRef refused(PyObject_GetAttrString(value, "ptr"));
    bool const onAfterRefusal = enableSmartPtrLockCheck, typeError = PyErr_ExceptionMatches(PyExc_TypeError);
    enableSmartPtrLockCheck = false;
    PyErr_Clear();

    ASSERT_TRUE(address);
    EXPECT_EQ(PyLong_AsVoidPtr(address.get()), dynamic_cast<void*>(static_cast<PtrInterface*>(entity.ptr())));
    EXPECT_FALSE(refused);
    EXPECT_TRUE(typeError);
    EXPECT_TRUE(onAfterAddress);
    EXPECT_TRUE(onAfterRefusal);
    Locked locked;
    Py_DECREF(object);
    Py_DECREF(value);
    entity = nullptr;
}

} // namespace
} // namespace Zel
