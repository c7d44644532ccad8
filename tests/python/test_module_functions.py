"""Module functions, and a long run of them leaving no references or objects behind."""
import os
import sys
import tempfile
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
import children
from snapshot import live
from zelsupport import drain


class Roots(unittest.TestCase):
    def test_roots_and_singletons(self):
        for f, name in ((_Zel.globalDir, "Zel::Dir"), (_Zel.globalNboAttrLogConnectionDir, "Zel::ConnectionDir"),
                        (_Zel.globalNboAttrLogDemuxerManager, "Zel::NboAttrLog::DemuxerManager")):
            self.assertEqual(f().typeName(), name)
            self.assertEqual(f().ptr, f().ptr)
        self.assertEqual(_Zel.singleton("Zel::ActivityManagerConfig").typeName(), "Zel::ActivityManagerConfig")
        self.assertIs(_Zel.typeNode("Demo::Switch"), _Zel.typeNode("Demo::Switch"))

    def test_handle_holds_one_reference(self):
        o = object()
        before = sys.getrefcount(o)
        h = _Zel.handle(o)
        self.assertEqual((h.typeName(), h.attributeSingleton(_Zel.typeNode("Zel::PyObjHandle").attr("passedRef"))),
                         ("Zel::PyObjHandle", False))
        self.assertEqual(sys.getrefcount(o), before + 1)
        del h
        self.assertEqual(sys.getrefcount(o), before)


class ProcessWide(unittest.TestCase):
    def test_external_info_title_and_trace_in_a_child(self):
        trace = tempfile.NamedTemporaryFile(suffix=".trace")
        script = ("import _Zel\n_Zel.setexternalinfo('t', 7, 's')\n_Zel.printexternalinfo()\n"
                  "_Zel.setexternalinfo('u', 0, 'x')\n_Zel.printexternalinfo(1, 2)\n"
                  "_Zel.setproctitle('zeltitle', 'b', 'c')\nprint(open('/proc/self/comm').read().strip())\n"
                  "print('%s %s' % (_Zel.traceLineSuppressed(None, 9), _Zel.traceLineSuppressed(None, 10)))\n"
                  "print(_Zel.trace_h(None, 'file.py', 12, 'fn', 'before\\0after', 3))\n")
        env = dict(os.environ, ZELTRACE="*/0-9", ZELTRACEFILE=trace.name)
        rc, out, err = children.python("setting external info and title", script, env=env)
        self.assertEqual((rc, out.splitlines()), (0, [   # the socket is kept when set to 0
            "externalProcTitle=t, externallySetSocket=7, externallySetSocketName=s",
            "externalProcTitle=u, externallySetSocket=7, externallySetSocketName=s", "zeltitle b c", "False True",
            "None"]), err)
        self.assertIn("before\0after", open(trace.name).read())


class NoLeaks(unittest.TestCase):
    def test_many_operations_leave_counts_unchanged(self):
        T = _Zel.typeNode("Demo::Switch")
        A = T.attr
        key, value, obj = "k", "v", object()
        sw = _Zel.newGenericIf(T, ("leaks",))

        def one_round():
            sw.attributeCollectionIs(A("vlan"), 1, value)
            sw.attributeCollection(A("vlan"), 1)
            self.assertRaises(KeyError, sw.attributeCollection, A("intf"), key)
            sw.attributeCollectionIs(A("intf"), None, (key,))
            sw.attributeAdd(A("log"), value)
            sw.attributeRemove(A("log"))
            sw.attributeCollectionDel(A("intf"), key)
            drain(sw.attributeIter(A("vlan"), 2))
            sw.attributeFunction(A("add"), (1, 2))
            self.assertRaises(IndexError, sw.attributeFunction, A("fail"), ("RangeException", value))
            _Zel.handle(obj)
            _Zel.newGenericIf(T, (key,))

        def counts():
            return [sys.getrefcount(x) for x in (key, value, obj, sw)], live("Demo::Interface", "Zel::PyObjHandle")

        one_round()
        before = counts()
        for _ in range(1000):
            one_round()
        self.assertEqual(counts(), before)


if __name__ == "__main__":
    unittest.main()
