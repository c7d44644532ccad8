// Handler calls made on a native thread (one Python has never seen): the
// thread gets one Python thread state for its life, not one per call, and
// gives it back when it ends. And the lock checks before any Python runs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <thread>

#include "module/core/Module.h"
#include "module/notify/PyClockNotifiee.h"
#include "module/notify/PyGenericIfNotifiee.h"
#include "Zel/Activity.h"
#include "Zel/Entity.h"

namespace Zel {
namespace {

int threadStates() {
    int n = 0;
    for (PyThreadState* t = PyInterpreterState_ThreadHead(PyThreadState_Get()->interp); t; t = PyThreadState_Next(t)) ++n;
    return n;
}

class NotifyThread : public ::testing::Test {
protected:
    void SetUp() override {
        if (!Py_IsInitialized()) {
            Py_Initialize();
            PyEval_InitThreads();
        }
        GilEnsure gil;
        PyObject* d = PyModule_GetDict(PyImport_AddModule("__main__"));
        PyRef r(PyRun_String("notify_calls = []\ndef notify_tick():\n    notify_calls.append(1)\n"
                             "def notify_pair(name, value):\n    notify_calls.append((name, value))\n",
                             Py_file_input, d, d));
        ASSERT_TRUE(r);
        handle_ = pyObjHandleFactory(PyDict_GetItemString(d, "notify_tick"), false);
        pairHandle_ = pyObjHandleFactory(PyDict_GetItemString(d, "notify_pair"), false);
    }
    void TearDown() override {
        GilEnsure gil;
        handle_ = nullptr;
        pairHandle_ = nullptr;
    }
    // Runs `body` on a new native thread holding the activity lock; checks
    // the thread states while the thread waits after `body`, and after it
    // ended. Call with the interpreter lock held.
    template <class Body>
    void onNativeThread(Body body, Py_ssize_t expectedCalls) {
        int const before = threadStates();
        Py_ssize_t const callsBefore = calls();
        std::promise<void> called, finish;
        std::future<void> finishing = finish.get_future();
        PyThreadState* saved = PyEval_SaveThread();
        std::thread native([&] {
            Lock* lock = ActivityLockAnchor::lock();
            lock->lock();
            body();
            lock->unlock();
            called.set_value();
            finishing.wait();
        });
        called.get_future().wait();
        PyEval_RestoreThread(saved);
        EXPECT_EQ(threadStates(), before + 1);
        EXPECT_EQ(calls(), callsBefore + expectedCalls);
        saved = PyEval_SaveThread();
        finish.set_value();
        native.join();
        PyEval_RestoreThread(saved);
        EXPECT_EQ(threadStates(), before);
    }
    static Py_ssize_t calls() {
        GilEnsure gil;
        return PyList_Size(PyDict_GetItemString(PyModule_GetDict(PyImport_AddModule("__main__")), "notify_calls"));
    }
    Ptr<PyObjHandle> handle_;
    Ptr<PyObjHandle> pairHandle_;
};

TEST_F(NotifyThread, NativeThreadKeepsOneThreadStateUntilItEnds) {
    GilEnsure gil;
    int const before = threadStates();
    Py_ssize_t const callsBefore = calls();
    std::promise<void> called, finish;
    std::future<void> finishing = finish.get_future();
    PyThreadState* saved = PyEval_SaveThread();
    std::thread native([&] {
        Lock* lock = ActivityLockAnchor::lock();
        lock->lock();
        // Fires once on creation, then twice more.
        Ptr<PyClockNotifiee> n = pyClockNotifieeFactory(nullptr, Clock::clock(), handle_);
        n->handleTime();
        n->handleTime();
        called.set_value();
        finishing.wait();
        n = nullptr;
        lock->unlock();
    });
    called.get_future().wait();
    PyEval_RestoreThread(saved);
    EXPECT_EQ(threadStates(), before + 1);
    EXPECT_EQ(calls(), callsBefore + 3);
    saved = PyEval_SaveThread();
    finish.set_value();
    native.join();
    PyEval_RestoreThread(saved);
    EXPECT_EQ(threadStates(), before);
}

TEST_F(NotifyThread, NativeThreadDeliveringManyAttributeNotificationsKeepsOneThreadState) {
    GilEnsure gil;
    onNativeThread(
        [&] {
            Ptr<PyGenericIfNotifiee> n = zelNew<PyGenericIfNotifiee>(nullptr, pairHandle_);
            for (int32_t i = 0; i < 1000; ++i) n->onAttribute(&Entity::_zelAttrs[0], GenericIfTraits<int32_t>::to(i));
        },
        1000);
    PyObject* list = PyDict_GetItemString(PyModule_GetDict(PyImport_AddModule("__main__")), "notify_calls");
    PyObject* last = PyList_GetItem(list, PyList_Size(list) - 1);
    EXPECT_STREQ(PyString_AsString(PyTuple_GetItem(last, 0)), "name");
    EXPECT_EQ(PyInt_AsLong(PyTuple_GetItem(last, 1)), 999);
}

// The value reaches Python as a builtin or as a handle to an entity: both
// conversions copy framework references, which must happen while the
// activity lock is still held, or they race with the activity thread's own
// count changes on the same objects.
TEST_F(NotifyThread, ValueIsConvertedWhileTheActivityLockIsHeld) {
    GilEnsure gil;
    struct Checking {
        Checking() { enableSmartPtrLockCheck = true; }
        ~Checking() { enableSmartPtrLockCheck = false; }
    };
    uint64_t const failuresBefore = smartPtrLockCheckFailures();
    {
        Checking checking;
        onNativeThread(
            [&] {
                Ptr<PyGenericIfNotifiee> n = zelNew<PyGenericIfNotifiee>(nullptr, pairHandle_);
                n->onAttribute(&Entity::_zelAttrs[0], GenericIfTraits<int32_t>::to(7));
                Ptr<ActivityConfig> entity = zelNew<ActivityConfig>(Name("converted"));
                Ptr<GenericIf const> g(entity->fwkType()->genericIf(entity.ptr(), true));
                n->onAttribute(&Entity::_zelAttrs[0], g);
            },
            2);
    }
    EXPECT_EQ(smartPtrLockCheckFailures(), failuresBefore);
}

// A native thread whose state an enclosing PyGILState_Ensure made keeps it
// past the matching release, and a callback entered with the interpreter
// lock held returns with both locks held.
TEST_F(NotifyThread, ThreadStateOutlivesTheEnsureThatMadeIt) {
    GilEnsure gil;
    onNativeThread(
        [&] {
            Ptr<PyClockNotifiee> n = pyClockNotifieeFactory(nullptr, nullptr, handle_);
            PyThreadState* made;
            {
                GilEnsure outer;
                made = PyGILState_GetThisThreadState();
                n->handleTime();
                EXPECT_TRUE(ActivityLockAnchor::lock()->heldByMe());
                EXPECT_EQ(_PyThreadState_Current, made);
            }
            EXPECT_EQ(PyGILState_GetThisThreadState(), made);
            n->handleTime();
            n = nullptr;
        },
        2);
}

// A thread state kept across a finalisation is not used again: the
// thread's next callback, in the new interpreter, gets a new one, which
// goes when the thread ends. In a child process of its own (it restarts
// Python).
TEST_F(NotifyThread, KeptThreadStateEndsWithTheInterpreter) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto restart = [&] {
        Ptr<PyObjHandle> handle = handle_;
        std::promise<void> firstDone, secondGo;
        std::future<void> second = secondGo.get_future();
        auto callOnce = [&] {
            Lock* lock = ActivityLockAnchor::lock();
            lock->lock();
            pyClockNotifieeFactory(nullptr, nullptr, handle)->handleTime();
            lock->unlock();
        };
        PyThreadState* saved = PyEval_SaveThread();
        std::thread native([&] {
            callOnce();
            firstDone.set_value();
            second.wait();
            callOnce();
        });
        firstDone.get_future().wait();
        PyEval_RestoreThread(saved);
        handle = handle_ = pairHandle_ = nullptr;
        Py_Finalize();
        SetUp();
        handle = handle_;
        saved = PyEval_SaveThread();
        secondGo.set_value();
        native.join();
        PyEval_RestoreThread(saved);
        std::_Exit(calls() == 1 && threadStates() == 1 ? 0 : 1);
    };
    EXPECT_EXIT(restart(), ::testing::ExitedWithCode(0), "");
}

TEST_F(NotifyThread, HandlerRunsOnlyWhenTheActivityLockCanBeReleased) {
    Lock* lock = ActivityLockAnchor::lock();
    ASSERT_TRUE(lock->lock());
    Ptr<PyClockNotifiee> n = pyClockNotifieeFactory(nullptr, nullptr, handle_);
    lock->releasableIs(false);
    Py_ssize_t const callsBefore = calls();
    for (bool held : {true, false}) {
        if (!held) {
            lock->releasableIs(true);
            lock->unlock();
        }
        try {
            n->handleTime();
            ADD_FAILURE() << "no exception, held " << held;
        } catch (InternalException const& e) {
            EXPECT_EQ(e.message(), String8("Lock Protocol exception -- unlocking an unreleasable lock"));
        }
    }
    EXPECT_EQ(calls(), callsBefore);
    ASSERT_TRUE(lock->lock());
    n = nullptr;
    lock->unlock();
}

} // namespace
} // namespace Zel
