# SPDX-License-Identifier: MIT
"""Plots, as SVG files by gnuplot."""
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from driver import plan
from driver.programs import Failure
from driver.results import more_is_better, quartiles

# What is drawn: the file's name, the title, and how the works begin.
PLOTS = [
    ("round_trip", "There and back again", "round_trip/"),
    ("unicast_latency", "One message, one way", "unicast_latency/"),
    ("unicast_flood", "A flood of messages", "unicast_flood/"),
    ("broadcast", "A message to all", "broadcast/"),
    ("json", "JSON, parsed and written", "json_parse_dump/"),
]
SCRIPT = """
set terminal svg size 900,420 font "sans,12" background "white"
set output "{output}"
set title "{title}"
set ylabel "{label}"
set logscale y
set format y "{format}"
set grid ytics
set style data histograms
set style histogram errorbars gap 1 linewidth 1
set style fill solid 0.8 border -1
set boxwidth 0.9
set key outside right top
set xtics rotate by -20
set datafile missing "?"
plot {series}
"""
ORDER = [plan.LIBRARY, plan.FLOOR, *plan.PEERS]
COLOURS = ["#1f5fbf", "#999999", "#e08214", "#7b3294", "#c51b1b", "#1b9e77", "#a6761d"]


def label(unit):
    better = "more" if more_is_better(unit) else "less"
    plain = "messages per second" if more_is_better(unit) else f"{unit}"
    return f"{plain} ({better} is better)"


def data(found, works, subjects):
    """A line for each work, with the median and the quartiles of each subject."""
    shown = []
    for work in works:
        cells = ['"' + "/".join(work.split("/")[1:]) + '"']
        for subject in subjects:
            row = found.works[work].get(subject)
            if row is None:
                cells += ["?", "?", "?"]
            else:
                first, median, third = quartiles(row.values)
                cells += [f"{value:g}" for value in (median, first, third)]
        shown.append(" ".join(cells))
    return "\n".join(shown) + "\n"


def series(path, subjects):
    parts = []
    for index, subject in enumerate(subjects):
        column = 2 + 3 * index
        colour = COLOURS[index % len(COLOURS)]
        tics = ":xtic(1)" if index == 0 else ""
        parts.append(f'"{path}" using {column}:{column + 1}:{column + 2}{tics} '
                     f'title "{subject}" linecolor rgb "{colour}"')
    return ", ".join(parts)


def draw(found, directory):
    """Writes a file for each plot that there are figures for."""
    if shutil.which("gnuplot") is None:
        print("skipped: the plots: gnuplot is not installed", file=sys.stderr)
        return
    for name, title, prefix in PLOTS:
        works = [work for work in found.works if work.startswith(prefix)]
        if works:
            draw_one(found, works, title, Path(directory) / f"{name}.svg")


def draw_one(found, works, title, output):
    subjects = [name for name in ORDER if any(name in found.works[work] for work in works)]
    unit = found.works[works[0]][subjects[0]].unit
    with tempfile.NamedTemporaryFile("w", suffix=".dat", encoding="utf-8") as file:
        file.write(data(found, works, subjects))
        file.flush()
        script = SCRIPT.format(output=output, title=title, label=label(unit),
                               format="%.0s%c" if more_is_better(unit) else "%g",
                               series=series(file.name, subjects))
        done = subprocess.run(["gnuplot"], input=script, text=True, capture_output=True,
                              check=False)
        if done.returncode != 0:
            raise Failure(f"gnuplot has failed: {done.stderr.strip()}")
