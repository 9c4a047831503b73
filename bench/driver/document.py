# SPDX-License-Identifier: MIT
"""Puts the figures of the last full run into docs/performance.md.

What stands between two marks there is written anew; the text around it is people's."""
import re
import textwrap
from pathlib import Path

from driver import plan, plots, table
from driver.figures import Figures
from driver.results import Missing, Results, latest

DOCUMENT = Path("docs/performance.md")
DIRECTORY = Path("docs/performance")
FIGURES = "figures.tsv"
PINNED_FIGURES = "figures-pinned.tsv"
WIDTH = 100

PART = re.compile(r"(<!-- figures: (\w+) -->\n).*?(<!-- end of figures -->)", re.DOTALL)


class Failure(Exception):
    """The document cannot take the figures."""


def begin(found, *prefixes):
    return [work for work in found.works if work.startswith(prefixes)]


def against_floor(found, *prefixes):
    return table.markdown(
        ["work", "zedipc", "quartiles", "CPU", "floor", "of floor", "CPU of floor"],
        table.lines(found, begin(found, *prefixes)))


def with_allocations(found, works):
    """Inside one process nobody sleeps, so that the time is the processor's anyway."""
    body = []
    for row in table.lines(found, works):
        count = found.works[row[0]][plan.LIBRARY].other("allocations")
        body.append([*row[:3], *row[4:6], table.number(count)])
    return table.markdown(["work", "zedipc", "quartiles", "floor", "of floor", "allocations"], body)


def everybody(found, *prefixes):
    works = begin(found, *prefixes)
    present = {subject for work in works for subject in found.works[work]}
    subjects = [name for name in plots.ORDER if name in present and name != plan.FLOOR]
    return table.comparison(found, works, subjects)


def about(found):
    facts = found.about
    processors = f"{facts['processors']} × {facts['processor']}"
    machine = f"a virtual machine with {processors}" if facts["virtual"] else processors
    versions = ", ".join(f"{name} {version}" for name, version in facts["versions"].items())
    sentences = [
        f"Measured on {facts['date']} at commit {facts['commit']}, in {facts['rounds']} rounds, "
        f"on {machine}, {facts['memory']}; {facts['system']}, Linux {facts['kernel']}, "
        f"{facts['c_library']}, {facts['compiler']}.",
        f"Debian packages of the other systems: {versions or 'none'}."]
    return "\n\n".join(textwrap.fill(sentence, WIDTH, break_on_hyphens=False)
                       for sentence in sentences)


MESSAGES = ("round_trip/", "unicast_", "broadcast/")


def parts(found, pinned):
    """The parts of the document by their names."""
    inside = [work for work in found.works if not work.startswith(MESSAGES + table.SMALL)]
    return {
        "machine": about(found),
        "messages": against_floor(found, *MESSAGES),
        "peers": everybody(found, *MESSAGES),
        "pinned": against_floor(pinned, *MESSAGES) if pinned else "Not measured.",
        "inside": with_allocations(found, inside) if inside else "Not measured.",
        "values": everybody(found, "json_") if found.has("json_") else "Not measured.",
        "small": everybody(found, *table.SMALL),
    }


def fill(text, contents):
    """The document's text with these parts in their places."""
    names = {match.group(2) for match in PART.finditer(text)}
    if names != set(contents):
        raise Failure(f"{DOCUMENT} has not the right marks: {sorted(names ^ set(contents))}")
    return PART.sub(lambda m: f"{m.group(1)}{contents[m.group(2)]}\n{m.group(3)}", text)


def take(pinned, path):
    """Summarises the last full run in a file, if there has been one, and reads the file."""
    source = latest(pinned, partial=False)
    if source.exists():
        figures = Figures.of(Results.read(source))
        if pinned:  # what the document shows of it
            figures = figures.only(MESSAGES, (plan.LIBRARY, plan.FLOOR))
        figures.write(path)
    return Figures.read(path)


def publish():
    """Writes the figures, the document and the plots."""
    found = take(False, DIRECTORY / FIGURES)
    try:
        pinned = take(True, DIRECTORY / PINNED_FIGURES)
    except Missing:
        pinned = None
    text = fill(DOCUMENT.read_text(encoding="utf-8"), parts(found, pinned))
    DOCUMENT.write_text(text, encoding="utf-8")
    plots.draw(found, DIRECTORY)
    print(f"{DOCUMENT} and {DIRECTORY} are written.")
