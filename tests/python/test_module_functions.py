"""Module functions: roots, singletons, handles, tracing, external info,
the activity loop; and a long run leaves no references or objects behind."""
import os
import subprocess
import sys
import tempfile
import time
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
import _ZelTestHelper as helper


class Roots(unittest.TestCase):
    def test_roots_and_singletons(self):
        for f, name in ((_Zel.globalDir, "Zel::Dir"), (_Zel.globalNboAttrLogConnectionDir, "Zel::ConnectionDir"),
                        (_Zel.globalNboAttrLogDemuxerManager, "Zel::NboAttrLog::DemuxerManager")):
            self.assertEqual(f().typeName(), name)
            self.assertEqual(f().ptr, f().ptr)
        cfg = _Zel.singleton("Zel::ActivityManagerConfig")
        self.assertEqual(cfg.typeName(), "Zel::ActivityManagerConfig")
        with self.assertRaises(TypeError) as cm:
            _Zel.singleton("No::SuchType")
        self.assertEqual(str(cm.exception), "Type No::SuchType not found")
        self.assertIs(_Zel.typeNode("Demo::Switch"), _Zel.typeNode("Demo::Switch"))
        self.assertRaises(TypeError, _Zel.singleton, 5)

    def test_handle_holds_one_reference(self):
        o = object()
        before = sys.getrefcount(o)
        h = _Zel.handle(o)
        self.assertEqual(h.typeName(), "Zel::PyObjHandle")
        self.assertEqual(sys.getrefcount(o), before + 1)
        del h
        self.assertEqual(sys.getrefcount(o), before)


class Tracing(unittest.TestCase):
    def test_trace_calls(self):
        self.assertIs(type(_Zel.traceLineSuppressed(None, 9)), bool)
        self.assertIsNone(_Zel.trace_h(None, "file.py", 1, "fn", "a\0b", 9))
        with self.assertRaises(TypeError) as cm:
            _Zel.traceLineSuppressed(1, 9)
        self.assertEqual(str(cm.exception), "Expected a Zel::PtrInterface or None")


class ExternalInfo(unittest.TestCase):
    def test_printed_line_keeps_socket_when_zero(self):
        script = ("import _Zel\n_Zel.setexternalinfo('t', 7, 's')\n_Zel.printexternalinfo()\n"
                  "_Zel.setexternalinfo('u', 0, 'x')\n_Zel.printexternalinfo(1, 2)\n")
        out = subprocess.check_output([sys.executable, "-c", script])
        self.assertEqual(out.splitlines(), [
            "externalProcTitle=t, externallySetSocket=7, externallySetSocketName=s",
            "externalProcTitle=u, externallySetSocket=7, externallySetSocketName=s"])


class ProcessTitleAndTrace(unittest.TestCase):
    def test_title_and_trace_line_in_a_child(self):
        trace = tempfile.NamedTemporaryFile(suffix=".trace")
        script = ("import _Zel\n_Zel.setproctitle('zeltitle', 'b', 'c')\n"
                  "print open('/proc/self/comm').read().strip()\n"
                  "_Zel.trace_h(None, 'file.py', 12, 'fn', 'before\\0after', 3)\n")
        env = dict(os.environ, ZELTRACE="*/0-9", ZELTRACEFILE=trace.name)
        out = subprocess.check_output([sys.executable, "-c", script], env=env)
        self.assertEqual(out.strip(), "zeltitle b c")
        self.assertIn("before\0after", open(trace.name).read())


class ActivityLoop(unittest.TestCase):
    def test_runs_only_under_a_releasable_lock(self):
        for call in (lambda: _Zel.activityManagerExecTimeIs(0.3),
                     lambda: helper.withAnchor(4, lambda: _Zel.activityManagerExecTimeIs(0.3))):
            start = time.time()
            self.assertIsNone(call())
            self.assertGreaterEqual(time.time() - start, 0.25)
        with self.assertRaises(SystemError) as cm:
            helper.withAnchor(1 | 4, lambda: _Zel.activityManagerExecTimeIs(0.3))
        self.assertEqual(str(cm.exception), "Lock Protocol violation xxx")
        self.assertRaises(TypeError, _Zel.activityManagerExecTimeIs, "x")


class NoLeaks(unittest.TestCase):
    def test_many_operations_leave_counts_unchanged(self):
        T = _Zel.typeNode("Demo::Switch")
        A = T.attr
        tracker = _Zel.singleton("Zel::AllocTracker")
        live = _Zel.typeNode("Zel::AllocTracker").attr("liveCount")
        key, value, obj = "k", "v", object()
        sw = _Zel.newGenericIf(T, ("leaks",))

        def one_round():
            sw.attributeCollectionIs(A("vlan"), 1, value)
            sw.attributeCollection(A("vlan"), 1)
            try:
                sw.attributeCollection(A("intf"), key)
            except KeyError:
                pass
            sw.attributeCollectionIs(A("intf"), None, (key,))
            sw.attributeAdd(A("log"), value)
            sw.attributeRemove(A("log"))
            sw.attributeCollectionDel(A("intf"), key)
            list(drain(sw.attributeIter(A("vlan"), 2)))
            sw.attributeFunction(A("add"), (1, 2))
            try:
                sw.attributeFunction(A("fail"), ("RangeException", value))
            except IndexError:
                pass
            _Zel.handle(obj)
            _Zel.newGenericIf(T, (key,))

        def counts():
            return ([sys.getrefcount(x) for x in (key, value, obj, sw)],
                    [tracker.attributeCollection(live, n) for n in ("Demo::Interface", "Zel::PyObjHandle")])

        one_round()
        before = counts()
        for _ in range(1000):
            one_round()
        self.assertEqual(counts(), before)


def drain(it):
    while True:
        try:
            yield next(it)
        except StopIteration:
            return


if __name__ == "__main__":
    unittest.main()
