// Handler calls made on a native thread (one Python has never seen): the
// thread gets one Python thread state for its life, not one per call, and
// gives it back when it ends. And the lock checks before any Python runs.
#include <cstdlib>
#include <future>
#include <thread>

#include "Support.h"
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

PyObject* calls() { return PyDict_GetItemString(zeltest::mainDict(), "notify_calls"); }

class NotifyThread : public ::testing::Test {
protected:
    void SetUp() override {
        GilEnsure gil;
        ASSERT_TRUE(zeltest::run("notify_calls = []\ndef notify_tick():\n    notify_calls.append(1)\n"
                                 "def notify_pair(name, value):\n    notify_calls.append((name, value))\n"));
        tick_ = pyObjHandleFactory(PyDict_GetItemString(zeltest::mainDict(), "notify_tick"), false);
        pair_ = pyObjHandleFactory(PyDict_GetItemString(zeltest::mainDict(), "notify_pair"), false);
    }
    void TearDown() override {
        GilEnsure gil;
        tick_ = pair_ = nullptr;
    }
    Ptr<PyObjHandle> tick_, pair_;
};

// A thread state an enclosing PyGILState_Ensure made is kept past the
// matching release, and a callback entered with the interpreter lock held
// returns with both locks held. Then clock ticks (one on creation) and many
// attribute notifications share that one thread state. The values reach
// Python as a builtin or as a handle to an entity: both conversions copy
// framework references, which must happen while the activity lock is still
// held, or they race with the activity thread's own count changes on the
// same objects.
TEST_F(NotifyThread, NativeThreadKeepsOneThreadStateAndConvertsUnderTheLock) {
    GilEnsure gil;
    int const states = threadStates();
    uint64_t const failuresBefore = smartPtrLockCheckFailures();
    // The native thread waits after its calls, so that its thread state
    // can be counted before and after it ends.
    std::promise<void> called, finish;
    std::future<void> finishing = finish.get_future();
    std::thread native;
    {
        ReleasedGil released;
        enableSmartPtrLockCheck = true;
        native = std::thread([&] {
            Lock* lock = ActivityLockAnchor::lock();
            lock->lock();
            Ptr<PyClockNotifiee> clock = pyClockNotifieeFactory(nullptr, nullptr, tick_);
            PyThreadState* made;
            {
                GilEnsure outer;
                made = PyGILState_GetThisThreadState();
                clock->handleTime();
                EXPECT_TRUE(ActivityLockAnchor::lock()->heldByMe());
                EXPECT_EQ(compat::currentThreadState(), made);
            }
            EXPECT_EQ(PyGILState_GetThisThreadState(), made);
            clock = pyClockNotifieeFactory(nullptr, Clock::clock(), tick_);
            clock->handleTime();
            Ptr<PyGenericIfNotifiee> n = zelNew<PyGenericIfNotifiee>(nullptr, pair_);
            for (int32_t i = 0; i < 1000; ++i) n->onAttribute(&Entity::_zelAttrs[0], GenericIfTraits<int32_t>::to(i));
            Ptr<ActivityConfig> entity = zelNew<ActivityConfig>(Name("converted"));
            n->onAttribute(&Entity::_zelAttrs[0], Ptr<GenericIf const>(entity->fwkType()->genericIf(entity.ptr(), true)));
            EXPECT_EQ(PyGILState_GetThisThreadState(), made);
            lock->unlock();
            called.set_value();
            finishing.wait();
        });
        called.get_future().wait();
        enableSmartPtrLockCheck = false;
    }
    EXPECT_EQ(smartPtrLockCheckFailures(), failuresBefore);
    EXPECT_EQ(threadStates(), states + 1);
    ASSERT_EQ(PyList_Size(calls()), 1004);
    PyObject* last = PyList_GetItem(calls(), 1002);
    EXPECT_EQ(zeltest::pyStr(PyTuple_GetItem(last, 0)), "name");
    EXPECT_EQ(compat::intValue(PyTuple_GetItem(last, 1)), 999);
    {
        ReleasedGil released;
        finish.set_value();
        native.join();
    }
    EXPECT_EQ(threadStates(), states);
}

// A thread state kept across a finalisation is not used again: the
// thread's next callback, in the new interpreter, gets a new one, which
// goes when the thread ends. In a child process of its own (it restarts
// Python).
TEST_F(NotifyThread, KeptThreadStateEndsWithTheInterpreter) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto restart = [&] {
        Ptr<PyObjHandle> handle = tick_;
        std::promise<void> firstDone, secondGo;
        std::future<void> second = secondGo.get_future();
        auto callOnce = [&] {
            Lock* lock = ActivityLockAnchor::lock();
            lock->lock();
            pyClockNotifieeFactory(nullptr, nullptr, handle)->handleTime();
            lock->unlock();
        };
        std::thread native;
        {
            ReleasedGil released;
            native = std::thread([&] {
                callOnce();
                firstDone.set_value();
                second.wait();
                callOnce();
            });
            firstDone.get_future().wait();
        }
        handle = tick_ = pair_ = nullptr;
        Py_Finalize();
        Py_Initialize();
        compat::initThreads();
        SetUp();
        handle = tick_;
        {
            ReleasedGil released;
            secondGo.set_value();
            native.join();
        }
        std::_Exit(PyList_Size(calls()) == 1 && threadStates() == 1 ? 0 : 1);
    };
    EXPECT_EXIT(restart(), ::testing::ExitedWithCode(0), "");
}

TEST_F(NotifyThread, HandlerRunsOnlyWhenTheActivityLockCanBeReleased) {
    Lock* lock = ActivityLockAnchor::lock();
    ASSERT_TRUE(lock->lock());
    Ptr<PyClockNotifiee> n = pyClockNotifieeFactory(nullptr, nullptr, tick_);
    auto refusal = [&] { return zeltest::message<InternalException>([&] { n->handleTime(); }); };
    lock->releasableIs(false);
    EXPECT_EQ(refusal(), "Lock Protocol exception -- unlocking an unreleasable lock");   // held, unreleasable
    lock->releasableIs(true);
    lock->unlock();
    EXPECT_EQ(refusal(), "Lock Protocol exception -- unlocking an unreleasable lock");   // not held
    GilEnsure gil;
    EXPECT_EQ(PyList_Size(calls()), 0);
    ASSERT_TRUE(lock->lock());
    n = nullptr;
    lock->unlock();
}

} // namespace
} // namespace Zel
