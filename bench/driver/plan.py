# SPDX-License-Identifier: MIT
"""What is measured, of whom, and for how long."""
from dataclasses import dataclass

LIBRARY = "zedipc"
FLOOR = "floor"

# The other systems, by the Debian packages that they need here.
MESSAGING_PEERS = {
    "dbus": ["libdbus-1-dev", "dbus"],
    "mosquitto": ["libmosquitto-dev", "mosquitto"],
    "redis": ["libhiredis-dev", "redis-server"],
    "zeromq": ["libzmq3-dev"],
    "nng": ["libnng-dev"],
}
VALUE_PEERS = {
    "nlohmann": ["nlohmann-json3-dev"],
    "rapidjson": ["rapidjson-dev"],
    "jsoncpp": ["libjsoncpp-dev"],
}
PEERS = {**MESSAGING_PEERS, **VALUE_PEERS}
WITHOUT_SERVER = ["zeromq", "nng"]

SIZES = [64, 1024, 65536]
RECEIVERS = [10, 100]
IDLE = ["idle_wakeups"]


def packages():
    """The Debian packages of all peers."""
    return [package for needed in PEERS.values() for package in needed]


@dataclass(frozen=True)
class Effort:
    """How much work is put into a run."""
    rounds: int
    seconds: float  # for each work and subject in each round
    flood: int  # messages at a time
    idle_seconds: float
    inside_rounds: int
    inside_seconds: float  # for each benchmark in each of them


QUICK = Effort(rounds=2, seconds=0.04, flood=1000, idle_seconds=0.5, inside_rounds=1,
               inside_seconds=0.01)
FULL = Effort(rounds=7, seconds=0.4, flood=5000, idle_seconds=2, inside_rounds=7,
              inside_seconds=0.05)


def works():
    """The names of the works between processes, but for those that need no repetition."""
    names = [f"round_trip/{way}/{size}" for way in ("pipe", "tcp") for size in SIZES]
    names += [f"unicast_latency/{size}" for size in SIZES]
    names += [f"unicast_flood/{size}" for size in SIZES]
    names += [f"broadcast/{count}/{size}" for count in RECEIVERS for size in SIZES]
    return names


def subjects(work):
    """Who is measured. With a server in between there are no round trips."""
    peers = WITHOUT_SERVER if work.startswith("round_trip/") else MESSAGING_PEERS
    return [LIBRARY, FLOOR, *peers]
