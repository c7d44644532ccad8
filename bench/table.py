"""The result table of bench/run.py: statistics, ratios, verdicts, text.

A row is one measure: a floor, a target (a measure divided by its floor,
or a memory size, against a limit) or an extra figure without a target.
The ratio is median over median, both from the same run; the verdict is
decided on the unrounded ratio. A measure or floor that could not be
taken gives MISSING, which counts as a failure like MISS.
"""
import harness

PASS, MISS, MISSING = "PASS", "MISS", "MISSING"


class Stats(object):
    def __init__(self, samples, unit):
        self.median = harness.median(samples)
        self.low = min(samples)
        self.high = max(samples)
        self.count = len(samples)
        self.unit = unit


def stats(samples, unit="ns"):
    """Stats of the samples, or None when there are none."""
    return Stats(samples, unit) if samples else None


class Row(object):
    """`limit` is a ratio to `floor` (a Row) when `floor` is given, else an
    absolute bound in the row's own unit; no limit: a floor or an extra."""

    def __init__(self, label, value, floor=None, limit=None, kind="target", note="", tag=None):
        self.label = label
        self.tag = tag or label       # how rows that divide by this one name it
        self.value = value            # Stats or None
        self.floor = floor
        self.limit = limit
        self.kind = kind              # "floor", "target" or "extra"
        self.note = note

    def ratio(self):
        if self.floor is None or self.value is None or self.floor.value is None:
            return None
        if self.floor.value.median <= 0:
            return None
        return self.value.median / self.floor.value.median

    def verdict(self):
        if self.kind != "target":
            return "" if self.value is not None else MISSING
        measured = self.ratio() if self.floor is not None else (self.value and self.value.median)
        if measured is None:
            return MISSING
        return PASS if measured <= self.limit else MISS


def floor_row(label, value, note="", tag=None, floor=None):
    """A floor; given a lower floor, its ratio to that is shown too."""
    return Row(label, value, floor=floor, kind="floor", note=note, tag=tag)


def extra_row(label, value, floor=None, note=""):
    return Row(label, value, floor=floor, kind="extra", note=note)


def exit_status(rows):
    """0 when every target passes, else 1."""
    return 0 if all(r.verdict() == PASS for r in rows if r.kind == "target") else 1


COLUMNS = ("measure", "median", "min", "max", "unit", "floor", "ratio", "limit", "verdict")


def _num(x):
    if x is None:
        return "-"
    return "%.0f" % x if abs(x) >= 1000 else "%.1f" % x


def _ratio_text(ratio, limit):
    """Two decimals, more when two would show the limit itself for a ratio
    that is not (a MISS must not read as a ratio equal to the limit)."""
    for digits in range(2, 7):
        shown = "%.*f" % (digits, ratio)
        if limit is None or ratio == limit or float(shown) != limit:
            return shown
    return shown


def _shown(v):
    """(scale, unit) for display: long times read in ms."""
    if v is not None and v.unit == "ns" and v.median >= 1e6:
        return 1e-6, "ms"
    return 1.0, v.unit if v else ""


def cells(row):
    v = row.value
    scale, unit = _shown(v)
    ratio = row.ratio()
    if row.floor is not None:
        floor = row.floor.tag
        limit = "<= %.1f x" % row.limit if row.limit is not None else ""
    else:
        floor = ""
        limit = "<= %s %s" % (_num(row.limit), v.unit if v else "") if row.limit is not None else ""
    return (row.label,
            _num(v.median * scale) if v else "MISSING",
            _num(v.low * scale) if v else "-",
            _num(v.high * scale) if v else "-",
            unit,
            floor,
            _ratio_text(ratio, row.limit) if ratio is not None else ("-" if row.floor is not None else ""),
            limit.strip(),
            row.verdict() or ("floor" if row.kind == "floor" else ""))


def text(rows):
    table = [COLUMNS] + [cells(r) for r in rows]
    widths = [max(len(line[i]) for line in table) for i in range(len(COLUMNS))]
    left = (0, 5, 8)   # text columns; numbers align right

    def fmt(line):
        return "  ".join(c.ljust(w) if i in left else c.rjust(w) for i, (c, w) in enumerate(zip(line, widths)))

    out = [fmt(COLUMNS), "  ".join("-" * w for w in widths)]
    out += [fmt(c) for c in table[1:]]
    return "\n".join(line.rstrip() for line in out)


def markdown(rows):
    out = ["| " + " | ".join(COLUMNS) + " |",
           "|---|---:|---:|---:|---|---|---:|---|---|"]
    for r in rows:
        out.append("| " + " | ".join(c.replace("|", "\\|") for c in cells(r)) + " |")
    return "\n".join(out)


def notes(rows):
    """Footnotes for rows that carry one (why a figure is missing, say)."""
    return ["%s: %s" % (r.label, r.note) for r in rows if r.note]
