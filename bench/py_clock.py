"""Clock firings into a Python handler, for bench/run.py: the handler
re-arms its wake time at once and the activity loop fires it again on its
next pass; a run of the loop divided by the firings counted is the cost of
one firing. CPU time: the handler re-arms for a time already past, so
the loop never sleeps, and the machine's other work is not counted."""
import _Zel
from ZelCompat import cpuTime


def firing_ns(seconds):
    clock = _Zel.singleton("Zel::Clock")
    ctype = _Zel.typeNode("Zel::PyClockNotifiee")
    wake = ctype.attr("timeMinProxy")
    fired = [0]
    box = []

    def on_time():
        fired[0] += 1
        if box:
            box[0].attributeSingletonIs(wake, 0.0)

    notifiee = _Zel.newGenericIf(ctype, (None, clock, _Zel.handle(on_time)))
    box.append(notifiee)
    notifiee.attributeSingletonIs(wake, 0.0)
    fired[0] = 0
    start = cpuTime()
    _Zel.activityManagerExecTimeIs(seconds)
    elapsed = cpuTime() - start
    del box[:]   # the handler's reference to its own notifiee: a cycle otherwise
    if not fired[0]:
        raise RuntimeError("the clock never fired in %g s" % seconds)
    return elapsed / fired[0] * 1e9


def samples(repeats, seconds):
    return [firing_ns(seconds) for _ in range(repeats)]
