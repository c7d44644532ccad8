"""zeltest_runner.py, the runner of every test module, on modules written
here: it fails one that leaves framework objects alive, naming them, and
passes one whose objects only its own references kept."""
import os
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

RUNNER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "zeltest_runner.py")

# A handler that refers to its own notifiee: the cycle goes through native
# references the garbage collector cannot see, so nothing frees it.
LEAKY = """
import unittest, _Zel, ZelDemo
ALL = _Zel.typeNode("Demo::AllTypes")

class Leaky(unittest.TestCase):
    def test_cycle_through_a_notifiee(self):
        obj = _Zel.newGenericIf(ALL, ("leaky",))
        box = []
        box.append(obj.newNotifiee(_Zel.handle(lambda name, value: box), None))
"""

# Objects held by the module, by a test case, by a failure's traceback and
# by cycles Python can collect, plus first uses of process-wide objects.
CLEAN = """
import unittest, _Zel, ZelDemo, Zel
ALL = _Zel.typeNode("Demo::AllTypes")
KEPT = _Zel.newGenericIf(ALL, ("module-global",))

class Clean(unittest.TestCase):
    def setUp(self):
        self.obj = _Zel.newGenericIf(ALL, ("on-the-case",))

    def test_holders_the_runner_drops(self):
        cycle = [_Zel.newGenericIf(_Zel.typeNode("Demo::Switch"), ("cycle",))]
        cycle.append(cycle)
        self.obj.attributeSingletonIs(ALL.attr("color"), "blue")
        self.assertEqual(self.obj.attributeSingleton(ALL.attr("color")), "blue")
        _Zel.globalDir()
        _Zel.trace_h(None, "f.py", 1, "fn", "message", 9)
        Zel.now()

    def test_failure_keeps_its_frame(self):
        local = _Zel.newGenericIf(ALL, ("in-the-frame",))
        self.assertIsNone(local if %s else None)
"""


class Runner(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()

    def tearDown(self):
        shutil.rmtree(self.dir)

    def run_module(self, name, text):
        with open(os.path.join(self.dir, name + ".py"), "w") as f:
            f.write(textwrap.dedent(text))
        p = subprocess.Popen([sys.executable, RUNNER, name], cwd=self.dir,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = p.communicate()
        return p.returncode, out + err

    def test_objects_left_alive_fail_the_module_by_type_and_count(self):
        rc, out = self.run_module("leaky_mod", LEAKY)
        self.assertEqual(rc, 1, out)
        self.assertIn("OK\n", out)   # the tests themselves passed
        self.assertIn("leaky_mod left framework objects alive", out)
        for line in ("Demo::AllTypes: 0 -> 1 (+1)", "Zel::PyGenericIfNotifiee: 0 -> 1 (+1)",
                     "Zel::PyObjHandle: 0 -> 1 (+1)"):
            self.assertIn(line, out)

    def test_references_the_runner_drops_and_process_wide_objects_pass(self):
        rc, out = self.run_module("clean_mod", CLEAN % "False")
        self.assertEqual(rc, 0, out)
        self.assertNotIn("left framework objects", out)
        rc, out = self.run_module("failing_mod", CLEAN % "True")
        self.assertEqual(rc, 1, out)
        self.assertIn("FAILED (failures=1)", out)
        self.assertNotIn("left framework objects", out)

    def test_names_select_tests_as_unittest_does(self):
        rc, out = self.run_module("pick_mod", CLEAN % "True")
        self.assertEqual(rc, 1, out)
        p = subprocess.Popen([sys.executable, RUNNER, "pick_mod.Clean.test_holders_the_runner_drops"],
                             cwd=self.dir, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = p.communicate()
        self.assertEqual(p.returncode, 0, err)
        self.assertIn("Ran 1 test", err)


if __name__ == "__main__":
    unittest.main()
