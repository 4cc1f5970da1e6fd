#!/usr/bin/env python3
"""Measures searches on segments with many hosts: prints the table of docs/scaling.md.

Usage: run.py [--bin FOLDER] [--hosts N,N...] [--spread SECONDS,...] [--plot SVG]
Creates two network namespaces, connected by a veth pair: the searcher at one end, crowd.py at the other.
With --plot, measures "qiven find" in steps of a tenth of the largest number of hosts and plots the results with gnuplot.
"""
import argparse
import contextlib
import json
import os
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
LIST, FINISHED = "/tmp/tavoqx.list", "/tmp/tavoqx.list.tmp"
COLUMNS = ("Search", "Hosts", "Answers within", "Found", "Last after", "Stopped after", "Queries", "Answers",
           "Answer bytes", "Dropped", "No socket", "CPU", "Memory", "List file")


def run(command):
    subprocess.run(command.split(), check=True)


def read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def counters():
    """Frames and bytes of the interface, datagrams dropped for lack of buffer space, and datagrams without a socket."""
    names, values = [line.split() for line in read("/proc/net/snmp").splitlines() if line.startswith("Udp:")]
    udp = dict(zip(names[1:], map(int, values[1:])))
    card = [int(n) for n in next(line for line in read("/proc/net/dev").splitlines() if "eth0" in line).split()[1:]]
    return {"answers": card[1], "bytes": card[0], "queries": card[9], "dropped": udp["RcvbufErrors"], "early": udp["IgnoredMulti"]}


class Crowd:
    """Hosts at the other end of a new veth pair."""

    def __init__(self, hosts, spread, kind):
        self.command = [sys.executable, "-B", HERE + "/crowd.py", "crowd0", str(hosts), str(spread), kind]

    def __enter__(self):
        setup = ("read go && ip link set lo up && sysctl -qw net.ipv6.conf.all.disable_ipv6=1 && "
                 "ip address add 10.9.255.253/16 brd + dev crowd0 && ip link set crowd0 up && exec \"$@\"")
        self.process = subprocess.Popen(["unshare", "-n", "sh", "-c", "echo here; " + setup, "sh", *self.command],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.stdout.readline()
        run(f"ip link add eth0 type veth peer name crowd0 netns {self.process.pid}")
        run("ip address add 10.9.255.254/16 brd + dev eth0")
        run("ip link set eth0 up")
        self.process.stdin.write(b"go\n")
        self.process.stdin.flush()
        assert self.process.stdout.readline() == b"ready\n"
        time.sleep(0.3)
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait(timeout=30)
        # The kernel may delete the veth pair later, together with its other end.
        subprocess.run(["ip", "link", "delete", "eth0"], stderr=subprocess.DEVNULL, check=False)


class Watch(threading.Thread):
    """Observes a process: its memory, and the time when the list file last grew."""

    def __init__(self, pid, start):
        super().__init__()
        self.pid, self.begin, self.memory, self.grown, self.size, self.ended = pid, start, 0, 0.0, 0, False

    def run(self):
        while not self.ended:
            try:
                lines = read(f"/proc/{self.pid}/status").splitlines()
                self.memory = max([self.memory] + [int(line.split()[1]) for line in lines if line.startswith("VmHWM")])
                size = os.stat(LIST).st_size
                if size != self.size:
                    self.size, self.grown = size, time.monotonic() - self.begin
            except OSError:
                pass
            time.sleep(0.02)


class Bystander:
    """A host on the searcher's segment, which receives all answers of the others."""

    def __init__(self, binary):
        self.command = [binary, "answer", "--name", "storage-00000", "--ident", "ident-00000", "--model", "4711"]

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stderr=subprocess.DEVNULL)

    def __exit__(self, *_):
        self.process.terminate()
        _, _, usage = os.wait4(self.process.pid, 0)
        print(f"bystander: {usage.ru_utime + usage.ru_stime:.2f} s of CPU time", file=sys.stderr)


def measure(command, hosts, spread, kind, bystander=False):
    with Crowd(hosts, spread, kind), Bystander(command[0]) if bystander else contextlib.nullcontext():
        before, start = counters(), time.monotonic()
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        watch = Watch(process.pid, start)
        watch.start()
        names, last = set(), 0.0
        for line in process.stdout:
            names.add(json.loads(line)["ident"])
            last = time.monotonic() - start
        _, _, usage = os.wait4(process.pid, 0)
        end = time.monotonic() - start
        watch.ended = True
        watch.join()
        after = {name: value - before[name] for name, value in counters().items()}
    size = 0
    if not names and os.path.exists(FINISHED):
        size = os.stat(FINISHED).st_size
        names, last = {line.split(",")[4] for line in read(FINISHED).splitlines()}, watch.grown
        os.unlink(FINISHED)
    return {**after, "found": len(names), "last": last, "end": end, "cpu": usage.ru_utime + usage.ru_stime,
            "memory": watch.memory, "size": size}


def size_text(value):
    return f"{value / 1e6:.1f} MB" if value >= 1e6 else f"{value / 1e3:.1f} kB"


def row(name, hosts, spread, got):
    return [name, f"{hosts:,}", f"{spread:g} s", f"{got['found']:,}", f"{got['last']:.2f} s", f"{got['end']:.1f} s",
            str(got["queries"]), f"{got['answers']:,}", size_text(got["bytes"]), f"{got['dropped']:,}",
            str(got["early"]), f"{got['cpu']:.2f} s", f"{got['memory'] / 1024:.1f} MiB", size_text(got["size"]) if got["size"] else "-"]


def table(options):
    find = [options.bin + "/qiven", "find", "--format", "ndjson"]
    searches = [("one call", [options.bin + "/example-search"], "plain"), ("`find`, plain", find, "plain"),
                ("`find`, sealed", find, "sealed")]
    print("| " + " | ".join(COLUMNS) + " |\n|---|" + "---:|" * (len(COLUMNS) - 1))
    for name, command, kind in [search for search in searches if options.only in search[0]]:
        for spread in options.spread:
            for hosts in options.hosts:
                print("| " + " | ".join(row(name, hosts, spread, measure(command, hosts, spread, kind, options.bystander))) + " |", flush=True)


PLOT = """set terminal svg size 800,500 font "sans,12" background rgb "white"
set key left top
set xlabel "hosts on the segment, which answer within {spread:g} s"
set ylabel "seconds of CPU time"
set y2label "MiB"
set ytics nomirror
set y2tics
set yrange [0:*]
set y2range [0:*]
plot {parts}
"""


def plot(options):
    command, spread, largest = [options.bin + "/qiven", "find", "--format", "ndjson"], options.spread[-1], options.hosts[-1]
    data, parts = "", []
    for kind in ("plain", "sealed"):
        rows = ""
        for hosts in [largest * i // 10 for i in range(1, 11)]:
            got = measure(command, hosts, spread, kind)
            rows += f"{hosts} {got['cpu']:.3f} {got['last']:.3f} {got['memory'] / 1024:.1f} {got['found']}\n"
        print(f"{kind}: hosts, CPU seconds, seconds to the last host, MiB, found\n{rows}", flush=True)
        data += f"${kind} << EOD\n{rows}EOD\n"
        parts += [f"${kind} using 1:2 with linespoints title 'CPU time, answers {kind}'"]
    parts += ["$sealed using 1:4 axes x1y2 with linespoints dashtype 2 title 'memory, sealed (right)'"]
    script = data + PLOT.format(spread=spread, parts=", \\\n     ".join(parts))
    picture = subprocess.run(["gnuplot"], input=script.encode(), stdout=subprocess.PIPE, check=True).stdout
    with open(options.plot, "wb") as file:
        file.write(picture)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", default=HERE + "/../../build/release/bin")
    parser.add_argument("--hosts", default="10,100,1000,10000")
    parser.add_argument("--spread", default="0.1,1,5")
    parser.add_argument("--bystander", action="store_true", help="also say what a searched host spends on the others' answers")
    parser.add_argument("--plot", metavar="SVG")
    parser.add_argument("--only", metavar="TEXT", default="", help="only searches whose name contains it")
    options = parser.parse_args()
    options.hosts = [int(part) for part in options.hosts.split(",")]
    options.spread = [float(part) for part in options.spread.split(",")]
    options.bin = os.path.realpath(options.bin)
    if os.environ.get("SCALING_INSIDE") != "1":
        os.environ["SCALING_INSIDE"] = "1"
        os.execvp("unshare", ["unshare", "-rnm", sys.executable, *sys.argv])
    with tempfile.TemporaryDirectory(dir=os.environ.get("SCALING_TMP", "/dev/shm")) as folder:
        run(f"mount --bind {folder} /tmp")  # the list file of the one call
        run("ip link set lo up")
        run("sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1")
        (plot if options.plot else table)(options)
        run("umount /tmp")


if __name__ == "__main__":
    main()
