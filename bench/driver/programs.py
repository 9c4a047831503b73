# SPDX-License-Identifier: MIT
"""Runs the programs that measure, and collects what they print."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

from driver import plan

SKIPPED = 77
TIMEOUT = 120  # seconds, for one run of one program

# The peers' libraries, as the loader names them.
LIBRARIES = {"dbus": "libdbus-1.so", "mosquitto": "libmosquitto.so", "redis": "libhiredis.so",
             "zeromq": "libzmq.so", "nng": "libnng.so"}


class Failure(Exception):
    """A measurement has gone wrong, and nothing of it is to be shown."""


def warn_of_surroundings():
    """Says so if others can reach the ports that are used, or take them away."""
    with open("/proc/net/dev", encoding="ascii") as devices:
        names = [line.split(":")[0].strip() for line in devices if ":" in line]
    if names != ["lo"]:
        print("No network namespace could be had: the ports 5899 and 5990 of this machine are "
              "used, and have to be free.", file=sys.stderr)


def pin_to(processor):
    return lambda: os.sched_setaffinity(0, {processor})


class Runner:
    """Runs one program at a time."""

    def __init__(self, build, only, pin, found):
        self._build = pathlib.Path(build)
        self._directory = self._build / "bench"
        self._only = only
        self._found = found
        self._prepare = pin_to(max(os.sched_getaffinity(0))) if pin else None
        self._reasons = {}  # why a subject is not measured

    def messaging(self, works, effort):
        """Has each work done by each subject that can do it."""
        for work in works:
            for subject in plan.subjects(work):
                if self._wanted(work) and subject not in self._reasons:
                    self._do_messaging(work, subject, effort)

    def inside(self, effort):
        """Runs what there is of the programs for the inside of one process."""
        for program in sorted((self._directory / "inside").glob("inside_*")):
            if program.is_file() and os.access(program, os.X_OK):
                self._do_inside(program, effort)

    def sizes(self):
        """How large the libraries are without what only a debugger needs."""
        work = "library_size"
        if not self._wanted(work):
            return
        library = self._build / "libzedipc.so"
        with tempfile.TemporaryDirectory() as directory:
            stripped = pathlib.Path(directory) / "stripped"
            self._run(["strip", "-o", str(stripped), str(library)])
            self._add_size(work, plan.LIBRARY, stripped)
        for subject, name in LIBRARIES.items():
            program = self._messaging_program(subject)
            if program.exists():
                self._add_size(work, subject, self._loaded(program, name))

    def skipped(self):
        """Who was not measured, with the reason."""
        measured = {subject for rows in self._found.works.values() for subject in rows}
        for subject, packages in plan.VALUE_PEERS.items():
            if self._found.has("json_") and subject not in measured:
                self._skip(subject, f"{packages[0]} is not installed")
        return [f"{name}: {reason}" for name, reason in sorted(self._reasons.items())]

    def _wanted(self, work):
        return self._only in work

    def _messaging_program(self, subject):
        return self._directory / "messaging" / f"messaging_{subject}"

    def _skip(self, subject, reason):
        self._reasons[subject] = reason
        print(f"skipped: {subject}: {reason}", file=sys.stderr)

    def _do_messaging(self, work, subject, effort):
        program = self._messaging_program(subject)
        if not program.exists():
            self._skip(subject, f"{plan.PEERS[subject][0]} is not installed")
            return
        seconds = effort.idle_seconds if work in plan.IDLE else effort.seconds
        done = self._run([str(program), work, str(seconds), str(effort.flood)], (0, SKIPPED))
        if done.returncode == SKIPPED:
            self._skip(subject, done.stderr.strip())
            return
        for line in done.stdout.splitlines():
            self._found.add(json.loads(line))

    def _do_inside(self, program, effort):
        command = [str(program), "--benchmark_format=json",
                   f"--benchmark_min_time={effort.inside_seconds}"]
        if self._only:
            command.append(f"--benchmark_filter={self._only}")
        text = self._run(command).stdout
        for run in json.loads(text)["benchmarks"] if text.startswith("{") else []:
            if run.get("error_occurred"):
                raise Failure(f"{run['name']}: {run['error_message']}")
            self._found.add_inside(run)

    def _run(self, command, good=(0,)):
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("IPC_LOGMASK", "NFY_LOGMASK", "NOTIFY_SERVER")}
        what = " ".join(command)
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=TIMEOUT,
                                  check=False, env=environment, preexec_fn=self._prepare)
        except subprocess.TimeoutExpired:
            raise Failure(f"this takes more than {TIMEOUT} seconds: {what}") from None
        except OSError as problem:
            raise Failure(f"cannot run {what}: {problem.strerror}") from None
        if done.returncode not in good:
            lines = [line for line in done.stderr.splitlines() if not line.startswith("DBGLOG ")]
            raise Failure("\n".join([f"this has failed: {what}", *lines]))
        return done

    def _add_size(self, work, subject, path):
        self._found.add({"work": work, "subject": subject, "unit": "KiB",
                         "value": os.stat(path).st_size / 1024})

    def _loaded(self, program, name):
        for line in self._run(["ldd", str(program)]).stdout.splitlines():
            if line.strip().startswith(name):
                return line.split()[2]
        raise Failure(f"{program} is not linked to {name}")
