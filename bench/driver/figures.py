# SPDX-License-Identifier: MIT
"""What a run came to, a line for each figure: what docs/performance.md is made from."""
import json
from dataclasses import dataclass, field
from typing import Optional

from driver import plan
from driver.results import Missing

ABOUT = "# "
COLUMNS = ["work", "subject", "figure", "unit", "median", "first quartile", "third quartile",
           "of floor"]
RESULT = "result"  # the figure that a work is about
CPU = "cpu_us"
FURTHER = {CPU: "us", "allocations": ""}  # those that are kept besides, with their units
NONE = "-"


@dataclass
class Figure:
    """The same to tables and plots as a row of results."""
    unit: str
    median: float
    first: float
    third: float
    of_floor: Optional[float] = None
    others: dict = field(default_factory=dict)

    def quartiles(self):
        return self.first, self.median, self.third

    def other(self, name):
        """The median of a further figure, or None."""
        return self.others[name].median if name in self.others else None

    def cpu(self):
        return self.others.get(CPU)

    def times_as_good_as(self, _floor):
        return self.of_floor


def figure(row, floor):
    first, median, third = row.quartiles()
    return Figure(row.unit, median, first, third, row.times_as_good_as(floor) if floor else None)


def short(value):
    return NONE if value is None else f"{value:.9g}"


class Figures:
    """All figures of a run, in the order of the results."""

    def __init__(self, about=None):
        self.works = {}
        self.about = about or {}

    @staticmethod
    def of(found):
        """Those of a run's results."""
        figures = Figures(found.about)
        for work, rows in found.works.items():
            for subject, row in rows.items():
                floor = rows.get(plan.FLOOR) if subject == plan.LIBRARY else None
                kept = figure(row, floor)
                for name in FURTHER:
                    further = row.further(name, FURTHER[name])
                    if further:
                        kept.others[name] = figure(
                            further, floor and floor.further(name, FURTHER[name]))
                figures.works.setdefault(work, {})[subject] = kept
        return figures

    def only(self, prefixes, subjects):
        """Those of some works and subjects."""
        figures = Figures(self.about)
        for work, rows in self.works.items():
            kept = {subject: row for subject, row in rows.items() if subject in subjects}
            if work.startswith(prefixes) and kept:
                figures.works[work] = kept
        return figures

    def has(self, prefix):
        """Whether a work begins like this."""
        return any(work.startswith(prefix) for work in self.works)

    def write(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        lines = [ABOUT + json.dumps(self.about, ensure_ascii=False), "\t".join(COLUMNS)]
        for work, rows in self.works.items():
            for subject, row in rows.items():
                for name, one in {RESULT: row, **row.others}.items():
                    numbers = (one.median, one.first, one.third, one.of_floor)
                    lines.append("\t".join([work, subject, name, one.unit or NONE,
                                            *map(short, numbers)]))
        path.write_text("\n".join(lines) + "\n", encoding="utf-8")
        return path

    @staticmethod
    def read(path):
        try:
            about, _, *lines = path.read_text(encoding="utf-8").splitlines()
        except FileNotFoundError:
            raise Missing(f"there are no figures in {path}; run ./dev bench first") from None
        figures = Figures(json.loads(about[len(ABOUT):]))
        for line in lines:
            work, subject, name, unit, *texts = line.split("\t")
            numbers = [None if text == NONE else float(text) for text in texts]
            rows = figures.works.setdefault(work, {})
            one = Figure("" if unit == NONE else unit, *numbers)
            if name == RESULT:
                rows[subject] = one
            else:
                rows[subject].others[name] = one
        return figures
