# SPDX-License-Identifier: MIT
"""Tests of bench/driver: python3 driver_test.py BENCH-DIRECTORY"""
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, sys.argv.pop(1))

from driver import document, figures, plan, plots, results, table  # noqa: E402


def sample(work, subject, value, unit="us", **others):
    return {"work": work, "subject": subject, "value": value, "unit": unit, **others}


def collected(*samples):
    found = results.Results()
    for one in samples:
        found.add(one)
    return found


class Ratio(unittest.TestCase):
    def test_of_times_is_above_one_for_the_shorter(self):
        self.assertEqual(results.ratio([10], [20], "us"), 2)

    def test_of_rates_is_above_one_for_the_larger(self):
        self.assertEqual(results.ratio([10], [20], "/s"), 0.5)

    def test_is_the_median_of_the_rounds(self):
        self.assertEqual(results.ratio([10, 10, 10], [10, 20, 90], "us"), 2)

    def test_with_nothing_is_none(self):
        self.assertIsNone(results.ratio([0], [0], "us"))
        self.assertIsNone(results.ratio([], [], "us"))


class Results(unittest.TestCase):
    def test_collect_the_rounds(self):
        found = collected(sample("w", "zedipc", 3, cpu_us=1), sample("w", "zedipc", 5, cpu_us=3))
        self.assertEqual(found.works["w"]["zedipc"].median, 4)
        self.assertEqual(found.works["w"]["zedipc"].cpu().median, 2)

    def test_take_the_subject_from_a_benchmarks_name(self):
        found = results.Results()
        found.add_inside({"name": "json_parse/small/rapidjson", "run_type": "iteration",
                          "cpu_time": 7, "real_time": 8, "time_unit": "ns", "allocations": 2})
        row = found.works["json_parse/small"]["rapidjson"]
        self.assertEqual((row.median, row.others["allocations"]), (7, [2]))

    def test_take_the_wall_clock_where_the_benchmark_does(self):
        found = results.Results()
        found.add_inside({"name": "frames/zedipc/real_time", "run_type": "iteration",
                          "cpu_time": 7, "real_time": 8, "time_unit": "ns"})
        self.assertEqual(found.works["frames"]["zedipc"].median, 8)

    def test_leave_out_what_google_benchmark_computes_itself(self):
        found = results.Results()
        found.add_inside({"name": "json/zedipc_mean", "run_type": "aggregate"})
        self.assertEqual(found.works, {})

    def test_survive_writing_and_reading(self):
        found = collected(sample("w", "floor", 3, cpu_us=1))
        with tempfile.TemporaryDirectory() as directory:
            again = results.Results.read(found.write(pathlib.Path(directory) / "new" / "r.json"))
        self.assertEqual(again.works["w"]["floor"].values, [3])
        self.assertEqual(again.works["w"]["floor"].others, {"cpu_us": [1]})

    def test_that_are_not_there_are_missed(self):
        with self.assertRaises(results.Missing):
            results.Results.read(pathlib.Path("/nonexistent/latest.json"))

    def test_of_a_quick_run_do_not_replace_those_of_a_full_one(self):
        names = {results.latest(pin, quick) for pin in (True, False) for quick in (True, False)}
        self.assertEqual(len(names), 4)

    def test_know_the_best_peer(self):
        found = collected(sample("t", "zedipc", 1), sample("t", "floor", 1),
                          sample("t", "nng", 5), sample("t", "redis", 4),
                          sample("r", "nng", 5, "/s"), sample("r", "redis", 4, "/s"))
        self.assertEqual(found.best_peer("t"), "redis")
        self.assertEqual(found.best_peer("r"), "nng")

    def test_do_not_take_the_floor_for_a_peer(self):
        self.assertIsNone(collected(sample("t", "floor", 1)).best_peer("t"))


class Table(unittest.TestCase):
    def test_compares_with_floor_and_peer(self):
        found = collected(sample("unicast_latency/64", "zedipc", 10, cpu_us=8),
                          sample("unicast_latency/64", "floor", 9, cpu_us=6),
                          sample("unicast_latency/64", "dbus", 20))
        (row,) = table.lines(found, found.works)
        self.assertEqual(row[1], "10.0 us")
        self.assertEqual(row[5:], ["0.90", "0.75"])
        self.assertEqual(table.against_best_peer(found, "unicast_latency/64"),
                         ["dbus", "20.0 us", "2.00"])

    def test_says_who_has_no_server(self):
        found = collected(sample("unicast_flood/64", "zedipc", 1, "/s"),
                          sample("unicast_flood/64", "zeromq", 2, "/s"))
        self.assertIn("zeromq (no server)", table.text(found))

    def test_names_what_was_skipped(self):
        found = collected(sample("w", "zedipc", 1))
        found.skipped = ["nng: libnng-dev is not installed"]
        self.assertIn("skipped: nng: libnng-dev is not installed", table.text(found))

    def test_leaves_out_what_the_library_has_no_part_in(self):
        self.assertEqual(table.lines(collected(sample("w", "nng", 1)), ["w"]), [])

    def test_changes_to_the_unit_that_suits(self):
        self.assertEqual([table.quantity(n, "ns") for n in (9999, 10000, 25e6)],
                         ["9,999 ns", "10.0 us", "25.0 ms"])

    def test_keeps_the_quartiles_in_the_unit_of_the_median(self):
        row = results.Row("us", [9000, 10000, 11000])
        self.assertEqual(table.spread(row), "9.50 .. 10.5")

    def test_shows_three_digits(self):
        self.assertEqual([table.number(n) for n in (0, 0.5, 12.34, 1234.5, None)],
                         ["0", "0.50", "12.3", "1,234", "-"])


def kept(found):
    """The figures of these results, from a file."""
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory) / "new" / "figures.tsv"
        return figures.Figures.read(figures.Figures.of(found).write(path))


class Figures(unittest.TestCase):
    FOUND = collected(
        *(sample("unicast_latency/64", "zedipc", value, cpu_us=value / 3, allocations=2)
          for value in (10, 10, 13)),
        *(sample("unicast_latency/64", "floor", value, cpu_us=1) for value in (10, 20, 91)),
        sample("unicast_flood/64", "nng", 1234567.891, "/s"))

    def test_have_a_line_each(self):
        with tempfile.TemporaryDirectory() as directory:
            path = figures.Figures.of(self.FOUND).write(pathlib.Path(directory) / "f")
            lines = path.read_text(encoding="utf-8").splitlines()[2:]
        self.assertEqual(lines[0], "unicast_latency/64\tzedipc\tresult\tus\t10\t10\t11.5\t2")
        self.assertEqual([line.split("\t")[1:3] for line in lines[1:]],
                         [["zedipc", "cpu_us"], ["zedipc", "allocations"], ["floor", "result"],
                          ["floor", "cpu_us"], ["nng", "result"]])

    def test_give_the_same_tables_as_the_results(self):
        again = kept(self.FOUND)
        works = list(self.FOUND.works)
        self.assertEqual(list(again.works), works)
        self.assertEqual(table.lines(again, works), table.lines(self.FOUND, works))
        subjects = ["zedipc", "floor", "nng"]
        self.assertEqual(table.comparison(again, works, subjects),
                         table.comparison(self.FOUND, works, subjects))

    def test_give_the_same_plots_as_the_results(self):
        works = list(self.FOUND.works)
        self.assertEqual(plots.data(kept(self.FOUND), works, plots.ORDER),
                         plots.data(self.FOUND, works, plots.ORDER))

    def test_keep_allocations(self):
        row = kept(self.FOUND).works["unicast_latency/64"]["zedipc"]
        self.assertEqual(row.other("allocations"), 2)

    def test_keep_the_machine(self):
        found = collected()
        found.about = {"compiler": "ä", "rounds": 7}
        self.assertEqual(kept(found).about, found.about)

    def test_can_be_a_choice_of_works_and_subjects(self):
        chosen = figures.Figures.of(self.FOUND).only(("unicast_",), ("floor",))
        self.assertEqual({work: list(rows) for work, rows in chosen.works.items()},
                         {"unicast_latency/64": ["floor"]})

    def test_that_are_not_there_are_missed(self):
        with self.assertRaises(results.Missing):
            figures.Figures.read(pathlib.Path("/nonexistent/figures.tsv"))


class Document(unittest.TestCase):
    TEXT = "a\n<!-- figures: x -->\nold\n<!-- end of figures -->\nb\n"

    def test_takes_the_figures_between_its_marks(self):
        filled = document.fill(self.TEXT, {"x": "new"})
        self.assertEqual(filled, self.TEXT.replace("old", "new"))

    def test_may_be_filled_again(self):
        once = document.fill(self.TEXT, {"x": "new"})
        self.assertEqual(document.fill(once, {"x": "new"}), once)

    def test_without_the_right_marks_is_refused(self):
        for contents in ({"y": "new"}, {"x": "new", "y": "new"}, {}):
            with self.assertRaises(document.Failure):
                document.fill(self.TEXT, contents)

    def test_has_the_parts_that_the_driver_fills(self):
        found = figures.Figures()
        found.about = {name: "" for name in (
            "date", "commit", "rounds", "processor", "processors", "memory", "virtual", "kernel",
            "system", "c_library", "compiler")}
        found.about["versions"] = {}
        marks = {mark for _, mark, _ in document.PART.findall(
            (pathlib.Path(sys.path[0]).parent / document.DOCUMENT).read_text(encoding="utf-8"))}
        self.assertEqual(marks, set(document.parts(found, None)))

    def test_is_what_the_figures_beside_it_say(self):
        bench = pathlib.Path(sys.path[0])
        shown = (bench.parent / document.DOCUMENT).read_text(encoding="utf-8")
        found, pinned = (figures.Figures.read(bench.parent / document.DIRECTORY / name)
                         for name in (document.FIGURES, document.PINNED_FIGURES))
        self.assertEqual(document.fill(shown, document.parts(found, pinned)), shown)


class Plan(unittest.TestCase):
    def test_has_round_trips_only_for_who_can_do_without_a_server(self):
        self.assertEqual(plan.subjects("round_trip/tcp/64"),
                         ["zedipc", "floor", *plan.WITHOUT_SERVER])

    def test_measures_everybody_else_with_messages(self):
        self.assertEqual(plan.subjects("unicast_flood/64"),
                         ["zedipc", "floor", *plan.MESSAGING_PEERS])


class Plot(unittest.TestCase):
    def test_marks_what_is_missing(self):
        found = collected(sample("w/64", "zedipc", 1), sample("w/1024", "floor", 2))
        self.assertEqual(plots.data(found, ["w/64", "w/1024"], ["zedipc", "floor"]),
                         '"64" 1 1 1 ? ? ?\n"1024" ? ? ? 2 2 2\n')


    def test_shows_nanoseconds_as_the_axis_says(self):
        found = collected(sample("w/64", "zedipc", 1500, "ns"))
        self.assertEqual(plots.data(found, ["w/64"], ["zedipc"]), '"64" 1.5 1.5 1.5\n')

    def test_has_a_colour_for_each_subject(self):
        self.assertEqual(set(plots.COLOURS), {plan.LIBRARY, plan.FLOOR, *plan.PEERS})
        self.assertEqual(len(set(plots.COLOURS.values())), len(plots.COLOURS))

    def test_gives_a_subject_its_colour_whoever_is_beside_it(self):
        self.assertIn(f'title "nng" linecolor rgb "{plots.COLOURS["nng"]}"',
                      plots.series("file", "round_trip/tcp/64", ["zedipc", "nng"]))

    def test_explains_the_floor(self):
        self.assertIn('title "floor (bare, same design)"',
                      plots.series("file", "unicast_flood/64", ["floor"]))


unittest.main()
