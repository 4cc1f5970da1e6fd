#!/usr/bin/env python3
"""Measures whether a search of libqiven-watch finds every host, how fast, and with how much memory; prints a table.

Hosts at the other end of a veth pair answer each query once, at the same moment and in a fixed order. The search runs
as an ordinary user and with the kernel's default limits, also next to two busy loops. The floor of the first host is
bench/search/bare.cpp on the same segment, in turns with the search.
"""
import argparse
import contextlib
import ctypes
import json
import mmap
import os
import signal
import statistics
import struct
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG, PR_CAPBSET_DROP = 1, 24
SIZES = (100, 700, 1400, 2800)
ROWS = [(3, 211), (30, 211)] + [(hosts, size) for hosts in (50, 200, 1000) for size in SIZES] + [(10000, 200)]
COLUMNS = ("Hosts", "Bytes", "Senders", "Busy", "Complete", "Lost", "Queries", "First", "First / bare", "All", "Settled",
           "Memory")
LONGEST = 70  # seconds
PAUSE = 0.5  # seconds: the hosts answer the next query for sure


def run(command):
    subprocess.run(command, shell=True, check=True)


def enter_namespaces():
    """Runs this program again in namespaces of its own."""
    flags = ["--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    flags += [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    os.execvp("unshare", ["unshare", *flags, sys.executable, "-B", __file__, *sys.argv[1:], "--inside"])


@contextlib.contextmanager
def crowd(options, hosts, size, senders):
    """The hosts, in a network of their own."""
    # Transparent sockets may send from addresses that are not local, if these are routed to them.
    setup = ("read go; ip link set lo up; ip address add 10.9.255.253/16 brd + dev crowd0; ip link set crowd0 up; "
             "ip route add local 10.9.0.0/17 dev lo; exec \"$@\"")
    program = [options.bin + "/bench-watch-crowd", "crowd0", str(hosts), str(size), senders, "100"]
    with subprocess.Popen(["unshare", "-n", "sh", "-c", "echo here; " + setup, "sh", *program],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        process.stdout.readline()
        run(f"ip link add eth0 type veth peer name crowd0 netns {process.pid} && "
            "ip address add 10.9.255.254/16 brd + dev eth0 && ip link set eth0 up")
        process.stdin.write(b"go\n")
        process.stdin.flush()
        assert process.stdout.readline() == b"ready\n"
        time.sleep(0.3)
        yield
        process.stdin.close()
        process.wait()
    with contextlib.suppress(subprocess.CalledProcessError):  # gone with the other end
        subprocess.run("ip link delete eth0", shell=True, check=True, stderr=subprocess.DEVNULL)


@contextlib.contextmanager
def busy_loops(number):
    loops = [subprocess.Popen(["sh", "-c", "while :; do :; done"]) for _ in range(number)]
    try:
        yield
    finally:
        for loop in loops:
            loop.kill()
            loop.wait()


def start(program, *arguments):
    """Starts it without privileges; the time begins when the kernel starts to load it."""
    clock = mmap.mmap(-1, 8)

    def become_ordinary():
        for capability in range(64):
            LIBC.prctl(PR_CAPBSET_DROP, capability)
        struct.pack_into("d", clock, 0, time.monotonic())

    process = subprocess.Popen([program, *arguments], stdout=subprocess.PIPE, preexec_fn=become_ordinary)
    first = os.read(process.stdout.fileno(), 1)
    now, begin = time.monotonic(), struct.unpack_from("d", clock)[0]
    return process, (now - begin) * 1000 if first else None, begin


def measure_bare(options):
    process, first, _ = start(options.bin + "/bench-search-bare")
    process.kill()
    process.communicate()
    return first


def measure(options, hosts):
    process, first, begin = start(options.bin + "/bench-watch-search", str(hosts))
    lines = process.communicate(timeout=LONGEST)[0].splitlines()
    if process.returncode != 0:
        sys.exit("run.py: the search failed")
    result = json.loads(lines[-1])
    for name in ("all", "settled"):
        result[name] = result[name] - begin * 1000 if result[name] else None
    return dict(result, first=first)


def median(values):
    known = [value for value in values if value is not None]
    return statistics.median(known) if known else float("nan")


def measure_row(options, hosts, size, senders, loops):
    with crowd(options, hosts, size, senders), busy_loops(loops):
        bare, runs = [], []
        for _ in range(options.runs):
            bare.append(measure_bare(options))
            time.sleep(PAUSE)
            runs.append(measure(options, hosts))
            time.sleep(PAUSE)
    complete = sum(result["found"] == hosts for result in runs)
    floor, first = median(bare), median([result["first"] for result in runs])
    print("| " + " | ".join((
        f"{hosts:,}", f"{size:,}", senders, "two loops" if loops else "no", f"{complete} of {len(runs)}",
        f"{sum(result['lost'] for result in runs):,}", f"{max(result['rounds'] for result in runs)}", f"{first:.1f} ms",
        f"{first / floor:.2f}", f"{median([result['all'] for result in runs]):.0f} ms",
        f"{max(result['settled'] for result in runs) / 1000:.2f} s",
        f"{max(result['memory'] for result in runs) / 1024:.0f} MB")) + " |", flush=True)
    return [{"run_name": f"watch-{hosts}-{size}-{senders}-{loops}/first/{who}/real_time", "aggregate_name": "median",
             "real_time": value, "cpu_time": value, "time_unit": "ms"} for who, value in (("qiven", first), ("floor", floor))]


def main():
    numbers = lambda text: [int(n) for n in text.split(",")]  # noqa: E731
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=str(ROOT / "build/bench/bin"), help="where the programs are")
    parser.add_argument("--runs", type=int, default=20, help="searches per row")
    parser.add_argument("--hosts", type=numbers, help="only rows with these numbers of hosts")
    parser.add_argument("--sizes", type=numbers, help="only rows with these sizes of answers")
    parser.add_argument("--senders", default="one,many", type=lambda text: text.split(","))
    parser.add_argument("--busy", default="0,2", type=numbers, help="numbers of busy loops")
    parser.add_argument("--json", type=Path, help="file for the results, beside the table")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if not options.inside:
        enter_namespaces()
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    print("First: median of the first host. All: median of the last host. Settled and memory: the most of any run.\n")
    print("| " + " | ".join(COLUMNS) + " |\n|" + "---:|" * len(COLUMNS))
    rows = [row for row in ROWS if (not options.hosts or row[0] in options.hosts)
            and (not options.sizes or row[1] in options.sizes)]
    results = [result for loops in options.busy for senders in options.senders for hosts, size in rows
               for result in measure_row(options, hosts, size, senders, loops)]
    if options.json:
        context = {"num_cpus": os.cpu_count(), "load_avg": list(os.getloadavg())}
        options.json.write_text(json.dumps({"context": context, "benchmarks": results}, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
