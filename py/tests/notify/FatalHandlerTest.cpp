// A handler that raises ends the process; the crash report carries the
// Python side: the stack of the code whose change was being notified. Its
// frames are read through different means on 2.7, 3.8, 3.9 and 3.11 on,
// so this runs on each interpreter (in a child process of its own).
#include "Support.h"

using namespace zeltest;

namespace {

TEST(FatalHandler, CrashReportShowsThePythonStack) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto raiseInHandler = [] {
        Zel::GilEnsure gil;
        run("import _Zel\n"
            "T = _Zel.typeNode('Demo::AllTypes')\n"
            "obj = _Zel.newGenericIf(T, ('fatal',))\n"
            "def handler(name, value):\n"
            "    raise ValueError('handler refused %d' % value)\n"
            "n = obj.newNotifiee(_Zel.handle(handler), None)\n"
            "def change():\n"
            "    obj.attributeSingletonIs(T.attr('i32'), 5)\n"
            "change()\n");
    };
    EXPECT_DEATH(raiseInHandler(),
                 "ValueError: handler refused 5\n(.|\n)*"
                 "Python traceback \\(most recent call FIRST\\):\n"
                 "  File \"<string>\", line 8, in change\n"
                 "  File \"<string>\", line 9, in <module>\n");
}

} // namespace
