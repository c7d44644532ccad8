// Handler calls made on a native thread (one Python has never seen): the
// thread gets one Python thread state for its life, not one per call, and
// gives it back when it ends. And the lock checks before any Python runs.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "../module/Module.h"
#include "../module/PyClockNotifiee.h"

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
        PyRef r(PyRun_String("notify_calls = []\ndef notify_tick():\n    notify_calls.append(1)\n", Py_file_input, d, d));
        ASSERT_TRUE(r);
        handle_ = pyObjHandleFactory(PyDict_GetItemString(d, "notify_tick"), false);
    }
    void TearDown() override {
        GilEnsure gil;
        handle_ = nullptr;
    }
    static Py_ssize_t calls() {
        GilEnsure gil;
        return PyList_Size(PyDict_GetItemString(PyModule_GetDict(PyImport_AddModule("__main__")), "notify_calls"));
    }
    Ptr<PyObjHandle> handle_;
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
