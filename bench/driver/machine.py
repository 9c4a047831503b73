# SPDX-License-Identifier: MIT
"""What the figures depend on besides the programs."""
import datetime
import os
import platform
import shutil
import subprocess

from driver import plan


def output(*command):
    """What a command prints; nothing if it cannot be run."""
    if shutil.which(command[0]) is None:
        return ""
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    return done.stdout.strip()


def field(path, key):
    """The value of a key of a file such as /proc/cpuinfo."""
    try:
        with open(path, encoding="utf-8") as lines:
            for line in lines:
                name, _, value = line.replace("=", ":", 1).partition(":")
                if name.strip() == key:
                    return value.strip().strip('"')
    except OSError:
        pass
    return "unknown"


def versions():
    """Those of the Debian packages of the peers that are here."""
    found = {}
    for package in plan.packages():
        version = output("dpkg-query", "-W", "-f=${Version}", package)
        if version:
            found[package] = version
    return found


def describe(options):
    memory = field("/proc/meminfo", "MemTotal").split()[0]
    return {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d"),
        "commit": output("git", "describe", "--always", "--dirty", "--abbrev=12"),
        "processor": field("/proc/cpuinfo", "model name"),
        "processors": os.cpu_count(),
        "memory": f"{int(memory) // 1024} MiB" if memory.isdigit() else memory,
        "virtual": "hypervisor" in field("/proc/cpuinfo", "flags").split(),
        "kernel": platform.release(),
        "system": field("/etc/os-release", "PRETTY_NAME"),
        "c_library": " ".join(platform.libc_ver()),
        "compiler": output("g++", "--version").split("\n", maxsplit=1)[0],
        "versions": versions(),
        "pinned": options.pin,
        "quick": options.quick,
    }
