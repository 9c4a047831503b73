# SPDX-License-Identifier: MIT
"""Results as tables, for the terminal and for the document."""
from driver import plan

COLUMNS = ["work", "zedipc", "quartiles", "CPU", "floor", "of floor", "CPU of floor",
           "best peer", "", "of best peer"]


# What is no work to be done but a property.
SMALL = ("memory/", "idle_wakeups/", "library_size")


def is_small(work):
    return work.startswith(SMALL)


def number(value):
    """Three digits that count."""
    if value is None:
        return "-"
    if value == 0 or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.2f}" if abs(value) < 10 else f"{value:.1f}"


def scale(value, unit):
    """The unit that suits a value, and how many of it are one of the value's own."""
    units = ["ns", "us", "ms"]
    factor = 1
    while unit in units[:-1] and value * factor >= 10000:
        factor /= 1000
        unit = units[units.index(unit) + 1]
    return factor, {"wake-ups per second": "/s"}.get(unit, unit)


def quantity(value, unit):
    if value is None:
        return "-"
    factor, unit = scale(value, unit)
    return f"{number(value * factor)} {unit}"


def spread(row):
    """The first and the third quartile, in the unit that the median is shown in."""
    first, median, third = row.quartiles()
    factor, _ = scale(median, row.unit)
    return f"{number(first * factor)} .. {number(third * factor)}"


def compare(row, other):
    """How many times as good a row is as another, as a text."""
    if row is None or other is None:
        return "-"
    quotient = row.times_as_good_as(other)
    return "-" if quotient is None else f"{quotient:.2f}"


def peer_name(work, peer):
    """With a mark for who gets by without a server where the others have one."""
    direct = peer in plan.WITHOUT_SERVER and not work.startswith("round_trip/")
    return f"{peer} (no server)" if direct and not is_small(work) else peer


def against_floor(found, work):
    """The cells of a work, or None if the library has no part in it."""
    rows = found.works[work]
    own = rows.get(plan.LIBRARY)
    if own is None:
        return None
    floor = rows.get(plan.FLOOR)
    cpu = own.cpu()
    return [
        work,
        quantity(own.median, own.unit),
        spread(own),
        quantity(cpu.median, cpu.unit) if cpu else "-",
        quantity(floor.median, floor.unit) if floor else "-",
        compare(own, floor),
        compare(cpu, floor.cpu() if floor else None),
    ]


def against_best_peer(found, work):
    """The cells that a terminal shows besides."""
    rows = found.works[work]
    peer = found.best_peer(work)
    if not peer:
        return ["-", "-", "-"]
    return [peer_name(work, peer), quantity(rows[peer].median, rows[peer].unit),
            compare(rows[plan.LIBRARY], rows[peer])]


def lines(found, works):
    """The lines of the works in which the library has a part."""
    cells = [against_floor(found, work) for work in works]
    return [row for row in cells if row is not None]


def text(found):
    """The table for a terminal. All ratios are better the larger they are."""
    body = lines(found, sorted(found.works, key=is_small))
    table = [COLUMNS, *([*row, *against_best_peer(found, row[0])] for row in body)]
    widths = [max(len(row[i]) for row in table) for i in range(len(COLUMNS))]
    shown = []
    for row in table:
        cells = [row[0].ljust(widths[0])]
        cells += [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        shown.append("  ".join(cells).rstrip())
    shown += [f"skipped: {reason}" for reason in found.skipped]
    return "\n".join(["", *shown, ""])


def markdown(head, body):
    """A table of texts."""
    def row(cells):
        return "| " + " | ".join(cells) + " |"
    bar = ["---", *["---:"] * (len(head) - 1)]
    return "\n".join([row(head), row(bar), *(row(cells) for cells in body)])


def comparison(found, works, subjects):
    """Everybody's medians, and in brackets the processor time of a message, in Markdown."""
    body = []
    for work in works:
        rows = found.works[work]
        cells = []
        for subject in subjects:
            row = rows.get(subject)
            cpu = row.cpu() if row else None
            brackets = f" ({number(cpu.median)})" if cpu and cpu.median else ""
            cells.append("-" if row is None else quantity(row.median, row.unit) + brackets)
        body.append([work, *cells])
    return markdown(["work", *subjects], body)
