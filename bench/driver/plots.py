# SPDX-License-Identifier: MIT
"""Plots, as SVG files by gnuplot."""
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from driver import plan, table
from driver.programs import Failure
from driver.results import more_is_better

# What is drawn: the file's name, the title, how the works begin, and what the rest of their
# names says.
PLOTS = [
    ("round_trip", "There and back again", "round_trip/", "way / payload in bytes"),
    ("unicast_latency", "One message, one way", "unicast_latency/", "payload in bytes"),
    ("unicast_flood", "A flood of messages", "unicast_flood/", "payload in bytes"),
    ("broadcast", "A message to all", "broadcast/", "receivers / payload in bytes"),
    ("json", "JSON, parsed and written", "json_parse_dump/", "text"),
]
# Names are shown as they are: gnuplot would make what follows an underscore a subscript.
SCRIPT = """
set terminal svg size 960,440 font "sans,12" background "white" noenhanced
set output "{output}"
set title "{title}"
set xlabel "{works}"
set ylabel "{label}"
set logscale y
set format y "{format}"
set grid ytics
set style data histograms
set style histogram errorbars gap 1 linewidth 1
set style fill solid 0.8 border -1
set boxwidth 0.9
set key outside right top Left reverse title "median and quartiles"
set xtics rotate by -20
set datafile missing "?"
plot {series}
"""
# Each has its colour in all plots.
COLOURS = {
    plan.LIBRARY: "#1f5fbf",
    plan.FLOOR: "#999999",
    "dbus": "#e08214",
    "mosquitto": "#7b3294",
    "redis": "#c51b1b",
    "zeromq": "#1b9e77",
    "nng": "#a6761d",
    "nlohmann": "#e7298a",
    "rapidjson": "#66a61e",
    "jsoncpp": "#56b4e9",
}
ORDER = list(COLOURS)


def label(unit):
    if more_is_better(unit):
        return "messages a second (more is better)"
    return "microseconds (less is better)"


def shown_value(value, unit):
    """In the unit of the label."""
    return value / 1000 if unit == "ns" else value


def legend(work, subject):
    """What the legend calls a subject."""
    if subject == plan.FLOOR:
        return "floor (bare, same design)"
    return table.peer_name(work, subject)


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
                first, median, third = row.quartiles()
                cells += [f"{shown_value(value, row.unit):g}" for value in (median, first, third)]
        shown.append(" ".join(cells))
    return "\n".join(shown) + "\n"


def series(path, work, subjects):
    parts = []
    for index, subject in enumerate(subjects):
        column = 2 + 3 * index
        tics = ":xtic(1)" if index == 0 else ""
        parts.append(f'"{path}" using {column}:{column + 1}:{column + 2}{tics} '
                     f'title "{legend(work, subject)}" linecolor rgb "{COLOURS[subject]}"')
    return ", ".join(parts)


def draw(found, directory):
    """Writes a file for each plot that there are figures for."""
    if shutil.which("gnuplot") is None:
        print("skipped: the plots: gnuplot is not installed", file=sys.stderr)
        return
    for name, title, prefix, rest in PLOTS:
        works = [work for work in found.works if work.startswith(prefix)]
        if works:
            draw_one(found, works, (title, rest), Path(directory) / f"{name}.svg")


def draw_one(found, works, titles, output):
    subjects = [name for name in ORDER if any(name in found.works[work] for work in works)]
    unit = found.works[works[0]][subjects[0]].unit
    with tempfile.NamedTemporaryFile("w", suffix=".dat", encoding="utf-8") as file:
        file.write(data(found, works, subjects))
        file.flush()
        script = SCRIPT.format(output=output, title=titles[0], works=titles[1], label=label(unit),
                               format="%.0s%c" if more_is_better(unit) else "%.10g",
                               series=series(file.name, works[0], subjects))
        done = subprocess.run(["gnuplot"], input=script, text=True, capture_output=True,
                              check=False)
        if done.returncode != 0:
            raise Failure(f"gnuplot has failed: {done.stderr.strip()}")
