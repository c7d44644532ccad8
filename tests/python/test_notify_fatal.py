"""A Python handler that raises inside a notification ends the process:
the fixed message, the Python traceback, then abort (run in children)."""
import unittest

import children

ATTRIBUTE_CHILD = r"""
import Zel, ZelDemo, _Zel
T = _Zel.typeNode("Demo::AllTypes")
obj = _Zel.newGenericIf(T, ("boom",))
def handler(name, value):
    raise ValueError("bad value %r" % (value,))
n = obj.newNotifiee(_Zel.handle(handler), None)
obj.attributeSingletonIs(T.attr("i32"), 5)
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
                 "PyGenericIfNotifiee::onAttribute handler raised an exception\nTraceback", "ValueError: bad value 5"),
                ("CLOCK_CHILD", CLOCK_CHILD,
                 "PyClockNotifiee::handleNotification's handler raised an exception\nTraceback", "KeyError: 'tick'")):
            rc, out, err = children.python(name, child)
            self.assertEqual((name, rc, out), (name, -6, ""), err)
            self.assertIn(message, err)
            self.assertIn(error, err)


if __name__ == "__main__":
    unittest.main()
