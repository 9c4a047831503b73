#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures the library, the floor and the peers that are here, for ./dev bench.

In rounds, so that whatever else the machine does strikes all of them alike. Shows a table
and writes bench/results: the figures with the machine that they are from, and plots.
"""
import argparse
import os
import pathlib
import sys
import time

from driver import document, machine, plan, plots, programs, results, table

BUILD = "build/bench"


def arguments():
    parser = argparse.ArgumentParser(
        prog="./dev bench", description="Measure the library, a floor and other systems.",
        allow_abbrev=False)
    parser.add_argument("--quick", action="store_true",
                        help="a short run, in under two minutes, with rough figures")
    parser.add_argument("--peers", action="store_true",
                        help="install the Debian packages of the other systems first")
    parser.add_argument("--pin", action="store_true",
                        help="keep all processes on one processor")
    parser.add_argument("--only", metavar="TEXT", default="",
                        help="only the works that have TEXT in their name")
    parser.add_argument("--write-docs", action="store_true",
                        help="measure nothing, but put the results of the last full run into "
                             "docs/performance.md and its plots")
    parser.add_argument("--packages", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.write_docs and (options.quick or options.peers or options.pin or options.only):
        parser.error("--write-docs goes with no other option")
    return options


def measure(options):
    effort = plan.QUICK if options.quick else plan.FULL
    found = results.Results()
    runner = programs.Runner(BUILD, options.only, options.pin, found)
    began = time.monotonic()
    programs.warn_of_surroundings()
    for number in range(effort.rounds):
        print(f"round {number + 1} of {effort.rounds}", file=sys.stderr, flush=True)
        runner.messaging(plan.works(), effort)
        if number < effort.inside_rounds:
            runner.inside(effort)
    runner.messaging(plan.IDLE, effort)
    runner.sizes()
    found.about = machine.describe(options)
    found.about["rounds"] = effort.rounds
    found.about["seconds"] = round(time.monotonic() - began)
    found.skipped = runner.skipped()
    return found


def main():
    options = arguments()
    os.chdir(pathlib.Path(__file__).resolve().parent.parent)
    if options.packages:  # what ./dev is to install for these options
        print(" ".join(plan.packages() if options.peers else []))
        return 0
    try:
        if options.write_docs:
            document.publish()
            return 0
        found = measure(options)
        path = found.write(results.latest(options.pin, options.quick or options.only))
        print(table.text(found))
        plots.draw(found, path.parent)
        print(f"The figures and the plots are in {path.parent}, the figures as {path.name}.")
        return 0
    except (programs.Failure, results.Missing, document.Failure) as problem:
        print(f"bench: {problem}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
