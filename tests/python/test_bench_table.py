"""The benchmark runner's arithmetic: ratios, verdicts, the exit status and
the reading of Google Benchmark reports (no timing here)."""
import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "bench"))

import native  # noqa: E402
import table  # noqa: E402
from table import Row, extra_row, floor_row, stats  # noqa: E402


class Verdicts(unittest.TestCase):
    def test_ratio_is_median_over_median_and_the_limit_is_inclusive(self):
        floor = floor_row("F", stats([10.0, 100.0, 20.0, 19.0, 21.0]))   # median 20
        at = Row("at", stats([1.0, 30.0, 99.0]), floor, 1.5)            # median 30
        above = Row("above", stats([30.5, 30.5, 30.5]), floor, 1.5)
        self.assertEqual(at.ratio(), 1.5)
        self.assertEqual((at.verdict(), above.verdict()), (table.PASS, table.MISS))
        self.assertEqual((at.value.low, at.value.high), (1.0, 99.0))

    def test_absolute_limit_without_floor(self):
        self.assertEqual(Row("m", stats([32.0] * 5, "B"), limit=32).verdict(), table.PASS)
        self.assertEqual(Row("m", stats([32.5] * 5, "B"), limit=32).verdict(), table.MISS)

    def test_missing_measure_or_floor_fails_without_a_ratio(self):
        missing_floor = Row("x", stats([1.0]), floor_row("F4", None), 1.5)
        missing_value = Row("y", None, floor_row("F", stats([1.0])), 1.5)
        zero_floor = Row("z", stats([1.0]), floor_row("F", stats([0.0])), 1.5)
        for row in (missing_floor, missing_value, zero_floor):
            self.assertIsNone(row.ratio())
            self.assertEqual(row.verdict(), table.MISSING)
        self.assertEqual(table.exit_status([missing_floor]), 1)
        self.assertIn("MISSING", table.text([missing_value]))

    def test_exit_status_counts_targets_only(self):
        floor = floor_row("F", stats([10.0]))
        ok = Row("ok", stats([10.0]), floor, 1.0)
        slow_extra = extra_row("extra", stats([1000.0]), floor)
        self.assertEqual(table.exit_status([floor, ok, slow_extra]), 0)
        self.assertEqual(table.exit_status([ok, Row("slow", stats([11.0]), floor, 1.0)]), 1)
        self.assertEqual(slow_extra.verdict(), "")

    def test_markdown_has_one_line_per_row_and_names_the_floor_by_its_tag(self):
        floor = floor_row("F2: a long description", stats([10.0]), tag="F2")
        lines = table.markdown([floor, Row("r", stats([20.0]), floor, 2.5)]).splitlines()
        self.assertEqual(len(lines), 4)
        self.assertEqual(lines[3].rstrip(" |").split(" | ")[5:9], ["F2", "2.00", "<= 2.5 x", "PASS"])

    def test_a_ratio_just_above_the_limit_does_not_print_as_the_limit(self):
        floor = floor_row("F", stats([1000.0]))
        just_above = Row("r", stats([1500.4]), floor, 1.5)
        self.assertEqual(table.cells(just_above)[6:], ("1.5004", "<= 1.5 x", table.MISS))
        self.assertEqual(table.cells(Row("r", stats([1500.0]), floor, 1.5))[6], "1.50")


class GoogleBenchmarkReports(unittest.TestCase):
    def test_repetitions_in_ns_without_aggregates_or_failures(self):
        report = {"benchmarks": [
            {"name": "BM_A/unix", "run_name": "BM_A/unix", "run_type": "iteration", "real_time": 2.0,
             "cpu_time": 1.0, "time_unit": "us"},
            {"name": "BM_A/unix", "run_name": "BM_A/unix", "run_type": "iteration", "real_time": 3.0,
             "cpu_time": 1.5, "time_unit": "us"},
            {"name": "BM_A/unix_median", "run_name": "BM_A/unix", "run_type": "aggregate", "real_time": 2.5,
             "time_unit": "us"},
            {"name": "BM_B", "run_name": "BM_B", "run_type": "iteration", "real_time": 1.0, "time_unit": "ms",
             "error_occurred": True},
        ]}
        self.assertEqual(native.parse(report), {"BM_A/unix": [2000.0, 3000.0]})
        self.assertEqual(native.parse(report, "cpu_time"), {"BM_A/unix": [1000.0, 1500.0]})

    def test_a_program_that_is_not_built_is_an_error_not_an_exception(self):
        result = native.run("/nonexistent/bin/bench_client", 5, 0.01)
        self.assertEqual((result.samples, result.error), ({}, "bench_client not built"))


if __name__ == "__main__":
    unittest.main()
