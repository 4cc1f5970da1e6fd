#!/usr/bin/env python3
"""Measures the time until a search shows the hosts of a segment, compared with a minimal program, arp-scan and avahi-browse.

Usage: run.py [--bin FOLDER] [--bare PROGRAM] [--json FILE] [--hosts 3,30,1000] [--only PROGRAM,...] [--runs N] [--sealed]
Creates the segments from network namespaces and runs the programs in random order. Times are measured from the start
of a program until the line of a host arrives at the reading end of a pipe (find-pty: of a terminal). Programs that
buffer their output run unbuffered.
"""
import argparse
import json
import os
import random
import re
import select
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.dont_write_bytecode = True
import places
import segment

LINES = {"LD_PRELOAD": "/usr/libexec/coreutils/libstdbuf.so", "_STDBUF_O": "L"}
NAME = rb"\bhost\d+\b"
ADDRESS = rb"\b10\.9\.\d+\.\d+\b"
PAUSE = 0.4  # a host answers in clear at most five times a second
QUICK, SLOW = 15, 7  # runs; programs that are done in no time get more of them
SECONDS = 20  # the longest run


class Program:
    def __init__(self, name, command, pattern=NAME, runs=SLOW, pty=False, environment=None, **more):
        self.name, self.command, self.pattern, self.runs, self.pty = name, command, pattern, runs, pty
        self.environment = {**os.environ, **(environment or {})}
        self.start_first = more.get("start_first", lambda: None)  # within the time that is measured
        self.prepare, self.after = more.get("prepare", lambda: None), more.get("after", lambda: None)
        self.times = []


def start(program, child_end):
    files = [(os.POSIX_SPAWN_DUP2, child_end, 1), (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0)]
    path = shutil.which(program.command[0])
    begin = time.monotonic()
    program.start_first()
    return begin, os.posix_spawn(path, program.command, program.environment, file_actions=files, setpgroup=0)


def listen(program, out, begin, expected):
    """Returns (seconds until the first of the expected words, until all of them); None if they do not arrive."""
    first, now, seen, rest = None, begin, set(), b""
    while select.select([out], [], [], max(0, begin + SECONDS - now))[0]:
        try:
            data = os.read(out, 1 << 16)
        except OSError:  # a terminal whose program has ended
            return None
        now = time.monotonic()
        if not data:
            return None
        whole, _, rest = (rest + data).rpartition(b"\n")
        seen |= expected & set(re.findall(program.pattern, whole))
        first = now if seen and first is None else first
        if seen == expected:
            return first - begin, now - begin
    return None


def measure(program, expected):
    program.prepare()
    out, child_end = os.openpty() if program.pty else os.pipe()
    begin, child = start(program, child_end)
    os.close(child_end)
    try:
        return listen(program, out, begin, expected[program.pattern])
    finally:
        os.killpg(child, signal.SIGKILL)
        os.waitpid(child, 0)
        os.close(out)
        program.after()
        time.sleep(PAUSE)


def take_turns(programs, expected, runs):
    for program in programs:
        measure(program, expected)  # once for the page cache
    rounds = [program for program in programs for _ in range(runs or program.runs)]
    random.shuffle(rounds)
    for program in rounds:
        program.times.append(measure(program, expected))


def our_programs(options):
    qiven = options.bin + "/qiven"
    return [Program("bare", [options.bare], runs=QUICK), Program("find", [qiven, "find"], runs=QUICK),
            Program("find-ndjson", [qiven, "find", "--format", "ndjson"], runs=QUICK),
            Program("find-pty", [qiven, "find"], runs=QUICK, pty=True, environment={"TERM": "xterm"})]


def arp_scan(network):
    return Program("arp-scan", ["arp-scan", "-I", "eth0", "-q", network], ADDRESS, environment=LINES)


def avahi_programs(warm, cold):
    """Three states of the daemon: hosts in its cache; running with an empty cache; started together with the search."""
    browse = ["avahi-browse", "-p", places.SERVICE]

    def prepare():
        cold.start_avahi()
        cold.wait_for_avahi()

    return [Program("avahi-warm", browse, environment=warm.environment),
            Program("avahi-empty", browse, runs=5, environment=cold.environment, prepare=prepare,
                    after=cold.stop_avahi),
            Program("avahi-cold", browse + ["-f"], environment=cold.environment, start_first=cold.start_avahi,
                    after=cold.stop_avahi)]


class RealHosts:
    """Each host in its own namespace, with `qiven answer` and an avahi-daemon."""

    def __init__(self, options, count):
        self.network = "10.9.0.0/24"
        numbers = sorted(random.Random(count).sample(range(20, 250), count))
        self.names = [b"host%d" % i for i in range(count)]
        self.addresses = [b"10.9.0.%d" % number for number in numbers]
        for place, address in (("searcher", "10.9.0.2"), ("cold", "10.9.0.3")):
            places.add_host(place, address)
        for i, number in enumerate(numbers):
            self.start(options, i, number)
        self.warm, self.cold = places.Bus("searcher"), places.Bus("cold")
        self.warm.start_avahi()
        self.warm.wait_for_avahi()
        self.keep_warm = places.start("searcher", ["avahi-browse", "-p", places.SERVICE], env=self.warm.environment)
        time.sleep(5 if count > 10 else 3)  # until the daemons have announced themselves

    def start(self, options, i, number):
        place, name = f"h{i}", f"host{i}"
        places.add_host(place, f"10.9.0.{number}")
        places.start(place, places.avahi_command(name, places.publish(name)))
        command = [options.bin + "/qiven", "answer", "--name", name, "--model", "1", "--ident", f"id{i}"]
        places.start(place, command + ([] if options.sealed else ["--plain"]))

    def programs(self):
        return [arp_scan(self.network)] + avahi_programs(self.warm, self.cold)


class Crowd:
    """One process that answers for all hosts, and one interface with all addresses. A thousand avahi-daemons are too many."""

    def __init__(self, options, count):
        self.network = "10.9.0.0/22"
        self.names = [b"host%d" % i for i in range(count)]
        numbers = range(10, 10 + count)
        self.addresses = [b"10.9.%d.%d" % (number >> 8, number & 255) for number in numbers]
        places.add_host("searcher", "10.9.0.2", 22)
        places.add_host("crowd", segment.ADDRESS, 22)
        batch = "".join(f"address add {address.decode()}/22 dev eth0\n" for address in self.addresses)
        subprocess.run(["ip", "-n", "crowd", "-batch", "-"], input=batch, text=True, check=True)
        places.start("crowd", [sys.executable, "-B", str(places.HERE / "responder.py"), str(count)])
        time.sleep(2)

    def programs(self):
        return [arp_scan(self.network)]


def memory(pid):
    """Memory of a process in kB: current, maximum, and private dirty."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        now, most = (re.search(key + r":\s+(\d+)", text).group(1) for text in [file.read()] for key in ("VmRSS", "VmHWM"))
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        own = sum(int(number) for number in re.findall(r"Private_Dirty:\s+(\d+)", file.read()))
    return {"now": int(now), "most": int(most), "own": own}


def ask(count):
    """Queries from a number of searchers, each with its own key."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    for i in range(1, count + 1):
        key = os.urandom(32).hex().encode()
        sock.sendto(segment.QUERY + segment.field(0xC4, key) + segment.field(0xC5, i), ("255.255.255.255", segment.PORT))
        time.sleep(0.001)


def measure_memory(options, place):
    rows = {}
    if isinstance(place, RealHosts):
        host = places.start("cold", [options.bin + "/qiven", "answer", "--name", "sealing", "--model", "1"])
        time.sleep(1)
        rows["answer, at rest"] = memory(host.pid)
        ask(1000)
        rows["answer, after 1,000 askers"] = memory(host.pid)
    find = subprocess.Popen([options.bin + "/qiven", "find", "--format", "ndjson", "--timeout", "5", "--expect", "9999"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(3)
    rows[f"find, {len(place.names):,} hosts"] = memory(find.pid)
    find.kill()
    find.wait()
    return rows


def inside(options):
    """Measures one segment, in the namespaces that measure_segment() created; writes the results to standard output."""
    places.begin()
    count = options.hosts[0]
    place = (Crowd if count > 100 else RealHosts)(options, count)
    places.enter("searcher")
    expected = {NAME: set(place.names), ADDRESS: set(place.addresses)}
    programs = [program for program in our_programs(options) + place.programs()
                if not options.only or program.name in options.only]
    take_turns(programs, expected, options.runs)
    json.dump({"hosts": count, "times": {program.name: program.times for program in programs},
               "memory": measure_memory(options, place)}, sys.stdout)


def measure_segment(arguments, count):
    """Runs this program again in new namespaces, which are deleted with all their processes when it exits."""
    flags = ["--net", "--mount", "--pid", "--fork", "--kill-child"]
    flags += [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    command = ["unshare", *flags, sys.executable, "-B", __file__, *arguments, "--hosts", str(count), "--inside"]
    with tempfile.TemporaryDirectory() as scratch:
        done = subprocess.run(command, stdout=subprocess.PIPE, timeout=400, check=True,
                              env={**os.environ, "SEARCH_SCRATCH": scratch})
    return json.loads(done.stdout)


def medians(times):
    """Returns {"first": ms, "all": ms} for the runs that showed all hosts."""
    complete = [run for run in times if run]
    if not complete:
        return None
    return {which: statistics.median(run[i] for run in complete) * 1000 for i, which in enumerate(("first", "all"))}


def show_times(segments):
    print("| Hosts | Program | First shown | All shown | First / bare | All / bare | All / find | Runs |")
    print("|---:|---|" + "---:|" * 6)
    for data in segments:
        rows = {name: medians(times) for name, times in data["times"].items()}
        for name, row in rows.items():
            head = f"| {data['hosts']:,} | {name} "
            if row is None:
                print(head + "| - | - | - | - | - | 0 |")
                continue
            ratios = [f"{row[which] / rows[other][which]:.2f}" if rows.get(other) else "-"
                      for which, other in (("first", "bare"), ("all", "bare"), ("all", "find"))]
            complete, runs = sum(1 for run in data["times"][name] if run), len(data["times"][name])
            print(head + f"| {row['first']:.2f} ms | {row['all']:.2f} ms | {' | '.join(ratios)} | {complete} of {runs} |")


def show_memory(segments):
    print("\n| Memory of qiven | Resident | At most | Written to |\n|---|---:|---:|---:|")
    for data in segments:
        for name, row in data["memory"].items():
            title = f"{name} (segment of {data['hosts']:,})" if name.startswith("answer") else name
            print(f"| {title} | " + " | ".join(f"{row[key]:,} kB" for key in ("now", "most", "own")) + " |")


# The names of the programs in bench/report.py; results of a name in parentheses are shown for information only.
ROLES = {"bare": "floor", "find": "qiven", "find-ndjson": "(find-ndjson)", "find-pty": "(find-pty)"}


def write(segments, path):
    """The medians as bench/report.py takes them."""
    runs = [{"run_name": f"search-{data['hosts']}/{which}/{ROLES.get(name, name)}/real_time",
             "aggregate_name": "median", "real_time": value, "cpu_time": value, "time_unit": "ms"}
            for data in segments for name, times in data["times"].items()
            for which, value in (medians(times) or {}).items()]
    memory = {f"{name} on {data['hosts']}": row for data in segments for name, row in data["memory"].items()}
    context = {"num_cpus": os.cpu_count(), "load_avg": list(os.getloadavg())}
    path.write_text(json.dumps({"context": context, "benchmarks": runs, "memory": memory}, indent=1) + "\n")


def parse(arguments):
    build = places.ROOT / "build"
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=str(build / "release/bin"), help="where qiven is")
    parser.add_argument("--bare", default=str(build / "bench/bin/bench-search-bare"), help="the least program")
    parser.add_argument("--json", type=Path, help="file for the results, beside the tables")
    parser.add_argument("--hosts", default="3,30,1000", type=lambda text: [int(n) for n in text.split(",")])
    parser.add_argument("--only", default=[], type=lambda text: text.split(","), help="programs, instead of all")
    parser.add_argument("--runs", type=int, help="runs of each program")
    parser.add_argument("--sealed", action="store_true", help="let the hosts seal their answers for find")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args(arguments)


def main():
    options = parse(sys.argv[1:])
    if options.inside:
        return inside(options)
    for program in (options.bin + "/qiven", options.bare):
        if not os.access(program, os.X_OK):
            sys.exit(f"run.py: {program} is not built")
    segments = [measure_segment(sys.argv[1:], count) for count in options.hosts]
    show_times(segments)
    show_memory(segments)
    if options.json:
        write(segments, options.json)
    return 0


if __name__ == "__main__":
    sys.exit(main())
