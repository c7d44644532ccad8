"""Every interactive example (>>>) in the README and docs/ runs as written."""

import doctest
import glob
import os
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


class DocsExamples(unittest.TestCase):
    def test_examples_run_as_written(self):
        docs = [os.path.join(ROOT, "README.md")] + sorted(glob.glob(os.path.join(ROOT, "docs", "*.md")))
        tried = 0
        for doc in docs:
            failed, attempted = doctest.testfile(doc, module_relative=False)
            self.assertEqual(failed, 0, doc)
            tried += attempted
        self.assertGreater(tried, 20)


if __name__ == "__main__":
    unittest.main()
