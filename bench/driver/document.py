# SPDX-License-Identifier: MIT
"""Puts the results of the last full run into docs/performance.md.

What stands between two marks there is written anew; the text around it is people's."""
import re
import shutil
import textwrap
from pathlib import Path

from driver import plan, plots, table
from driver.results import Results, latest

DOCUMENT = Path("docs/performance.md")
DIRECTORY = Path("docs/performance")
WIDTH = 100

PART = re.compile(r"(<!-- figures: (\w+) -->\n).*?(<!-- end of figures -->)", re.DOTALL)


class Failure(Exception):
    """The document cannot take the figures."""


def begin(found, *prefixes):
    return [work for work in found.works if work.startswith(prefixes)]


def against_floor(found, *prefixes):
    return table.markdown(
        ["work", "zedipc", "quartiles", "CPU", "floor", "of floor", "CPU of floor"],
        [row[:7] for row in table.lines(found, begin(found, *prefixes))])


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


def publish():
    """The figures, the plots and what they are from."""
    source = latest(pinned=False, partial=False)
    found = Results.read(source)
    pinned_source = latest(pinned=True, partial=False)
    pinned = Results.read(pinned_source) if pinned_source.exists() else None
    text = fill(DOCUMENT.read_text(encoding="utf-8"), parts(found, pinned))
    DIRECTORY.mkdir(parents=True, exist_ok=True)
    DOCUMENT.write_text(text, encoding="utf-8")
    shutil.copyfile(source, DIRECTORY / "results.json")
    if pinned:
        shutil.copyfile(pinned_source, DIRECTORY / "results-pinned.json")
    plots.draw(found, DIRECTORY)
    print(f"{DOCUMENT} and {DIRECTORY} are written.")
