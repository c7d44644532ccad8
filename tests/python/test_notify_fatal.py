"""A Python handler that raises inside a notification ends the process:
the fixed message, the Python traceback, then abort, the crash report
showing the Python stack of the change being notified (run in children)."""
import re
import unittest

import children

ATTRIBUTE_CHILD = r"""
import Zel, ZelDemo, _Zel
T = _Zel.typeNode("Demo::AllTypes")
obj = _Zel.newGenericIf(T, ("boom",))
def handler(name, value):
    raise ValueError("bad value %r" % (value,))
n = obj.newNotifiee(_Zel.handle(handler), None)
def change():
    obj.attributeSingletonIs(T.attr("i32"), 5)
change()
print("not reached")
"""

CLOCK_CHILD = r"""
import Zel, _Zel
def handler():
    raise KeyError("tick")
n = _Zel.newGenericIf(_Zel.typeNode("Zel::PyClockNotifiee"), (None, _Zel.singleton("Zel::Clock"), _Zel.handle(handler)))
print("not reached")
"""


class Fatal(unittest.TestCase):
    def test_raising_handlers_abort_with_message_and_traceback(self):
        for name, child, message, error in (
                ("ATTRIBUTE_CHILD", ATTRIBUTE_CHILD,
                 "PyGenericIfNotifiee::onAttribute handler raised an exception\nTraceback", "ValueError: bad value 5\n"
                 ".*Python traceback \\(most recent call FIRST\\):\n  File \"<string>\", line 9, in change\n"
                 '  File "<string>", line 10, in <module>\n'),
                ("CLOCK_CHILD", CLOCK_CHILD,
                 "PyClockNotifiee::handleNotification's handler raised an exception\nTraceback", "KeyError: 'tick'")):
            rc, out, err = children.python(name, child)
            self.assertEqual((name, rc, out), (name, -6, ""), err)
            self.assertIn(message, err)
            self.assertTrue(re.search(error, err, re.S), err)


if __name__ == "__main__":
    unittest.main()
