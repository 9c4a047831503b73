# SPDX-License-Identifier: MIT
"""The figures of a run: a sample for each round, by work and subject."""
import json
import pathlib
import statistics

from driver import plan

DIRECTORY = pathlib.Path("bench/results")

# How names of benchmarks end that are measured by the clock on the wall.
REAL_TIME = "/real_time"
# What each of them has, besides its own counters.
USUAL = {"iterations", "real_time", "cpu_time", "threads", "repetitions", "repetition_index",
         "family_index", "per_family_instance_index"}


class Missing(Exception):
    """There are no results to read."""


def latest(pinned, partial):
    """Where the results of a run go. What is rough or in part does not take the place of a
    full run."""
    name = "latest" + ("-pinned" if pinned else "") + ("-quick" if partial else "")
    return DIRECTORY / f"{name}.json"


def more_is_better(unit):
    return unit.endswith("/s")


def quartiles(values):
    """The first quartile, the median and the third quartile."""
    if len(values) == 1:
        return values * 3
    return statistics.quantiles(values, n=4, method="inclusive")


def ratio(values, others, unit):
    """How many times as good the values are as the others, round by round; None where that
    makes no sense."""
    pairs = [(b, a) if more_is_better(unit) else (a, b) for a, b in zip(values, others)]
    quotients = [b / a for a, b in pairs if a > 0]
    return statistics.median(quotients) if len(quotients) == len(pairs) and pairs else None


class Row:
    """What one subject has achieved in one work."""

    def __init__(self, unit, values=None, others=None):
        self.unit = unit
        self.values = values or []
        self.others = others or {}  # lists of further figures, by their names

    @property
    def median(self):
        return statistics.median(self.values)

    def quartiles(self):
        """The first quartile, the median and the third quartile."""
        return quartiles(self.values)

    def times_as_good_as(self, other):
        """As a ratio; None where that makes no sense."""
        return ratio(self.values, other.values, self.unit)

    def further(self, name, unit):
        """A further figure as a row of its own, or None."""
        return Row(unit, self.others[name]) if name in self.others else None

    def cpu(self):
        """The processor time of one message or call, as a row of its own; or None."""
        return self.further("cpu_us", "us")


class Results:
    """All rows of a run, in the order in which they came."""

    def __init__(self):
        self.works = {}  # the subjects' rows, by the works' names
        self.about = {}
        self.skipped = []

    def add(self, sample):
        """Takes what a program for messages has printed."""
        sample = dict(sample)
        row = self._row(sample.pop("work"), sample.pop("subject"), sample.pop("unit"))
        row.values.append(sample.pop("value"))
        for name, value in sample.items():
            row.others.setdefault(name, []).append(value)

    def add_inside(self, run):
        """Takes a benchmark of Google Benchmark's output, whose name ends with the subject."""
        if run["run_type"] != "iteration":
            return
        name = run["name"]
        wall = name.endswith(REAL_TIME)
        work, subject = (name[:-len(REAL_TIME)] if wall else name).rsplit("/", 1)
        row = self._row(work, subject, run["time_unit"])
        row.values.append(run["real_time" if wall else "cpu_time"])
        for key, value in run.items():
            if isinstance(value, (int, float)) and key not in USUAL:
                row.others.setdefault(key, []).append(value)

    def has(self, prefix):
        """Whether a work begins like this."""
        return any(work.startswith(prefix) for work in self.works)

    def best_peer(self, work):
        """The name of the peer with the best median, or None."""
        rows = self.works[work]
        peers = [name for name in rows if name in plan.PEERS]
        if not peers:
            return None
        best = max if more_is_better(rows[peers[0]].unit) else min
        return best(peers, key=lambda name: rows[name].median)

    def write(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(json.dumps(self._plain(), indent=1) + "\n", encoding="utf-8")
        return path

    @staticmethod
    def read(path):
        try:
            plain = json.loads(path.read_text(encoding="utf-8"))
        except FileNotFoundError:
            raise Missing(f"there are no results in {path}; run ./dev bench first") from None
        found = Results()
        found.about = plain["about"]
        found.skipped = plain["skipped"]
        for entry in plain["results"]:
            rows = found.works.setdefault(entry["work"], {})
            rows[entry["subject"]] = Row(entry["unit"], entry["values"], entry["others"])
        return found

    def _row(self, work, subject, unit):
        return self.works.setdefault(work, {}).setdefault(subject, Row(unit))

    def _plain(self):
        entries = [
            {"work": work, "subject": subject, "unit": row.unit, "median": row.median,
             "quartiles": quartiles(row.values), "values": row.values, "others": row.others}
            for work, rows in self.works.items() for subject, row in rows.items()]
        return {"about": self.about, "skipped": self.skipped, "results": entries}
