"""Running the Google Benchmark programs (<build>/bin/bench_*) for bench/run.py.

Each program runs once with --benchmark_repetitions=N; its JSON report
(written to a file, so that a program with its own console output still
yields one) gives per repetition the time of one iteration: real time for
round trips, which mostly wait for the other process, CPU time for the
rest, which the machine's other work then does not inflate.
"""
import json
import os
import shutil
import subprocess
import tempfile
import threading

_UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class Result(object):
    """`samples`: {benchmark name: [ns per iteration, one per repetition]};
    `error`: why the program gave nothing (None when it ran)."""

    def __init__(self, samples, error=None):
        self.samples = samples
        self.error = error


def parse(report, clock="real_time"):
    """{name: [ns, ...]} from a Google Benchmark JSON report (a dict), by
    `clock` ("real_time" or "cpu_time"); aggregates and failed runs are
    left out."""
    samples = {}
    for b in report.get("benchmarks", []):
        if b.get("run_type", "iteration") != "iteration" or b.get("error_occurred"):
            continue
        name = b.get("run_name", b["name"])
        samples.setdefault(name, []).append(float(b[clock]) * _UNITS[b.get("time_unit", "ns")])
    return samples


def run(program, repetitions, min_time, env=None, prefix=(), clock="real_time", timeout=240, interleave=False):
    """Runs one program; never raises for a missing or failing program.
    With `interleave`, the repetitions of all its cases run in a random
    order instead of case after case, so a change of load during the run
    reaches every case alike."""
    if not os.path.exists(program):
        return Result({}, "%s not built" % os.path.basename(program))
    tmp = tempfile.mkdtemp(prefix="zelbench")
    out = os.path.join(tmp, "report.json")
    cmd = list(prefix) + [program, "--benchmark_repetitions=%d" % repetitions, "--benchmark_format=json",
                          "--benchmark_out=" + out, "--benchmark_out_format=json",
                          "--benchmark_min_time=%g" % min_time]
    if interleave:
        cmd.append("--benchmark_enable_random_interleaving=true")
    try:
        with open(os.devnull, "w") as devnull:
            try:
                proc = subprocess.Popen(cmd, stdout=devnull, stderr=subprocess.PIPE, env=env, universal_newlines=True)
            except OSError as e:
                return Result({}, "%s: %s" % (cmd[0], e.strerror))
            watchdog = threading.Timer(timeout, proc.kill)
            watchdog.start()
            try:
                err = proc.communicate()[1]
            finally:
                watchdog.cancel()
        try:
            with open(out) as f:
                samples = parse(json.load(f), clock)
        except (IOError, ValueError) as e:
            samples, err = {}, (err or "") + str(e)
        if proc.returncode != 0:
            last = (err or "").strip().splitlines()[-1:] or [""]
            return Result(samples, "%s exited with status %d %s" % (os.path.basename(program), proc.returncode,
                                                                    last[0]))
        return Result(samples)
    finally:
        shutil.rmtree(tmp, ignore_errors=True)
